// Conversions of numbers that come from outside, the same on every processor. Reentrant.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

// Truncated towards zero; what is beyond the word's range becomes its nearest end, and what is no
// number becomes 0. The language leaves all of these undefined, and processors differ in them.
template <typename Word>
constexpr Word saturate(double value) {
    // Both ends of a 32-bit word are whole numbers that a double holds.
    constexpr auto kLeast = static_cast<double>(std::numeric_limits<Word>::min());
    constexpr auto kMost = static_cast<double>(std::numeric_limits<Word>::max());
    if (!(value > kLeast)) {
        return value <= kLeast ? std::numeric_limits<Word>::min() : Word{0};
    }
    return value < kMost ? static_cast<Word>(value) : std::numeric_limits<Word>::max();
}

constexpr std::int32_t saturate_to_int32(double value) {
    return saturate<std::int32_t>(value);
}

constexpr std::uint32_t saturate_to_uint32(double value) {
    return saturate<std::uint32_t>(value);
}

// Rounded to single precision; what is beyond its range becomes infinite, as processors have it.
inline float to_single(double value) {
    constexpr double kMost = std::numeric_limits<float>::max();
    constexpr double kRoundsToInfinity = 0x1.ffffffp+127;  // half a step beyond kMost
    if (std::abs(value) >= kRoundsToInfinity) {
        return std::copysign(std::numeric_limits<float>::infinity(), value > 0 ? 1.0F : -1.0F);
    }
    return static_cast<float>(std::clamp(value, -kMost, kMost));
}

// A decimal number at the start of a text. A text that is no number is 0; a number too long for the
// word keeps its low 32 bits, whatever the width of the processor's long.
inline std::int32_t parse_int32(const char* text) {
    return static_cast<std::int32_t>(strtoll(text, nullptr, 10));
}
