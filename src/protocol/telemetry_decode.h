// Folds the camera's status messages into the camera state; a null state stands for the
// process-wide one. Messages of a kind that is not known change nothing.
#pragma once

#include <cstddef>
#include <cstdint>

struct CameraState;

// Takes one packet, checks its length and both its sums, and decodes it. A sum that is wrong is
// reported. For packets that no scanner has looked at: the stream's have been. USB reader thread.
void telemetry_decode(CameraState* state, const std::uint8_t* packet, std::size_t length);

// The same for a packet whose start byte, length byte and sums the scanner has just found right:
// most of the reader's work on a packet is its sums, and once is enough. USB reader thread.
void telemetry_decode_verified(CameraState* state, const std::uint8_t* packet, std::size_t length);
