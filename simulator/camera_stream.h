// The camera's byte stream, as the simulated camera sends it. Reentrant.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// Largest payload of one envelope that passes the receiver's buffer.
inline constexpr std::size_t kLargestPassingPayload = 49477;

// byte:  0    1    2         3    4  5        6  7   8 ..
//        55   CC   'I'/'J'   57   length(le)  00 00  payload
// The payload has at most 65535 bytes; more is cut off.
Bytes video_envelope(std::span<const std::uint8_t> chunk);
Bytes control_envelope(std::span<const std::uint8_t> packets);

// The chunk of 12 bytes that the camera sends where it has no video.
Bytes filler_chunk();

// A packet's checksums, computed bit by bit, apart from the receiver's tables: of the first three
// bytes, and of all but the last two.
std::uint8_t header_sum(std::span<const std::uint8_t> start);
std::uint16_t packet_sum(std::span<const std::uint8_t> bytes);

// A packet with both checksums in place. The payload has at most 242 bytes; more is cut off.
struct CameraPacketFields {
    std::uint8_t sender, receiver;
    std::uint16_t sequence;
    std::uint8_t type, set, id;
};
Bytes camera_packet(const CameraPacketFields& fields, std::span<const std::uint8_t> payload);

// What a control envelope of the stream carries: one packet of the camera's and one of the
// gimbal's.
Bytes camera_packets(std::uint16_t sequence);

// An H.264 byte stream (Annex B) cut into access units: one picture with what goes before it.
// Joined they are the stream.
std::vector<Bytes> access_units(std::span<const std::uint8_t> h264);

// The access units cut into chunks of at most `largest_chunk` bytes: what the camera sends as one
// envelope each. Joined they are the stream.
std::vector<Bytes> video_chunks(std::span<const std::uint8_t> h264, std::size_t largest_chunk);

// The whole stream: the chunks in envelopes, after every `packets_every` of them a control
// envelope with camera packets (0: none), and at the end a filler chunk, which makes the last
// video envelope complete.
Bytes camera_stream(const std::vector<Bytes>& chunks, unsigned packets_every);
