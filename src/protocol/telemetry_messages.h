// The larger ones of the camera's messages, and what all of them share. A message is a whole packet
// (camera_packet.h) with right sums; what it tells starts at byte 11. Its length is what it is
// recognised by, so that every byte named here lies within it. USB reader thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "protocol/little_endian.h"
#include "protocol/shared_fields.h"
#include "protocol/telemetry_values.h"

struct CameraState;
using Message = std::span<const std::uint8_t>;

// 49 or 50 bytes: mode, storage, recording. May stop the shooting.
void decode_camera_status(CameraState& state, Message message);

// 85 or 104 bytes: exposure, picture and video format.
void decode_camera_settings(CameraState& state, Message message);

inline std::uint32_t read_le24(const std::uint8_t* p) {
    return read_le16(p) | static_cast<std::uint32_t>(p[2]) << 16;
}

inline std::uint8_t bit_of(std::uint8_t byte, int bit) {
    return static_cast<std::uint8_t>(byte >> bit & 1);
}

// The code first, then its text.
template <std::size_t N>
void write_code_text(SharedWord<std::uint8_t>& code_field, char (&text_field)[N], std::uint8_t code,
                     const CodeTexts& texts) {
    code_field = code;
    write_shared_text(text_field, text_of(code, texts));
}
