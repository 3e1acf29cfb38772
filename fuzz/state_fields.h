// The camera state's fields as bytes, and which message may write which: what the decoder's fuzzer
// compares with. Written apart from the decoder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "protocol/camera_state.h"

struct StateField {
    std::size_t offset, size;
};

#define FIELD(name)                                            \
    StateField {                                               \
        offsetof(CameraState, name), sizeof(CameraState::name) \
    }

struct FieldOfMessage {
    int length;  // of the packet
    StateField field;
    // Where the field stands in the packet, and in how many bytes, when it is copied as it is;
    // 0: it is not.
    std::size_t at = 0;
    std::size_t copied = 0;
};

// clang-format off
inline const std::vector<FieldOfMessage> kFieldsOfMessages = {
    {15, FIELD(camera_flag)},
    {18, FIELD(gimbal_error)},
    {19, FIELD(aux_word0), 11, 2}, {19, FIELD(aux_word1), 13, 2},
    {22, FIELD(ssd_free_raw), 14, 3}, {22, FIELD(ssd)},

    {25, FIELD(pitch), 11, 2}, {25, FIELD(roll), 13, 2}, {25, FIELD(yaw), 15, 2},
    {25, FIELD(attitude_consts)}, {25, FIELD(gimbal_unlocked)}, {25, FIELD(gimbal_lock)},

    {50, FIELD(record_state), 11, 1}, {50, FIELD(recording)}, {50, FIELD(record_text)},
    {50, FIELD(sd_free_raw), 20, 4}, {50, FIELD(sd)}, {50, FIELD(shots_left), 24, 4},
    {50, FIELD(rec_time_left_raw), 28, 4}, {50, FIELD(rec_time_left)},
    {50, FIELD(rec_time_raw), 40, 2}, {50, FIELD(rec_time)},
    {50, FIELD(camera_model_code), 44, 1}, {50, FIELD(camera_model)}, {50, FIELD(camera_detected)},
    {50, FIELD(camera_mode_code), 15, 1}, {50, FIELD(camera_mode)},
    {50, FIELD(status_byte42), 42, 1}, {50, FIELD(status_flags), 13, 1}, {50, FIELD(busy_bit)},
    {50, FIELD(record_bit5)}, {50, FIELD(loop_bit)}, {50, FIELD(busy_text)}, {50, FIELD(busy)},

    {52, FIELD(voltage), 12, 2}, {52, FIELD(current), 25, 2}, {52, FIELD(battery_level), 11, 1},

    {53, FIELD(focus_byte32), 32, 1}, {53, FIELD(focus_auto)}, {53, FIELD(focus_type)},
    {53, FIELD(focus_range), 12, 2}, {53, FIELD(focus_position), 14, 2}, {53, FIELD(focus_percent)},
    {53, FIELD(focus_point_x), 24, 4}, {53, FIELD(focus_point_y), 28, 4},
    {53, FIELD(focus_byte42), 42, 1}, {53, FIELD(focus_valid)},

    {77, FIELD(params_block), 11, 64}, {77, FIELD(params_time_ms)},

    {85, FIELD(photo_format_code), 23, 1}, {85, FIELD(shot_mode)}, {85, FIELD(ae)},
    {85, FIELD(settings_byte69), 69, 1}, {85, FIELD(aperture_raw), 49, 2}, {85, FIELD(aperture)},
    {85, FIELD(iso), 54, 2}, {85, FIELD(iso_set_code), 16, 1}, {85, FIELD(iso_set)},
    {85, FIELD(resolution_code), 24, 1}, {85, FIELD(resolution)},
    {85, FIELD(framerate_code), 25, 1}, {85, FIELD(framerate)},
    {85, FIELD(wb_code), 34, 1}, {85, FIELD(wb)}, {85, FIELD(wb_temp_code), 35, 1},
    {85, FIELD(wb_temp)}, {85, FIELD(ev_value)}, {85, FIELD(ev)},
    {85, FIELD(color_mode_code), 42, 1}, {85, FIELD(color_mode)},
    {85, FIELD(image_mode_code), 31, 1}, {85, FIELD(image_mode)},
    {85, FIELD(ratio_code), 21, 1}, {85, FIELD(ratio)},
    {85, FIELD(video_std_code)}, {85, FIELD(video_std)},
    {85, FIELD(antiflicker_code), 43, 1}, {85, FIELD(antiflicker)},
    {85, FIELD(shutter_set_raw), 13, 3}, {85, FIELD(shutter_set)},
    {85, FIELD(shutter_raw), 51, 3}, {85, FIELD(shutter)},
    {104, FIELD(settings_byte100), 100, 1},
};

inline const std::vector<StateField> kTexts = {
    FIELD(camera_model), FIELD(camera_mode), FIELD(gimbal_lock), FIELD(sd), FIELD(ssd),
    FIELD(rec_time), FIELD(rec_time_left), FIELD(focus_type), FIELD(record_text), FIELD(busy_text),
    FIELD(shot_mode), FIELD(resolution), FIELD(framerate), FIELD(image_mode), FIELD(aperture),
    FIELD(shutter), FIELD(shutter_set), FIELD(iso_set), FIELD(ev), FIELD(color_mode), FIELD(wb),
    FIELD(ratio), FIELD(video_std), FIELD(antiflicker),
};
// clang-format on

// Whether a packet of that length writes the row's field: the two lengths of a message are one.
inline bool writes(int length, const FieldOfMessage& row) {
    return length == row.length || (length == 49 && row.length == 50) ||
           (length == 59 && row.length == 53) || (length == 104 && row.length == 85);
}
