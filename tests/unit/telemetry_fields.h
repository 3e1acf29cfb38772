// The camera state as names and texts, for tests that compare all of it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "protocol/camera_state.h"

// Calls visit(name, field) for every field in the record's order.
template <typename State, typename Visit>
void for_each_field(State& state, const Visit& visit) {
#define FIELD(name) visit(#name, state.name)
    FIELD(yaw), FIELD(pitch), FIELD(roll), FIELD(aux_word0), FIELD(aux_word1);
    FIELD(attitude_consts);
    FIELD(camera_detected), FIELD(camera_model_code), FIELD(camera_model), FIELD(camera_mode_code);
    FIELD(camera_mode), FIELD(gimbal_unlocked), FIELD(gimbal_lock);
    FIELD(sd_free_raw), FIELD(sd), FIELD(ssd_free_raw), FIELD(ssd), FIELD(shots_left);
    FIELD(rec_time_raw), FIELD(rec_time), FIELD(rec_time_left_raw), FIELD(rec_time_left);
    FIELD(voltage), FIELD(current), FIELD(battery_level);
    FIELD(focus_valid), FIELD(focus_byte32), FIELD(focus_auto), FIELD(focus_type);
    FIELD(focus_range), FIELD(focus_position), FIELD(focus_percent), FIELD(focus_point_x);
    FIELD(focus_point_y), FIELD(focus_byte42), FIELD(focus_infinity), FIELD(reserved_status_byte);
    FIELD(record_state), FIELD(recording), FIELD(record_text), FIELD(busy), FIELD(busy_text);
    FIELD(status_byte42), FIELD(status_flags), FIELD(record_bit5), FIELD(busy_bit), FIELD(loop_bit);
    FIELD(params_time_ms), FIELD(params_block), FIELD(params_block_tail);
    FIELD(photo_format_code), FIELD(shot_mode), FIELD(resolution_code), FIELD(resolution);
    FIELD(framerate_code), FIELD(framerate), FIELD(image_mode_code), FIELD(image_mode), FIELD(ae);
    FIELD(settings_byte69), FIELD(aperture_raw), FIELD(aperture), FIELD(shutter_raw);
    FIELD(shutter), FIELD(shutter_set_raw), FIELD(shutter_set), FIELD(iso), FIELD(iso_set_code);
    FIELD(iso_set), FIELD(ev_value), FIELD(ev), FIELD(color_mode_code), FIELD(color_mode);
    FIELD(wb_code), FIELD(wb), FIELD(wb_temp_code), FIELD(wb_temp), FIELD(wb_temp_reserved);
    FIELD(ratio_code), FIELD(ratio), FIELD(video_std_code), FIELD(video_std);
    FIELD(antiflicker_code), FIELD(antiflicker), FIELD(settings_byte100);
    FIELD(digital_zoom_level), FIELD(gimbal_error), FIELD(camera_flag);
#undef FIELD
}

template <typename T>
std::string text_of_field(const SharedWord<T>& word) {
    return std::to_string(word.load());
}

inline std::string text_of_field(const SharedWord<float>& word) {
    char text[32];
    snprintf(text, sizeof text, "%.9g", double{word.load()});
    return text;
}

template <std::size_t N>
std::string text_of_field(const SharedWord<std::int16_t> (&words)[N]) {
    std::string text;
    for (const auto& word : words) {
        text += (text.empty() ? "" : " ") + text_of_field(word);
    }
    return text;
}

template <std::size_t N>
std::string text_of_field(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

template <std::size_t N>
std::string text_of_field(const std::uint8_t (&block)[N]) {
    std::string text;
    for (const std::uint8_t byte : block) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

using FieldTexts = std::map<std::string, std::string>;

inline FieldTexts field_texts(const CameraState& state) {
    FieldTexts texts;
    for_each_field(state, [&texts](const char* name, const auto& field) {
        texts[name] = text_of_field(field);
    });
    return texts;
}
