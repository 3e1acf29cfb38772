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

// Row n is the effect of a byte that n more bytes follow, so that the sums of up to eight bytes are
// looked up side by side instead of each waiting for the one before.
using Crc16Tables = std::array<std::array<std::uint16_t, 256>, 8>;

consteval Crc16Tables crc16_tables() {
    Crc16Tables tables{};
    tables[0] = crc_table<std::uint16_t>(kCrc16Polynomial);
    for (std::size_t row = 1; row < tables.size(); ++row) {
        for (std::size_t byte = 0; byte < tables[row].size(); ++byte) {
            const unsigned sum = tables[row - 1][byte];
            tables[row][byte] = static_cast<std::uint16_t>(tables[0][sum & 0xFF] ^ sum >> 8);
        }
    }
    return tables;
}

constexpr Crc16Tables kCrc16Tables = crc16_tables();

static_assert(kCrc8Table[1] == 0x5E && kCrc8Table[255] == 0x35);
static_assert(kCrc16Tables[0][1] == 0x1189 && kCrc16Tables[0][255] == 0x0F78);

constexpr std::size_t kSequenceOffset = 6;
constexpr std::size_t kCrc16Size = 2;

// The sum after eight more bytes: it goes into the first two, and the others stand for themselves.
inline unsigned crc16_of_eight(unsigned sum, const std::uint8_t* b) {
    const Crc16Tables& t = kCrc16Tables;
    return static_cast<unsigned>(t[7][(sum ^ b[0]) & 0xFF] ^ t[6][sum >> 8 ^ b[1]] ^ t[5][b[2]] ^
                                 t[4][b[3]] ^ t[3][b[4]] ^ t[2][b[5]] ^ t[1][b[6]] ^ t[0][b[7]]);
}

// The same for four.
inline unsigned crc16_of_four(unsigned sum, const std::uint8_t* b) {
    const Crc16Tables& t = kCrc16Tables;
    return static_cast<unsigned>(t[3][(sum ^ b[0]) & 0xFF] ^ t[2][sum >> 8 ^ b[1]] ^ t[1][b[2]] ^
                                 t[0][b[3]]);
}

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
    for (; count >= 8; count -= 8, bytes += 8) {
        sum = crc16_of_eight(sum, bytes);
    }
    if (count >= 4) {
        sum = crc16_of_four(sum, bytes);
        count -= 4;
        bytes += 4;
    }
    for (; count > 0; --count, ++bytes) {
        sum = kCrc16Tables[0][(sum ^ *bytes) & 0xFF] ^ sum >> 8;
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
