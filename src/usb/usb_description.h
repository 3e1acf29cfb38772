// What the camera's handle sees: an Android device in accessory mode, one bulk pipe each way.
#pragma once

#include <cstdint>

#include "usb/usb-gadget/usb-gadget.h"

// Endpoint numbers of the two pipes.
inline constexpr std::uint32_t kInEndpointNumber = 6;   // to the camera
inline constexpr std::uint32_t kOutEndpointNumber = 2;  // from the camera

// Writes the two identifiers into the device descriptor. The description is constant from then on.
// Start-up thread.
const UsbGadgetDeviceConfig* usb_description(std::uint16_t vendor_id, std::uint16_t product_id);
