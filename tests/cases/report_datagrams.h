// One camera state and the three reports that tell of it, byte for byte.
//
// No two items have the same value, so that one in another's place is seen.
#pragma once

#include <cstddef>
#include <cstdint>

#include "app/focus_config.h"
#include "protocol/camera_state.h"

inline void fill_reported_state(CameraState& state, FocusLimits& limits) {
    // The items of the text, in its order.
    state.camera_detected = 1;
    write_shared_text(state.camera_model, "DJI Osmo RAW (X5R)");
    write_shared_text(state.camera_mode, "video");
    write_shared_text(state.sd, "29.3G");
    write_shared_text(state.ssd, "440.2G");
    state.shots_left = 3120;
    write_shared_text(state.rec_time_left, "01:12:05");
    write_shared_text(state.rec_time, "00:00:12");
    state.voltage = 11400;
    state.current = -820;
    state.battery_level = 87;
    write_shared_text(state.shot_mode, "JPG+RAW");
    write_shared_text(state.resolution, "2704X1520");
    write_shared_text(state.framerate, "25");
    state.ae = 2;
    write_shared_text(state.aperture, "2.8");
    write_shared_text(state.shutter, "1/12.5");
    write_shared_text(state.shutter_set, "2.5\"");
    state.iso = 640;
    write_shared_text(state.iso_set, "auto");
    write_shared_text(state.ev, "+0.7");
    write_shared_text(state.image_mode, "manual");
    write_shared_text(state.color_mode, "black white");
    write_shared_text(state.wb, "custom");
    state.wb_temp = 5600.0F;
    write_shared_text(state.ratio, "16:9");
    write_shared_text(state.video_std, "PAL");
    write_shared_text(state.antiflicker, "50 Hz");
    limits.mf_min = 10;
    limits.mf_max = 90;

    // The fields of the status record, in its order.
    state.gimbal_unlocked = 0x01;
    state.yaw = -1234;
    state.pitch = 4951;
    state.roll = -32768;
    state.record_state = 0xA8;
    state.status_byte42 = 0x42;
    state.status_flags = 0x18;
    state.focus_valid = 0x71;
    state.focus_auto = 0x72;
    state.focus_range = 1025;
    state.focus_position = 770;
    state.focus_point_x = 0.25F;
    state.focus_point_y = 0.75F;
    state.focus_byte32 = 0x32;
    state.focus_byte42 = 0x24;
    state.settings_byte69 = 0x69;
    state.gimbal_error = 0x81;
    state.camera_flag = 0x82;
    state.settings_byte100 = 0x64;
    state.attitude_consts[0] = 320;
    state.attitude_consts[1] = -320;
    state.attitude_consts[2] = 30;
    state.attitude_consts[3] = -124;

    for (std::size_t i = 0; i < sizeof(state.params_block); ++i) {
        state.params_block[i] = static_cast<std::uint8_t>(i + 1);
    }
}

// clang-format off
inline constexpr char kReportedText[] =
    "\x07"
    "camera_detected=1,"
    "camera_model=DJI Osmo RAW (X5R),"
    "camera_mode=video,"
    "sd=29.3G,"
    "ssd=440.2G,"
    "shots_left=3120,"
    "rec_time_left=01:12:05,"
    "rec_time=00:00:12,"
    "voltage=11400,"
    "current=-820,"
    "battery_level=87,"
    "shot_mode=JPG+RAW,"
    "resolution=2704X1520,"
    "framerate=25,"
    "format=2704X1520@25,"
    "ae=2,"
    "aperture=2.8,"
    "shutter=1/12.5,"
    "shutter_set=2.5\","
    "iso=640,"
    "iso_set=auto,"
    "ev=+0.7,"
    "image_mode=manual,"
    "color_mode=black white,"
    "wb=custom,"
    "wb_temp=5600,"
    "ratio=16:9,"
    "video_std=PAL,"
    "antiflicker=50 Hz,"
    "mf_min=10,"
    "mf_max=90,";

inline constexpr std::uint8_t kReportedStatus[] = {
    0x06, 0x00,   // status record
    0x01,         // gimbal_unlocked
    0x2E, 0xFB,   // yaw -1234
    0x57, 0x13,   // pitch 4951
    0x00, 0x80,   // roll -32768
    0xA8,         // record_state
    0x42,         // status_byte42
    0x18,         // status_flags
    0x71,         // focus_valid
    0x72,         // focus_auto
    0x00,         // reserved
    0x01, 0x04,   // focus_range 1025
    0x02, 0x03,   // focus_position 770
    0xFA, 0x00,   // focus_point_x 0.25
    0xEE, 0x02,   // focus_point_y 0.75
    0x32,         // focus_byte32
    0x24,         // focus_byte42
    0x69,         // settings_byte69
    0x81,         // gimbal_error
    0x82,         // camera_flag
    0x64,         // settings_byte100
    0xC0, 0xFE,   // gimbal limits: the second, -320
    0x40, 0x01,   // the first, 320
    0x84, 0xFF,   // the fourth, -124
    0x1E, 0x00,   // the third, 30
};

inline constexpr std::uint8_t kReportedParameters[] = {
    0x06, 0x01,   // parameter block; it begins with byte 11, counted from 0, of the camera's
    12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35,
    36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59,
    60, 61, 62, 63, 64,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
};
// clang-format on
