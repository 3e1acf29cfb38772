#include "live_stream.h"

#include <random>

#include "protocol/camera_packet.h"
#include "protocol/little_endian.h"

namespace {

// Attitude, status, battery, focus, parameters, settings.
constexpr std::uint8_t kPacketLengths[] = {25, 50, 25, 52, 25, 53, 25, 77, 25, 104};

constexpr std::size_t kShortestChunk = std::size_t{4} * 1024;
constexpr std::size_t kLongestChunk = std::size_t{48} * 1024;
constexpr std::size_t kVideoPerControlByte = 49;  // 98 to 2

void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void append_envelope(Bytes& stream, std::uint8_t type, const Bytes& payload) {
    std::uint8_t header[8] = {0x55, 0xCC, type, 0x57};
    write_le16(header + 4, static_cast<std::uint16_t>(payload.size()));
    stream.insert(stream.end(), std::begin(header), std::end(header));
    append(stream, payload);
}

// Each byte says of the camera that it takes a photo (bit 5) and is not busy (bit 3), so that the
// status calls for no command.
constexpr std::uint8_t kPayloadByte = 0x22;

Bytes sealed_packet(std::uint8_t length) {
    Bytes packet(length, kPayloadByte);
    packet[0] = kCameraPacketStart;
    packet[1] = length;
    packet[2] = 0x04;
    packet[3] = camera_crc8(packet.data(), 3, kCameraCrc8Seed);
    camera_packet_seal(packet.data(), packet.size());
    return packet;
}

}  // namespace

Bytes camera_packets(std::size_t size, Packets kind) {
    const int longer = kind == Packets::kUnknown ? 1 : 0;
    Bytes packets;
    for (std::size_t i = 0; packets.size() < size; ++i) {
        const int length = kPacketLengths[i % std::size(kPacketLengths)] + longer;
        append(packets, sealed_packet(static_cast<std::uint8_t>(length)));
    }
    return packets;
}

Bytes live_stream(std::size_t size, Packets kind) {
    std::minstd_rand random(1);
    std::uniform_int_distribution<std::size_t> chunk_size(kShortestChunk, kLongestChunk);
    Bytes stream;
    stream.reserve(size + 2 * kLongestChunk);
    while (stream.size() < size) {
        Bytes chunk(chunk_size(random));
        for (std::uint8_t& byte : chunk) {
            byte = static_cast<std::uint8_t>(random() >> 8);
        }
        append_envelope(stream, 0x4A, chunk);
        append_envelope(stream, 0x49, camera_packets(chunk.size() / kVideoPerControlByte, kind));
    }
    return stream;
}
