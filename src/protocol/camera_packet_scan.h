// Finds the packets in what the camera sends.
#pragma once

#include <cstdint>

struct CameraState;

// Hands every packet of the payload whose two checksums hold to the decoder, and skips
// everything else byte by byte. A packet cut off at the payload's end is dropped. A null state
// stands for the process-wide one. USB reader thread.
void camera_packet_scan(CameraState* state, const std::uint8_t* buffer, std::uint16_t size);
