// What passes between a USB host and a device, in the terms of USB 2.0, chapter 9.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

using Bytes = std::vector<std::uint8_t>;
using Milliseconds = std::chrono::milliseconds;

// As gadgetfs reports it in a connect event (the kernel's usb_device_speed).
enum class UsbSpeed : std::uint32_t { kUnknown = 0, kLow = 1, kFull = 2, kHigh = 3 };

// USB 2.0, 9.3. Multi-byte fields little-endian on the wire.
struct SetupPacket {
    std::uint8_t request_type;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
};

// kGone: the device left its port; only a real one does so in the middle of a request.
enum class ControlStatus { kAcknowledged, kStalled, kTimedOut, kGone };

struct ControlResult {
    ControlStatus status = ControlStatus::kTimedOut;
    Bytes data;  // data stage of a device-to-host request, cut to its wLength
    bool operator==(const ControlResult&) const = default;
};
