// A second reader of sequence parameter sets, to compare the receiver's with: it works on a text of
// bits, field by field in the order of the H.264 standard, 7.3.2.1.1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

struct PictureSize {
    std::int32_t width;
    std::int32_t height;
    bool operator==(const PictureSize&) const = default;
};

// None for a set that ends early.
std::optional<PictureSize> reference_picture_size(std::span<const std::uint8_t> sps);
