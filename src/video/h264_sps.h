// Picture size from an H.264 sequence parameter set (H.264, 7.3.2.1.1).
#pragma once

#include <cstddef>
#include <cstdint>

// Takes the SPS behind its NAL header, emulation-prevention bytes still in place. Width and height
// in pixels; an SPS that ends early is an assertion failure. The crop offsets are paired the
// camera's way: the vertical ones come off the width and the horizontal ones off the height, two
// pixels each, and the caller knows the sizes that result. USB reader thread.
void h264_sps_get_size(const std::uint8_t* data, std::size_t length, std::int32_t* width,
                       std::int32_t* height);
