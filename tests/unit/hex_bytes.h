// Bytes as tests write them: two hexadecimal digits each, blanks between them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <sstream>
#include <string>
#include <vector>

inline std::vector<std::uint8_t> bytes_of_hex(const std::string& text) {
    std::istringstream digits(text);
    std::vector<std::uint8_t> bytes;
    for (unsigned byte = 0; digits >> std::hex >> byte;) {
        bytes.push_back(static_cast<std::uint8_t>(byte));
    }
    return bytes;
}

inline std::string hex_of_bytes(std::span<const std::uint8_t> bytes) {
    std::string text;
    char digits[4];
    for (const std::uint8_t byte : bytes) {
        snprintf(digits, sizeof digits, text.empty() ? "%02X" : " %02X", byte);
        text += digits;
    }
    return text;
}
