// The one way out to the camera.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

// Writes one complete packet as one bulk transfer on the IN endpoint: up to 512 bytes at high
// speed, 64 at full speed. Bytes written; 0 while the camera has not configured the device; -1 on
// a transfer error. Thread-safe: a packet is a single write, which the kernel keeps whole.
ssize_t camera_send(const std::uint8_t* packet, std::size_t length);
