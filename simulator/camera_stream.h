// The camera's byte stream, as the simulated camera sends it. Reentrant.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// Largest payload of one envelope that passes the receiver's buffer.
inline constexpr std::size_t kLargestPassingPayload = 49477;

Bytes video_envelope(std::span<const std::uint8_t> chunk);
Bytes control_envelope(std::span<const std::uint8_t> packets);

// A packet with both checksums in place; they are computed here, bit by bit, apart from the
// receiver's tables.
struct CameraPacketFields {
    std::uint8_t sender, receiver;
    std::uint16_t sequence;
    std::uint8_t type, set, id;
};
Bytes camera_packet(const CameraPacketFields& fields, std::span<const std::uint8_t> payload);

// An H.264 byte stream (Annex B) cut into access units, and these into chunks of at most
// `largest_chunk` bytes: what the camera sends as one envelope each. Joined they are the stream.
std::vector<Bytes> video_chunks(std::span<const std::uint8_t> h264, std::size_t largest_chunk);

// The whole stream: the chunks in envelopes, after every `packets_every` of them a control
// envelope with camera packets (0: none), and at the end a filler chunk, which makes the last
// video envelope complete.
Bytes camera_stream(const std::vector<Bytes>& chunks, unsigned packets_every);
