// Small pieces of an H.264 byte stream, as an encoder makes them: what is behind a slice's first
// bytes does not matter to who only cuts the stream.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

using StreamBytes = std::vector<std::uint8_t>;

inline StreamBytes joined(std::initializer_list<StreamBytes> pieces) {
    StreamBytes all;
    for (const StreamBytes& piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

inline StreamBytes nal(std::uint8_t header, std::uint8_t first, std::size_t more) {
    StreamBytes bytes = {0, 0, 0, 1, header, first};
    bytes.resize(bytes.size() + more, 0xAB);
    return bytes;
}

// Parameter sets of the high profile, level 4.0, and an IDR picture in two slices.
inline StreamBytes key_picture(std::size_t size = 100) {
    return joined({{0, 0, 0, 1, 0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9},
                   {0, 0, 0, 1, 0x68, 0xEB, 0xE3},
                   nal(0x65, 0x88, size / 2),
                   nal(0x65, 0x08, size / 2)});
}

inline StreamBytes picture(std::size_t size = 60) {
    return joined({nal(0x41, 0x9A, size / 2), nal(0x41, 0x1A, size / 2)});
}
