// A message of zeros but for a few bytes, decoded as the scanner hands it on: without its sums.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <utility>
#include <vector>

#include "protocol/telemetry_decode.h"

using ByteAt = std::pair<std::size_t, unsigned>;

inline void decode_bytes(CameraState& state, std::size_t length,
                         std::initializer_list<ByteAt> bytes) {
    std::vector<std::uint8_t> packet(length, 0);
    for (const auto& [at, byte] : bytes) {
        packet[at] = static_cast<std::uint8_t>(byte);
    }
    telemetry_decode_verified(&state, packet.data(), packet.size());
}
