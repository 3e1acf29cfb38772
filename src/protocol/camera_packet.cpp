#include "protocol/camera_packet.h"

#include <array>

#include "protocol/little_endian.h"

namespace {

constexpr std::uint8_t kCrc8Polynomial = 0x8C;      // x^8+x^5+x^4+1, reflected
constexpr std::uint16_t kCrc16Polynomial = 0x8408;  // x^16+x^12+x^5+1, reflected

// What the sum becomes when the byte of that index is shifted out of it.
template <typename Sum>
consteval std::array<Sum, 256> crc_table(Sum polynomial) {
    std::array<Sum, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        unsigned sum = byte;
        for (int bit = 0; bit < 8; ++bit) {
            sum = sum >> 1 ^ (sum & 1 ? polynomial : 0U);
        }
        table[byte] = static_cast<Sum>(sum);
    }
    return table;
}

constexpr auto kCrc8Table = crc_table<std::uint8_t>(kCrc8Polynomial);
constexpr auto kCrc16Table = crc_table<std::uint16_t>(kCrc16Polynomial);

static_assert(kCrc8Table[1] == 0x5E && kCrc8Table[255] == 0x35);
static_assert(kCrc16Table[1] == 0x1189 && kCrc16Table[255] == 0x0F78);

constexpr std::size_t kSequenceOffset = 6;
constexpr std::size_t kCrc16Size = 2;

}  // namespace

std::atomic<std::uint16_t> camera_packet_seq{0};

std::uint8_t camera_crc8(const std::uint8_t* bytes, std::size_t count, std::uint8_t seed) {
    std::uint8_t sum = seed;
    for (std::size_t i = 0; i < count; ++i) {
        sum = kCrc8Table[sum ^ bytes[i]];
    }
    return sum;
}

std::uint16_t camera_crc16(const std::uint8_t* bytes, std::size_t count, std::uint16_t seed) {
    unsigned sum = seed;
    for (std::size_t i = 0; i < count; ++i) {
        sum = kCrc16Table[(sum ^ bytes[i]) & 0xFF] ^ sum >> 8;
    }
    return static_cast<std::uint16_t>(sum);
}

void camera_packet_seal(std::uint8_t* packet, std::size_t length) {
    const std::uint16_t sequence = camera_packet_seq.load(std::memory_order_relaxed);
    camera_packet_seq.store(static_cast<std::uint16_t>(sequence + 1), std::memory_order_relaxed);

    write_le16(packet + kSequenceOffset, sequence);
    const std::size_t summed = length - kCrc16Size;
    write_le16(packet + summed, camera_crc16(packet, summed, kCameraCrc16Seed));
}
