// The values of each setting in the order in which they are stepped through.
// Reentrant.
#pragma once

#include <string.h>

#include <cstddef>
#include <span>

using TextList = std::span<const char* const>;

// The list's size where the text is not in it.
inline std::size_t index_of(TextList list, const char* text) {
    std::size_t i = 0;
    while (i < list.size() && strcmp(text, list[i]) != 0) {
        ++i;
    }
    return i;
}

// clang-format off
// By camera: X3 and Z3 have no exposure program for the aperture.
inline constexpr const char* kImageModesX3[] = {"auto", "shutter", "manual"};
inline constexpr const char* kImageModesX5[] = {"auto", "shutter", "aperture", "manual"};

// All that can be set; the first six are beyond what is stepped through.
inline constexpr const char* kShutterTimes[] = {
    "30\"",   "25\"",   "20\"",   "15\"",   "10\"",   "9\"",
    "8\"",    "7\"",    "6\"",    "5\"",    "4\"",    "3.2\"",  "3\"",    "2.5\"",  "2\"",
    "1.6\"",  "1.3\"",  "1\"",    "1/1.25", "1/1.67", "1/2",    "1/2.5",  "1/3",    "1/4",
    "1/5",    "1/6.25", "1/8",    "1/10",   "1/12.5", "1/15",   "1/20",   "1/25",   "1/30",
    "1/40",   "1/50",   "1/60",   "1/80",   "1/100",  "1/120",  "1/160",  "1/200",  "1/240",
    "1/320",  "1/400",  "1/500",  "1/640",  "1/800",  "1/1000", "1/1250", "1/1600", "1/2000",
    "1/2500", "1/3200", "1/4000", "1/5000", "1/6400", "1/8000",
};
inline constexpr auto kShutterSteps = std::span(kShutterTimes).subspan<6>();
static_assert(kShutterSteps.size() == 51);

inline constexpr const char* kApertureSteps[] = {
    "1.7", "1.8", "2",   "2.2", "2.5", "2.8", "3.2", "3.5", "4",  "4.5", "5",
    "5.6", "6.3", "7.1", "8",   "9",   "10",  "11",  "13",  "14", "16",
};

inline constexpr const char* kIsoSteps[] = {
    "0", "100", "200", "400", "800", "1600", "3200", "6400",
};

inline constexpr const char* kEvSteps[] = {
    "-3.0", "-2.7", "-2.3", "-2.0", "-1.7", "-1.3", "-1.0", "-0.7", "-0.3", "0",
    "+0.3", "+0.7", "+1.0", "+1.3", "+1.7", "+2.0", "+2.3", "+2.7", "+3.0",
};

inline constexpr const char* kWbSteps[] = {
    "auto", "sunny", "cloudy", "incandescent", "neon", "custom",
};

inline constexpr const char* kColorSteps[] = {
    "none",  "d-log", "d-cinelike", "art",       "black white", "vivid",
    "beach", "dream", "classic",    "nostalgia", "portrait",
};
// clang-format on
