// The device description that a process writes to the gadgetfs control file, and what the kernel
// answers from it by itself. Reentrant.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "simulator/usb_bus.h"

// Takes the written bytes apart as the kernel does; nullopt where it refuses them (EINVAL).
//   tag 0 (4 bytes) | full-speed configuration | high-speed configuration, if any | device (18)
struct DeviceDescription {
    Bytes written;  // all of it
    Bytes full_speed;
    Bytes high_speed;  // empty where there is none
    Bytes device;
};
std::optional<DeviceDescription> check_device_description(std::span<const std::uint8_t> written);

// GET_DESCRIPTOR of those that the kernel keeps: device, configuration, qualifier and other-speed
// configuration, cut to wLength; nullopt: stalled.
std::optional<Bytes> kernel_descriptor(const DeviceDescription& description, UsbSpeed speed,
                                       const SetupPacket& setup);

// Whether an endpoint's configuration record is one:
//   tag 1 (4 bytes) | full-speed endpoint (7) | high-speed endpoint (7), if any
bool is_endpoint_record(std::span<const std::uint8_t> written);
