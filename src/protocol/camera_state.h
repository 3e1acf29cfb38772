// What is known of the camera and its gimbal: raw codes beside the texts that the report prints.
//
// Written by the packet decoder on the USB reader thread; the focus command adds focus_infinity,
// the remote control digital_zoom_level, and the telemetry thread takes back params_time_ms. Read
// by the telemetry thread and by whoever builds a command. Nobody locks: a reader may see the first
// half of a message new and the second still old, and the next message a moment later puts that
// right. A code is written before its text.
#pragma once

#include <cstdint>

#include "protocol/shared_fields.h"

// All zero at start: nothing is detected and every text is empty until a message says otherwise.
// The fields keep their order, which the binary reports follow in places.
struct CameraState {
    // Gimbal attitude, as the gimbal sends it.
    SharedWord<std::int16_t> yaw;
    SharedWord<std::int16_t> pitch;
    SharedWord<std::int16_t> roll;
    SharedWord<std::uint16_t> aux_word0;  // not interpreted, passed on
    SharedWord<std::uint16_t> aux_word1;
    SharedWord<std::int16_t> attitude_consts[4];  // the gimbal's limits, which never change

    // Camera and its mode.
    SharedWord<std::uint8_t>
        camera_detected;  // 1 from the first status message on, never taken back
    SharedWord<std::uint8_t> camera_model_code;
    char camera_model[20];
    SharedWord<std::uint8_t> camera_mode_code;  // 1 video, anything else photo
    char camera_mode[10];
    SharedWord<std::uint8_t> gimbal_unlocked;
    char gimbal_lock[12];

    // Storage.
    SharedWord<std::uint32_t> sd_free_raw;  // megabytes
    char sd[20];
    SharedWord<std::uint32_t> ssd_free_raw;  // megabytes
    char ssd[20];
    SharedWord<std::uint32_t> shots_left;
    SharedWord<std::uint32_t> rec_time_raw;  // seconds
    char rec_time[20];
    SharedWord<std::uint32_t> rec_time_left_raw;  // seconds
    char rec_time_left[20];

    // Battery, as sent.
    SharedWord<std::int16_t> voltage;
    SharedWord<std::int16_t> current;
    SharedWord<std::int8_t> battery_level;  // percent

    // Focus.
    SharedWord<std::uint8_t> focus_valid;  // 1 from the first focus message on
    SharedWord<std::uint8_t> focus_byte32;
    SharedWord<std::uint8_t> focus_auto;
    char focus_type[10];
    SharedWord<std::uint16_t> focus_range;
    SharedWord<std::uint16_t> focus_position;
    SharedWord<float> focus_percent;
    SharedWord<float> focus_point_x;
    SharedWord<float> focus_point_y;
    SharedWord<std::uint8_t> focus_byte42;
    SharedWord<std::uint8_t>
        focus_infinity;  // 1 after focus type "inf" was sent; no message tells it
    SharedWord<std::uint8_t>
        reserved_status_byte;  // nobody writes it; the status record sends it as 0

    // Recording and shooting.
    SharedWord<std::uint8_t> record_state;  // bits 7..6 phase: 1 starting, 2 recording, 3 stopping
    SharedWord<std::uint8_t> recording;     // 1 in phase 2
    char record_text[20];
    SharedWord<std::uint8_t> busy;
    char busy_text[10];
    SharedWord<std::uint8_t> status_byte42;
    SharedWord<std::uint8_t> status_flags;  // bit 3 busy, bit 4 loop
    SharedWord<std::uint8_t> record_bit5;
    SharedWord<std::uint8_t> busy_bit;
    SharedWord<std::uint8_t> loop_bit;

    // Parameter block, passed on raw.
    SharedWord<std::uint32_t> params_time_ms;  // clock_ms() of its arrival
    std::uint8_t params_block[64];
    // The block is reported from its byte 11 on, and that reaches these: nobody writes them.
    std::uint8_t params_block_tail[11];

    // Settings.
    SharedWord<std::uint8_t> photo_format_code;
    char shot_mode[10];
    SharedWord<std::uint8_t> resolution_code;
    char resolution[10];
    SharedWord<std::uint8_t> framerate_code;
    char framerate[10];
    SharedWord<std::uint8_t> image_mode_code;
    char image_mode[10];
    SharedWord<std::uint8_t> ae;  // 1: exposure lock
    SharedWord<std::uint8_t> settings_byte69;
    SharedWord<std::uint16_t> aperture_raw;  // f-number x 100
    char aperture[12];
    SharedWord<std::uint32_t> shutter_raw;  // encoded, 24 bits
    char shutter[12];
    SharedWord<std::uint32_t> shutter_set_raw;
    char shutter_set[10];
    SharedWord<std::uint16_t> iso;
    SharedWord<std::uint8_t> iso_set_code;
    char iso_set[11];
    SharedWord<float> ev_value;  // stops
    char ev[10];
    SharedWord<std::uint8_t> color_mode_code;
    char color_mode[20];
    SharedWord<std::uint8_t> wb_code;
    char wb[20];
    SharedWord<std::uint8_t> wb_temp_code;  // kelvin / 100
    SharedWord<float> wb_temp;
    SharedWord<float> wb_temp_reserved;  // nobody writes it
    SharedWord<std::uint8_t> ratio_code;
    char ratio[10];
    SharedWord<std::uint8_t> video_std_code;
    char video_std[10];
    SharedWord<std::uint8_t> antiflicker_code;
    char antiflicker[10];
    SharedWord<std::uint8_t> settings_byte100;

    SharedWord<std::int16_t> digital_zoom_level;
    SharedWord<std::uint8_t> gimbal_error;
    SharedWord<std::uint8_t> camera_flag;
};

static_assert(sizeof(float) == 4, "the camera sends IEEE single precision");

// Codes of the models that differ in what can be done to them.
inline constexpr std::uint8_t kModelX3 = 0;
inline constexpr std::uint8_t kModelX5 = 1;
inline constexpr std::uint8_t kModelX5R = 5;
inline constexpr std::uint8_t kModelZ3 = 11;

extern CameraState camera_state;
