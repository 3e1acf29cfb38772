#include "simulator/camera_stream.h"

#include <algorithm>

namespace {

constexpr std::size_t kLargestPayload = 65535;
constexpr std::size_t kLargestPacketPayload = 255 - 13;

void append(Bytes& to, std::span<const std::uint8_t> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

std::uint8_t low_byte(std::size_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}
std::uint8_t high_byte(std::size_t value) {
    return static_cast<std::uint8_t>(value >> 8 & 0xFF);
}

Bytes envelope(std::uint8_t type, std::span<const std::uint8_t> payload) {
    const auto carried = payload.first(std::min(payload.size(), kLargestPayload));
    Bytes bytes = {0x55, 0xCC, type, 0x57, low_byte(carried.size()), high_byte(carried.size()),
                   0,    0};
    append(bytes, carried);
    return bytes;
}

// Both checksums go bit by bit, the lowest first: slow, and nothing to get wrong in a table.
unsigned reflected_crc(unsigned polynomial, unsigned seed, std::span<const std::uint8_t> bytes) {
    unsigned crc = seed;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ polynomial : crc >> 1;
        }
    }
    return crc;
}

enum NalType : unsigned { kSlice = 1, kIdrSlice = 5, kSei = 6, kSps = 7, kPps = 8, kDelimiter = 9 };

// Start of the next start code from `from` on, the zero before a three-byte one included; the end
// of the stream where there is none.
std::size_t next_start_code(std::span<const std::uint8_t> h264, std::size_t from) {
    for (std::size_t at = from; at + 3 <= h264.size(); ++at) {
        if (h264[at] == 0 && h264[at + 1] == 0 && h264[at + 2] == 1) {
            return at > from && h264[at - 1] == 0 ? at - 1 : at;
        }
    }
    return h264.size();
}

// Whether a unit begins a new access unit, given that a slice of the last one went before it.
bool begins_access_unit(std::span<const std::uint8_t> unit) {
    const unsigned type = unit[0] & 0x1F;
    const bool first_slice = unit.size() > 1 && (unit[1] & 0x80) != 0;  // first_mb_in_slice is 0
    return (type >= kSei && type <= kDelimiter) ||
           ((type == kSlice || type == kIdrSlice) && first_slice);
}

}  // namespace

Bytes video_envelope(std::span<const std::uint8_t> chunk) {
    return envelope('J', chunk);
}

Bytes control_envelope(std::span<const std::uint8_t> packets) {
    return envelope('I', packets);
}

Bytes filler_chunk() {
    return {0x00, 0x00, 0x01, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0};
}

std::uint8_t header_sum(std::span<const std::uint8_t> start) {
    return low_byte(reflected_crc(0x8C, 0x77, start));
}

std::uint16_t packet_sum(std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint16_t>(reflected_crc(0x8408, 0x3692, bytes));
}

Bytes camera_packet(const CameraPacketFields& fields, std::span<const std::uint8_t> payload) {
    const auto carried = payload.first(std::min(payload.size(), kLargestPacketPayload));
    Bytes packet = {0x55, low_byte(carried.size() + 13), 0x04};
    packet.push_back(header_sum(packet));
    const std::uint8_t fixed[] = {fields.sender,
                                  fields.receiver,
                                  low_byte(fields.sequence),
                                  high_byte(fields.sequence),
                                  fields.type,
                                  fields.set,
                                  fields.id};
    append(packet, fixed);
    append(packet, carried);
    const unsigned crc = packet_sum(packet);
    packet.push_back(low_byte(crc));
    packet.push_back(high_byte(crc));
    return packet;
}

Bytes camera_packets(std::uint16_t sequence) {
    constexpr std::uint8_t kCameraStatus[24] = {};
    constexpr std::uint8_t kGimbalAttitude[6] = {0x00, 0x00, 0x0A, 0x00, 0xF6, 0xFF};
    const auto next = static_cast<std::uint16_t>(sequence + 1);
    Bytes packets = camera_packet({0x01, 0x02, sequence, 0x00, 0x02, 0x80}, kCameraStatus);
    append(packets, camera_packet({0x04, 0x02, next, 0x00, 0x04, 0x05}, kGimbalAttitude));
    return packets;
}

std::vector<Bytes> access_units(std::span<const std::uint8_t> h264) {
    std::vector<Bytes> units;
    std::size_t start = 0;
    bool slice_seen = false;
    for (std::size_t code = next_start_code(h264, 0); code < h264.size();) {
        std::size_t header = code;
        while (h264[header] == 0) {  // ends at the start code's 1
            ++header;
        }
        ++header;
        const std::size_t end = next_start_code(h264, header);
        if (header < end) {
            const auto unit = h264.subspan(header, end - header);
            if (slice_seen && begins_access_unit(unit)) {
                units.emplace_back(h264.begin() + static_cast<std::ptrdiff_t>(start),
                                   h264.begin() + static_cast<std::ptrdiff_t>(code));
                start = code;
                slice_seen = false;
            }
            const unsigned type = unit[0] & 0x1F;
            slice_seen = slice_seen || type == kSlice || type == kIdrSlice;
        }
        code = end;
    }
    if (start < h264.size()) {
        units.emplace_back(h264.begin() + static_cast<std::ptrdiff_t>(start), h264.end());
    }
    return units;
}

std::vector<Bytes> video_chunks(std::span<const std::uint8_t> h264, std::size_t largest_chunk) {
    std::vector<Bytes> chunks;
    const std::size_t largest = std::max<std::size_t>(largest_chunk, 1);
    for (const Bytes& unit : access_units(h264)) {
        for (std::span<const std::uint8_t> rest = unit; !rest.empty();) {
            const auto chunk = rest.first(std::min(rest.size(), largest));
            chunks.emplace_back(chunk.begin(), chunk.end());
            rest = rest.subspan(chunk.size());
        }
    }
    return chunks;
}

Bytes camera_stream(const std::vector<Bytes>& chunks, unsigned packets_every) {
    Bytes stream;
    std::uint16_t sequence = 0;
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        append(stream, video_envelope(chunks[i]));
        if (packets_every != 0 && (i + 1) % packets_every == 0) {
            append(stream, control_envelope(camera_packets(sequence)));
            sequence = static_cast<std::uint16_t>(sequence + 2);
        }
    }
    append(stream, video_envelope(filler_chunk()));
    return stream;
}
