// A byte stream as the camera sends it while it shows live video.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// Messages are decoded; the others differ in their lengths, by which nobody knows them.
enum class Packets { kMessages, kUnknown };

// Sealed packets of the lengths that the camera sends, or of one byte more, back to back, of at
// least `size` bytes altogether.
Bytes camera_packets(std::size_t size, Packets kind);

// At least `size` bytes: chunks of 4 to 48 KB in video envelopes, 98 in 100 bytes, and camera
// packets in control envelopes between them. The same bytes at every call.
Bytes live_stream(std::size_t size, Packets kind);
