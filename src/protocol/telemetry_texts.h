// Texts of the numbers that the reports show. All reentrant, and none allocates.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kNumberTextCapacity = 20;
using NumberText = char[kNumberTextCapacity];

// "01:02:05". From 100 hours on the first three characters are the hours' first three digits.
void format_hms(std::uint32_t seconds, NumberText& text);

// One decimal and a G; nothing for no gigabytes at all.
void format_gigabytes(float gigabytes, NumberText& text);

// The f-number of its hundredfold: whole ones without a decimal, the others with one.
void format_aperture(std::uint16_t raw, NumberText& text);

// The exposure time of the camera's 24 bits: 2.5" or 1/500. False for bits that mean neither; the
// text is then left alone.
bool format_shutter(std::uint32_t raw, NumberText& text);
