// Multi-byte numbers in little-endian byte order, at any alignment. Reentrant.
#pragma once

#include <cstdint>

inline std::uint16_t read_le16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}

inline std::uint32_t read_le32(const std::uint8_t* p) {
    return read_le16(p) | static_cast<std::uint32_t>(read_le16(p + 2)) << 16;
}

inline void write_le16(std::uint8_t* p, std::uint16_t value) {
    p[0] = static_cast<std::uint8_t>(value);
    p[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void write_le32(std::uint8_t* p, std::uint32_t value) {
    write_le16(p, static_cast<std::uint16_t>(value));
    write_le16(p + 2, static_cast<std::uint16_t>(value >> 16));
}
