// A stored H.264 access unit that goes ahead of the first live video.
#pragma once

#include <array>
#include <cstdint>

// Annex B byte stream: SPS, PPS and an IDR picture in five slices.
extern const std::array<std::uint8_t, 478> kPrimingFrame;
