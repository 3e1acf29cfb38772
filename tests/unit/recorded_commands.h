// Every command operation, replaced by one that prints its call as a line of standard error, among
// the lines of the code under test.
//
// Included by one source file of a test.
#pragma once

#include <stdio.h>

#include <functional>
#include <string>

#include "control/capture_commands.h"
#include "control/device_commands.h"
#include "control/exposure_commands.h"
#include "control/focus_commands.h"
#include "control/gimbal_commands.h"
#include "control/image_commands.h"
#include "control/setting_steps.h"

// What happens elsewhere while a call is under way.
inline std::function<void(const std::string& call)> during_call;

inline std::string as_text(int number) {
    return std::to_string(number);
}

inline std::string as_text(double number) {
    char text[32];
    snprintf(text, sizeof(text), "%.9g", number);
    return text;
}

inline std::string as_text(const char* text) {
    return text;
}

template <typename... Arguments>
int record_call(const char* name, Arguments... arguments) {
    std::string list;
    ((list += (list.empty() ? "" : ",") + as_text(arguments)), ...);
    const std::string call = std::string(name) + "(" + list + ")";
    fprintf(stderr, "%s\n", call.c_str());
    if (during_call) {
        during_call(call);
    }
    return 0;
}

// clang-format off
int camera_record(int start) { return record_call("camera_record", start); }
int camera_shot() { return record_call("camera_shot"); }
int camera_stop_shooting() { return record_call("camera_stop_shooting"); }
int camera_set_mode(const char* mode) { return record_call("camera_set_mode", mode); }

int camera_reset() { return record_call("camera_reset"); }
int camera_set_histogram(const char* state) { return record_call("camera_set_histogram", state); }
int camera_power(const char* state) { return record_call("camera_power", state); }
int camera_format(const char* medium) { return record_call("camera_format", medium); }
int camera_set_wifi_mode(const char* band) { return record_call("camera_set_wifi_mode", band); }

int camera_set_ae_lock(const char* state) { return record_call("camera_set_ae_lock", state); }
int camera_set_exposure_point(int point) { return record_call("camera_set_exposure_point", point); }
int camera_set_exposure_center() { return record_call("camera_set_exposure_center"); }
int camera_set_image_mode(const char* mode) { return record_call("camera_set_image_mode", mode); }
int camera_set_shutter(const char* shutter) { return record_call("camera_set_shutter", shutter); }
int camera_set_aperture(const char* text) { return record_call("camera_set_aperture", text); }
int camera_set_iso(const char* iso) { return record_call("camera_set_iso", iso); }
int camera_set_ev(const char* ev) { return record_call("camera_set_ev", ev); }

int camera_set_focus_type(const char* type) { return record_call("camera_set_focus_type", type); }
int camera_set_focus_point(float x, float y) {
    return record_call("camera_set_focus_point", double{x}, double{y});
}
int camera_set_manual_focus(int percent) { return record_call("camera_set_manual_focus", percent); }
int camera_set_focus_assistant(const char* assistant, int on) {
    return record_call("camera_set_focus_assistant", assistant, on);
}
int camera_set_realtime_af(int on) { return record_call("camera_set_realtime_af", on); }
int camera_set_digital_zoom(int level) { return record_call("camera_set_digital_zoom", level); }
int camera_set_optical_zoom(int way) { return record_call("camera_set_optical_zoom", way); }

int gimbal_set_speed(double s1, double s2, double s3) {
    return record_call("gimbal_set_speed", s1, s2, s3);
}
int gimbal_set_abs_position(double pan, double tilt, double dutch) {
    return record_call("gimbal_set_abs_position", pan, tilt, dutch);
}
int gimbal_set_abs_position_raw(int pan, int tilt, int dutch) {
    return record_call("gimbal_set_abs_position_raw", pan, tilt, dutch);
}
int gimbal_set_position(const char* place) { return record_call("gimbal_set_position", place); }
int gimbal_orientation_lock(const char* state) {
    return record_call("gimbal_orientation_lock", state);
}
int gimbal_pitch_lock(const char* state) { return record_call("gimbal_pitch_lock", state); }
int gimbal_horizon(const char* step) { return record_call("gimbal_horizon", step); }
int camera_set_zoom_adjusted_smoothtrack(int on) {
    return record_call("camera_set_zoom_adjusted_smoothtrack", on);
}

int camera_set_wb(const char* mode, const char* temperature) {
    return record_call("camera_set_wb", mode, temperature);
}
int camera_set_color(const char* color) { return record_call("camera_set_color", color); }
int camera_set_video_resolution(int width, int height, int fps) {
    return record_call("camera_set_video_resolution", width, height, fps);
}
int camera_set_aspect_ratio(const char* ratio) { return record_call("camera_set_aspect_ratio", ratio); }
int camera_set_shot_mode(const char* mode) { return record_call("camera_set_shot_mode", mode); }
int camera_set_antiflicker(const char* text) { return record_call("camera_set_antiflicker", text); }
int camera_set_video_standard(const char* text) { return record_call("camera_set_video_standard", text); }

int camera_next_image_mode() { return record_call("camera_next_image_mode"); }
int camera_prev_image_mode() { return record_call("camera_prev_image_mode"); }
int camera_next_shutter() { return record_call("camera_next_shutter"); }
int camera_prev_shutter() { return record_call("camera_prev_shutter"); }
int camera_next_aperture() { return record_call("camera_next_aperture"); }
int camera_prev_aperture() { return record_call("camera_prev_aperture"); }
int camera_next_iso() { return record_call("camera_next_iso"); }
int camera_prev_iso() { return record_call("camera_prev_iso"); }
int camera_next_ev() { return record_call("camera_next_ev"); }
int camera_prev_ev() { return record_call("camera_prev_ev"); }
int camera_next_wb() { return record_call("camera_next_wb"); }
int camera_prev_wb() { return record_call("camera_prev_wb"); }
int camera_next_color() { return record_call("camera_next_color"); }
int camera_prev_color() { return record_call("camera_prev_color"); }
// clang-format on
