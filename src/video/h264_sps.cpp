#include "video/h264_sps.h"

#include <algorithm>
#include <iterator>

#include "video/include/h264parse.h"

namespace {

H264BitReader reader;

// The profiles whose parameter sets carry the chroma and scaling fields. The standard has since
// added more; the camera uses none of them, and a set of theirs is read as one without the fields.
constexpr std::uint32_t kHighProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118};

constexpr int kScalingLists = 8;  // all eight, also where the chroma format has twelve
constexpr int kSmallScalingLists = 6;

// se(v) modulo 2^32: codes 1, 2, 3, 4 stand for 1, -1, 2, -2.
std::uint32_t signed_value(std::uint32_t code) {
    const std::uint32_t half = code / 2;
    return (code & 1U) != 0 ? half + 1 : 0U - half;
}

void skip_scaling_list(int size) {
    std::uint32_t last_scale = 8;
    std::uint32_t next_scale = 8;
    for (int i = 0; i < size && next_scale != 0; ++i) {
        const std::uint32_t delta = signed_value(reader.ReadExpGolomb());
        next_scale = (last_scale + delta) % 256;
        if (next_scale != 0) {
            last_scale = next_scale;
        }
    }
}

void skip_high_profile_fields() {
    const std::uint32_t chroma_format_idc = reader.ReadExpGolomb();
    if (chroma_format_idc == 3) {
        reader.ReadBit();  // separate_colour_plane_flag
    }
    reader.ReadExpGolomb();       // bit_depth_luma_minus8
    reader.ReadExpGolomb();       // bit_depth_chroma_minus8
    reader.ReadBit();             // qpprime_y_zero_transform_bypass_flag
    if (reader.ReadBit() == 0) {  // seq_scaling_matrix_present_flag
        return;
    }
    for (int list = 0; list < kScalingLists; ++list) {
        if (reader.ReadBit() != 0) {
            skip_scaling_list(list < kSmallScalingLists ? 16 : 64);
        }
    }
}

void skip_picture_order_count() {
    const std::uint32_t pic_order_cnt_type = reader.ReadExpGolomb();
    if (pic_order_cnt_type == 0) {
        reader.ReadExpGolomb();  // log2_max_pic_order_cnt_lsb_minus4
    } else if (pic_order_cnt_type == 1) {
        reader.ReadBit();        // delta_pic_order_always_zero_flag
        reader.ReadExpGolomb();  // offset_for_non_ref_pic
        reader.ReadExpGolomb();  // offset_for_top_to_bottom_field
        // As a signed number, of which a negative one means none. A count beyond what the data
        // can hold ends in the reader's assertion.
        const auto cycle = static_cast<std::int32_t>(reader.ReadExpGolomb());
        for (std::int32_t i = 0; i < cycle; ++i) {
            reader.ReadExpGolomb();  // offset_for_ref_frame
        }
    }
}

struct Cropping {
    std::uint32_t left, right, top, bottom;
};

Cropping read_cropping() {
    Cropping crop{};
    if (reader.ReadBit() != 0) {  // frame_cropping_flag
        crop.left = reader.ReadExpGolomb();
        crop.right = reader.ReadExpGolomb();
        crop.top = reader.ReadExpGolomb();
        crop.bottom = reader.ReadExpGolomb();
    }
    return crop;
}

}  // namespace

void h264_sps_get_size(const std::uint8_t* data, std::size_t length, std::int32_t* width,
                       std::int32_t* height) {
    reader.m_nLength = static_cast<std::int32_t>(
        std::min(length, static_cast<std::size_t>(H264BitReader::kLongest)));
    reader.m_nCurrentBit = 0;
    reader.m_pData = data;

    const std::uint32_t profile_idc = reader.ReadBits(8);
    reader.ReadBits(16);     // constraint flags, level_idc
    reader.ReadExpGolomb();  // seq_parameter_set_id
    if (std::ranges::find(kHighProfiles, profile_idc) != std::ranges::end(kHighProfiles)) {
        skip_high_profile_fields();
    }
    reader.ReadExpGolomb();  // log2_max_frame_num_minus4
    skip_picture_order_count();
    reader.ReadExpGolomb();  // max_num_ref_frames
    reader.ReadBit();        // gaps_in_frame_num_value_allowed_flag

    // Unsigned, since a damaged set may hold any number: what overflows wraps.
    const std::uint32_t columns = reader.ReadExpGolomb() + 1;  // pic_width_in_mbs_minus1
    const std::uint32_t rows = reader.ReadExpGolomb() + 1;     // pic_height_in_map_units_minus1
    const std::uint32_t frame_mbs_only = reader.ReadBit();
    if (frame_mbs_only == 0) {
        reader.ReadBit();  // mb_adaptive_frame_field_flag
    }
    reader.ReadBit();  // direct_8x8_inference_flag
    const Cropping crop = read_cropping();
    reader.ReadBit();  // vui_parameters_present_flag: read, so the data must reach as far

    // Kept: the pairing of offsets and sides is what the published sizes are made from.
    *width = static_cast<std::int32_t>((columns * 8 - crop.bottom - crop.top) * 2);
    *height =
        static_cast<std::int32_t>((rows * (2 - frame_mbs_only) * 8 - crop.right - crop.left) * 2);
}
