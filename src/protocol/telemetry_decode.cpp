#include "protocol/telemetry_decode.h"

#include <cstdio>

#include "protocol/camera_packet.h"
#include "protocol/little_endian.h"

namespace {

constexpr std::size_t kShortestMessage = 10;
constexpr std::size_t kLengthOffset = 1;
constexpr std::size_t kHeaderCrcOffset = 3;
constexpr std::size_t kCrc16Size = 2;

// The scanner has made the same sums, so the two lines speak of packets that came another way.
bool packet_is_sound(const std::uint8_t* packet, std::size_t length) {
    if (packet == nullptr || packet[0] != kCameraPacketStart || length < kShortestMessage) {
        return false;
    }
    if (packet[kLengthOffset] != length) {
        return false;
    }
    const std::size_t summed = length - kCrc16Size;
    if (camera_crc16(packet, summed, kCameraCrc16Seed) != read_le16(packet + summed)) {
        fprintf(stderr, "CRC16 wrong\n");
        return false;
    }
    if (camera_crc8(packet, kHeaderCrcOffset, kCameraCrc8Seed) != packet[kHeaderCrcOffset]) {
        fprintf(stderr, "CRC8 wrong\n");
        return false;
    }
    return true;
}

}  // namespace

void telemetry_decode(CameraState* state, const std::uint8_t* packet, std::size_t length) {
    if (packet_is_sound(packet, length)) {
        telemetry_decode_verified(state, packet, length);
    }
}

// Messages are told apart by their length; the table of lengths is next.
void telemetry_decode_verified(CameraState* /*state*/, const std::uint8_t* /*packet*/,
                               std::size_t /*length*/) {}
