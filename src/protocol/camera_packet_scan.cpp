#include "protocol/camera_packet_scan.h"

#include <cstddef>

#include "protocol/camera_packet.h"
#include "protocol/camera_state.h"
#include "protocol/little_endian.h"
#include "protocol/telemetry_decode.h"

namespace {

constexpr std::size_t kLengthOffset = 1;
constexpr std::size_t kHeaderCrcOffset = 3;
constexpr std::uint8_t kCrc8AfterStart = 0x9F;  // what the start byte makes of the seed
constexpr std::size_t kCrc16Size = 2;

// The shortest length that both sums can hold for. One of 0 or 1 has no room for the CRC-16, and
// for 2 and 3 the sum of what stands before it never equals the length byte that would be part of
// it. From 4 on all four bytes of the header lie within the packet.
constexpr std::size_t kShortestPacket = 4;

// Length of the verified packet at the start of the `held` bytes, or 0. The header's sum comes
// first: it is the cheaper one, and a payload full of start bytes is then no work.
std::size_t packet_at(const std::uint8_t* bytes, std::size_t held) {
    if (held < kShortestPacket || bytes[0] != kCameraPacketStart) {
        return 0;
    }
    const std::size_t length = bytes[kLengthOffset];
    if (length < kShortestPacket || length > held) {
        return 0;
    }
    if (camera_crc8(bytes + kLengthOffset, 2, kCrc8AfterStart) != bytes[kHeaderCrcOffset]) {
        return 0;
    }
    const std::size_t summed = length - kCrc16Size;
    if (camera_crc16(bytes, summed, kCameraCrc16Seed) != read_le16(bytes + summed)) {
        return 0;
    }
    return length;
}

}  // namespace

void camera_packet_scan(CameraState* state, const std::uint8_t* buffer, std::uint16_t size) {
    CameraState* const target = state != nullptr ? state : &camera_state;
    for (std::size_t p = 0; p < size;) {
        const std::size_t length = packet_at(buffer + p, size - p);
        if (length == 0) {
            ++p;  // a damaged packet may enclose a sound one
            continue;
        }
        telemetry_decode_verified(target, buffer + p, length);
        p += length;
    }
}
