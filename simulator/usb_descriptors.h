// Reads USB descriptors as the kernel keeps them (USB 2.0, 9.6). Reentrant.
#pragma once

#include "simulator/usb_bus.h"

// From the kernel's file of a device - the device descriptor, then each configuration whole - the
// configuration of that value; empty where there is none.
Bytes configuration_of(const Bytes& descriptors, unsigned value);

// Whether the first setting of that interface has a bulk endpoint of that address.
bool has_bulk_endpoint(const Bytes& configuration, unsigned interface, unsigned address);
