// The link to the camera: the accessory-mode USB device, and its life.
//
// States: not mounted -> opened (gadget_init) -> configured by the host (both bulk endpoints open,
// reader thread started) -> receiving (first bulk data; endpoint zero is no longer serviced) ->
// finished (a read failed).
#pragma once

#include <cstdint>

#include "usb/usb-gadget/usb-gadget.h"

// Loads and mounts gadgetfs, then gadget_init() with the identifiers of an Android device in
// accessory mode. 0, or 1 when that failed. Start-up thread.
int gadget_start();

// Opens the port-6000 bridge and the USB device, and looks once for events, so that the kernel has
// the process asked from then on. 0 or -1. Start-up thread.
int gadget_init(std::uint16_t vendor_id, std::uint16_t product_id);

// One step of endpoint-zero service: 1 to go on, 0 when the link is finished. Watchdog thread.
int gadget_poll();

// Shuts the device down. Watchdog thread.
void gadget_exit();

// Whether bulk data flows. Thread-safe.
bool gadget_is_receiving();

// Time of the last bulk read in milliseconds of clock_ms(). Thread-safe.
std::uint32_t gadget_last_rx_ms();

// Event callback of the USB device; runs inside gadget_poll() and gadget_init().
void loopback_event_cb(UsbGadgetHandle* handle, const UsbGadgetEvent* event, void* argument);
