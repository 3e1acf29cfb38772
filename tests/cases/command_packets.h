// What each command operation logs and sends. One table for whoever needs a camera packet of each
// kind: the commands' own test, the simulated camera's, the fuzzers.
//
// Packets are in hexadecimal, a line each. The sequence number of a case's first packet is 0.
#pragma once

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "control/capture_commands.h"
#include "control/device_commands.h"
#include "control/exposure_commands.h"
#include "control/focus_commands.h"
#include "control/gimbal_commands.h"
#include "control/image_commands.h"
#include "control/setting_steps.h"
#include "protocol/camera_state.h"
#include "tests/cases/word_packets.h"

struct CommandCase {
    std::string name;
    std::function<int()> run;
    std::string log;
    std::string packets;  // none: an unknown word, for which the result is not 0
};

// Operations of numbers, and those that look at the camera state.
struct PlainCase {
    const char* name;
    int (*run)();
    const char* log;
    const char* packets;
};

inline int assist(std::uint8_t reported, const char* assistant, int on) {
    camera_state.focus_byte42 = reported;
    return camera_set_focus_assistant(assistant, on);
}

template <std::size_t N>
int step_from(char (&field)[N], const char* reported, int (*step)()) {
    write_shared_text(field, reported);
    return step();
}

inline int image_mode_step(std::uint8_t camera_model, const char* reported, int (*step)()) {
    camera_state.camera_model_code = camera_model;
    return step_from(camera_state.image_mode, reported, step);
}

// clang-format off
inline constexpr PlainCase kPlainCases[] = {
    {"speed", [] { return gimbal_set_speed(0.5, -0.25, 1.0); }, "",
     "55 14 04 6D 02 04 00 00 40 04 0C F4 01 E8 03 06 FF 90 A8 E1\n"},
    {"speed is cut, not rounded", [] { return gimbal_set_speed(0.0019, -0.0019, -0.9999); }, "",
     "55 14 04 6D 02 04 00 00 40 04 0C 01 00 19 FC FF FF 90 6B C3\n"},
    {"speed beyond a word", [] { return gimbal_set_speed(1e300, -1e300, std::nan("")); }, "",
     "55 14 04 6D 02 04 00 00 40 04 0C FF FF 00 00 00 00 90 39 13\n"},
    {"speed keeps its low half", [] { return gimbal_set_speed(70.0, -70.0, 65.536); }, "",
     "55 14 04 6D 02 04 00 00 40 04 0C 70 11 00 00 90 EE 90 91 CD\n"},
    {"position, tilt above 0", [] { return gimbal_set_abs_position(1.0, 1.0, 1.0); },
     "abs position pan 1800 tilt -1250 dutch 450\n",
     "55 17 04 38 02 04 00 00 40 04 0A 08 07 C2 01 1E FB 64 00 E0 04 DA 21\n"},
    {"position, tilt below 0", [] { return gimbal_set_abs_position(-1.0, -1.0, -1.0); },
     "abs position pan -1800 tilt 400 dutch -450\n",
     "55 17 04 38 02 04 00 00 40 04 0A F8 F8 3E FE 90 01 64 00 E0 04 D3 09\n"},
    {"position at rest", [] { return gimbal_set_abs_position(0.0, 0.0, 0.0); },
     "abs position pan 0 tilt 0 dutch 0\n",
     "55 17 04 38 02 04 00 00 40 04 0A 00 00 00 00 00 00 64 00 E0 04 E0 38\n"},
    {"position is cut, not rounded", [] { return gimbal_set_abs_position(0.0011, -0.0049, -0.0044); },
     "abs position pan 1 tilt 1 dutch -1\n",
     "55 17 04 38 02 04 00 00 40 04 0A 01 00 FF FF 01 00 64 00 E0 04 60 6C\n"},
    {"position beyond a word", [] { return gimbal_set_abs_position(1e300, 1e300, std::nan("")); },
     "abs position pan 2147483647 tilt -2147483648 dutch 0\n",
     "55 17 04 38 02 04 00 00 40 04 0A FF FF 00 00 00 00 64 00 E0 04 67 A4\n"},
    {"raw position", [] { return gimbal_set_abs_position_raw(0x1234, -2, 0x12345678); },
     "abs position pan 4660 tilt -2 dutch 305419896\n",
     "55 17 04 38 02 04 00 00 40 04 0A 34 12 78 56 FE FF 64 00 E0 04 69 11\n"},
    {"record start", [] { return camera_record(1); }, "Record start\n",
     "55 0E 04 66 02 01 00 00 40 02 02 01 08 44\n"},
    {"record start, any number", [] { return camera_record(-7); }, "Record start\n",
     "55 0E 04 66 02 01 00 00 40 02 02 01 08 44\n"},
    {"record stop", [] { return camera_record(0); }, "Record stop\n",
     "55 0E 04 66 02 01 00 00 40 02 02 00 81 55\n"},
    {"shot", [] { return camera_shot(); }, "Camera shot\n",
     "55 0E 04 66 02 01 00 00 40 02 01 01 60 6E\n"},
    {"stop shooting", [] { return camera_stop_shooting(); }, "Camera shoting stop\n",
     "55 17 04 38 09 04 00 00 40 01 01 00 00 00 00 00 91 00 00 00 91 57 BE\n"
     "55 17 04 38 09 01 01 00 40 01 01 00 00 00 00 00 91 00 00 00 91 0F 50\n"},
    {"smoothtrack", [] { return camera_set_zoom_adjusted_smoothtrack(1); },
     "Set Zoom Adjusted Smoothtrack to 1\n",
     "55 15 04 A9 02 04 00 00 40 04 35 FF FF FF FF FF 01 FF FF C2 8A\n"},
    {"smoothtrack, low byte", [] { return camera_set_zoom_adjusted_smoothtrack(0x1A5); },
     "Set Zoom Adjusted Smoothtrack to 421\n",
     "55 15 04 A9 02 04 00 00 40 04 35 FF FF FF FF FF A5 FF FF 74 E6\n"},
    {"real-time AF", [] { return camera_set_realtime_af(1); }, "Set Real-time AF to 1\n",
     "55 15 04 A9 02 04 00 00 40 04 35 FF FF FF FF FF FF 01 FF F5 F0\n"},
    {"real-time AF, low byte", [] { return camera_set_realtime_af(-2); },
     "Set Real-time AF to -2\n",
     "55 15 04 A9 02 04 00 00 40 04 35 FF FF FF FF FF FF FE FF 35 0F\n"},
    {"focus point", [] { return camera_set_focus_point(0.5F, 0.25F); },
     "Camera set focus point 0.500000,0.250000\n",
     "55 15 04 A9 02 01 00 00 40 02 30 00 00 00 3F 00 00 80 3E 0D 6C\n"},
    {"focus point, unscaled", [] { return camera_set_focus_point(-1.1F, 1234.5F); },
     "Camera set focus point -1.100000,1234.500000\n",
     "55 15 04 A9 02 01 00 00 40 02 30 CD CC 8C BF 00 50 9A 44 9E 01\n"},
    {"manual focus 50 %", [] { camera_state.focus_range = 4000; return camera_set_manual_focus(50); },
     "Set manual focus 50% (2000)\n",
     "55 0F 04 A2 02 01 00 00 40 02 95 D0 07 68 7D\n"},
    {"manual focus 75 %", [] { camera_state.focus_range = 4000; return camera_set_manual_focus(75); },
     "Set manual focus 75% (3000)\n",
     "55 0F 04 A2 02 01 00 00 40 02 95 B8 0B 91 1C\n"},
    {"AF assistant on", [] { return assist(0x00, "afa", 1); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 02 0E A1\n"},
    {"AF assistant on, MF kept", [] { return assist(0x01, "afa", 1); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 03 87 B0\n"},
    {"AF assistant off, MF kept", [] { return assist(0x03, "afa", 0); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 01 95 93\n"},
    {"AF assistant spills", [] { return assist(0xFF, "afa", 3); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 07 A3 F6\n"},
    {"MF assistant on", [] { return assist(0x00, "mfa", 1); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 01 95 93\n"},
    {"MF assistant on, AF kept", [] { return assist(0x02, "mfa", 1); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 03 87 B0\n"},
    {"MF assistant off, AF kept", [] { return assist(0x03, "mfa", 0); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 02 0E A1\n"},
    {"MF assistant spills", [] { return assist(0xFD, "mfa", 6); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 06 2A E7\n"},
    {"AF assistant, the least number", [] { return assist(0x00, "afa", -2147483647); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A 02 0E A1\n"},
    {"MF assistant, minus one", [] { return assist(0x00, "mfa", -1); }, "",
     "55 0E 04 66 02 01 00 00 40 02 9A FF 64 8D\n"},
    {"digital zoom -2147483647", [] { return camera_set_digital_zoom(-2147483647); },
     "Set digital zoom 100\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 64 00 70 AA\n"},
    {"digital zoom 50", [] { return camera_set_digital_zoom(50); }, "Set digital zoom 100\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 64 00 70 AA\n"},
    {"digital zoom 100", [] { return camera_set_digital_zoom(100); }, "Set digital zoom 100\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 64 00 70 AA\n"},
    {"digital zoom 101", [] { return camera_set_digital_zoom(101); }, "Set digital zoom 101\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 65 00 A8 B3\n"},
    {"digital zoom 150", [] { return camera_set_digital_zoom(150); }, "Set digital zoom 150\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 96 00 C8 E5\n"},
    {"digital zoom 199", [] { return camera_set_digital_zoom(199); }, "Set digital zoom 199\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 C7 00 E7 2F\n"},
    {"digital zoom 200", [] { return camera_set_digital_zoom(200); }, "Set digital zoom 200\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 C8 00 2F AC\n"},
    {"digital zoom 250", [] { return camera_set_digital_zoom(250); }, "Set digital zoom 200\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 C8 00 2F AC\n"},
    {"digital zoom 2147483647", [] { return camera_set_digital_zoom(2147483647); },
     "Set digital zoom 200\n",
     "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 C8 00 2F AC\n"},
    {"optical zoom in", [] { return camera_set_optical_zoom(1); }, "Set optical zoom 1\n",
     "55 11 04 92 02 01 00 00 40 02 B8 01 48 01 00 09 A7\n"},
    {"optical zoom in, sign alone", [] { return camera_set_optical_zoom(300); },
     "Set optical zoom 300\n",
     "55 11 04 92 02 01 00 00 40 02 B8 01 48 01 00 09 A7\n"},
    {"optical zoom out", [] { return camera_set_optical_zoom(-1); }, "Set optical zoom -1\n",
     "55 11 04 92 02 01 00 00 40 02 B8 01 48 00 00 D1 BE\n"},
    {"optical zoom out, sign alone", [] { return camera_set_optical_zoom(-65536); },
     "Set optical zoom -65536\n",
     "55 11 04 92 02 01 00 00 40 02 B8 01 48 00 00 D1 BE\n"},
    {"optical zoom stop", [] { return camera_set_optical_zoom(0); }, "Set optical zoom 0\n",
     "55 11 04 92 02 01 00 00 40 02 B8 00 48 00 00 6A A2\n"
     "55 11 04 92 02 01 01 00 40 02 B8 FF 48 00 00 45 2A\n"},
    {"exposure point", [] { return camera_set_exposure_point(7); }, "Set exposure point 7 (0x07)\n",
     "55 0E 04 66 02 01 00 00 40 02 32 07 9C 97\n"},
    {"exposure point, low byte", [] { return camera_set_exposure_point(0x1A5); },
     "Set exposure point 421 (0x1a5)\n",
     "55 0E 04 66 02 01 00 00 40 02 32 A5 84 11\n"},
    {"exposure point, negative", [] { return camera_set_exposure_point(-1); },
     "Set exposure point -1 (0xffffffff)\n",
     "55 0E 04 66 02 01 00 00 40 02 32 FF 5B EC\n"},
    {"exposure center", [] { return camera_set_exposure_center(); }, "Set exposure to center\n",
     "55 0E 04 66 02 01 00 00 40 02 22 00 B2 76\n"},
    {"reset", [] { return camera_reset(); }, "",
     "55 0E 04 66 02 01 00 00 40 02 78 00 35 58\n"},
    {"WB auto", [] { return camera_set_wb("auto", "5600"); }, "Camera set WB auto\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 00 44 90 44\n"},
    {"WB sunny", [] { return camera_set_wb("sunny", "5600"); }, "Camera set WB sunny\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 01 30 EB 68\n"},
    {"WB cloudy", [] { return camera_set_wb("cloudy", "5600"); }, "Camera set WB cloudy\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 02 40 04 31\n"},
    {"WB incandescent", [] { return camera_set_wb("incandescent", "5600"); },
     "Camera set WB incandescent\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 04 44 F0 23\n"},
    {"WB neon", [] { return camera_set_wb("neon", "5600"); }, "Camera set WB neon\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 05 19 48 B3\n"},
    {"WB custom 5600", [] { return camera_set_wb("custom", "5600"); },
     "Camera set WB custom\nCamera set WB temperature 5600\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 38 AB A9\n"},
    {"WB custom 2000", [] { return camera_set_wb("custom", "2000"); },
     "Camera set WB custom\nCamera set WB temperature 2000\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 14 C5 42\n"},
    {"WB custom 10000", [] { return camera_set_wb("custom", "10000"); },
     "Camera set WB custom\nCamera set WB temperature 10000\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 64 42 31\n"},
    {"WB custom 2099", [] { return camera_set_wb("custom", "2099"); },
     "Camera set WB custom\nCamera set WB temperature 2099\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 14 C5 42\n"},
    {"WB custom 1950", [] { return camera_set_wb("custom", "1950"); },
     "Camera set WB custom\nCamera set WB temperature 1950\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 14 C5 42\n"},
    {"WB custom 1850", [] { return camera_set_wb("custom", "1850"); },
     "Camera set WB custom\nCamera set WB temperature 1850\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 13 7A 36\n"},
    {"WB custom 0", [] { return camera_set_wb("custom", "0"); },
     "Camera set WB custom\nCamera set WB temperature 0\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 00 60 14\n"},
    {"WB custom warm", [] { return camera_set_wb("custom", "warm"); },
     "Camera set WB custom\nCamera set WB temperature warm\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 00 60 14\n"},
    {"WB custom 27600", [] { return camera_set_wb("custom", "27600"); },
     "Camera set WB custom\nCamera set WB temperature 27600\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 14 C5 42\n"},
    {"WB custom -2147483648", [] { return camera_set_wb("custom", "-2147483648"); },
     "Camera set WB custom\nCamera set WB temperature -2147483648\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 EC 02 39\n"},
    {"WB custom 5600 and a line end", [] { return camera_set_wb("custom", "5600\n"); },
     "Camera set WB custom\nCamera set WB temperature 5600\n\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 38 AB A9\n"},
    {"WB unknown", [] { return camera_set_wb("Auto", "5600"); }, "Camera set WB Auto\n",
     ""},
    {"WB empty", [] { return camera_set_wb("", ""); }, "Camera set WB \n",
     ""},
    {"resolution 4096x2160@24", [] { return camera_set_video_resolution(4096, 2160, 24); },
     "Camera set video resolution 4096x2160@24\n",
     "55 12 04 C7 02 01 00 00 40 02 18 16 01 00 00 00 D6 DE\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 16 01 25 EC\n"},
    {"resolution 3840x2160@25", [] { return camera_set_video_resolution(3840, 2160, 25); },
     "Camera set video resolution 3840x2160@25\n",
     "55 12 04 C7 02 01 00 00 40 02 18 10 02 00 00 00 83 C0\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 10 02 6E 8A\n"},
    {"resolution 2704x1520@30", [] { return camera_set_video_resolution(2704, 1520, 30); },
     "Camera set video resolution 2704x1520@30\n",
     "55 12 04 C7 02 01 00 00 40 02 18 18 03 00 00 00 18 86\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 18 03 27 55\n"},
    {"resolution 1920x1080@48", [] { return camera_set_video_resolution(1920, 1080, 48); },
     "Camera set video resolution 1920x1080@48\n",
     "55 12 04 C7 02 01 00 00 40 02 18 0A 04 00 00 00 F1 73\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 0A 04 B9 87\n"},
    {"resolution 1280x720@50", [] { return camera_set_video_resolution(1280, 720, 50); },
     "Camera set video resolution 1280x720@50\n",
     "55 12 04 C7 02 01 00 00 40 02 18 04 05 00 00 00 F2 0E\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 04 05 20 0C\n"},
    {"resolution 1920x1080@60", [] { return camera_set_video_resolution(1920, 1080, 60); },
     "Camera set video resolution 1920x1080@60\n",
     "55 12 04 C7 02 01 00 00 40 02 18 0A 06 00 00 00 87 4A\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 0A 06 AB A4\n"},
    {"resolution 1920x1080@120", [] { return camera_set_video_resolution(1920, 1080, 120); },
     "Camera set video resolution 1920x1080@120\n",
     "55 12 04 C7 02 01 00 00 40 02 18 0A 07 00 00 00 3C 56\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 0A 07 22 B5\n"},
    {"resolution 1920x1080@29", [] { return camera_set_video_resolution(1920, 1080, 29); },
     "Camera set video resolution 1920x1080@29\n",
     "55 12 04 C7 02 01 00 00 40 02 18 0A 00 00 00 00 1D 01\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 0A 00 9D C1\n"},
    {"resolution 1920x720@30", [] { return camera_set_video_resolution(1920, 720, 30); },
     "Camera set video resolution 1920x720@30\n",
     "55 12 04 C7 02 01 00 00 40 02 18 00 03 00 00 00 78 68\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 00 03 76 0E\n"},
    {"resolution 4096x1520@24", [] { return camera_set_video_resolution(4096, 1520, 24); },
     "Camera set video resolution 4096x1520@24\n",
     "55 12 04 C7 02 01 00 00 40 02 18 00 01 00 00 00 0E 51\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 00 01 64 2D\n"},
    {"resolution 0x0@0", [] { return camera_set_video_resolution(0, 0, 0); },
     "Camera set video resolution 0x0@0\n",
     "55 12 04 C7 02 01 00 00 40 02 18 00 00 00 00 00 B5 4D\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 00 00 ED 3C\n"},
    {"resolution -1x-1@-1", [] { return camera_set_video_resolution(-1, -1, -1); },
     "Camera set video resolution -1x-1@-1\n",
     "55 12 04 C7 02 01 00 00 40 02 18 00 00 00 00 00 B5 4D\n"
     "55 0F 04 A2 02 01 01 00 40 02 AF 00 00 ED 3C\n"},
    {"next_image_mode on an X5R", [] { return image_mode_step(5, "shutter", camera_next_image_mode); },
     "Camera set next image mode\nCamera set video mode aperture\n",
     "55 0F 04 A2 02 01 00 00 40 02 1E 03 00 CE 59\n"},
    {"prev_image_mode on an X3", [] { return image_mode_step(0, "auto", camera_prev_image_mode); },
     "Camera set prev image mode\nCamera set video mode manual\n",
     "55 0F 04 A2 02 01 00 00 40 02 1E 04 00 C6 14\n"},
    {"next_shutter from ", [] { return step_from(camera_state.shutter_set, "", camera_next_shutter); },
     "Camera set next shutter value\nCamera set shutter 7\"\n",
     "55 11 04 92 02 01 00 00 40 02 28 01 07 00 00 75 CC\n"},
    {"next_shutter from 1/8000", [] { return step_from(camera_state.shutter_set, "1/8000", camera_next_shutter); },
     "Camera set next shutter value\nCamera set shutter 8\"\n",
     "55 11 04 92 02 01 00 00 40 02 28 01 08 00 00 B2 86\n"},
    {"prev_shutter from 8\"", [] { return step_from(camera_state.shutter_set, "8\"", camera_prev_shutter); },
     "Camera set prev shutter value\nCamera set shutter 1/8000\n",
     "55 11 04 92 02 01 00 00 40 02 28 01 40 9F 00 93 DC\n"},
    {"next_aperture from 2.8", [] { return step_from(camera_state.aperture, "2.8", camera_next_aperture); },
     "Camera set next aperture value\nCamera set aperture 3.20\n",
     "55 0F 04 A2 02 01 00 00 40 02 26 40 01 25 64\n"},
    {"prev_aperture from 2.8", [] { return step_from(camera_state.aperture, "2.8", camera_prev_aperture); },
     "Camera set prev aperture value\nCamera set aperture 2.50\n",
     "55 0F 04 A2 02 01 00 00 40 02 26 FA 00 B2 B2\n"},
    {"next_iso from ", [] { return step_from(camera_state.iso_set, "", camera_next_iso); },
     "Camera set next ISO\nCamera set iso 100\n",
     "55 0E 04 66 02 01 00 00 40 02 2A 03 E9 8A\n"},
    {"prev_iso from 100", [] { return step_from(camera_state.iso_set, "100", camera_prev_iso); },
     "Camera set prev ISO\nCamera set iso 0\n",
     "55 0E 04 66 02 01 00 00 40 02 2A 00 72 B8\n"},
    {"next_ev from +0.3", [] { return step_from(camera_state.ev, "+0.3", camera_next_ev); },
     "Camera set next EV\nCamera set EV 0.7\n",
     "55 0E 04 66 02 01 00 00 40 02 2E 12 81 EC\n"},
    {"prev_ev from -3.0", [] { return step_from(camera_state.ev, "-3.0", camera_prev_ev); },
     "Camera set prev EV\nCamera set EV 3.0\n",
     "55 0E 04 66 02 01 00 00 40 02 2E 19 52 52\n"},
    {"next_wb", [] { camera_state.wb_temp = 5600; return step_from(camera_state.wb, "neon", camera_next_wb); },
     "Camera set next WB\nCamera set WB custom\nCamera set WB temperature 5600\n\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 06 38 AB A9\n"},
    {"prev_wb from cloudy", [] { return step_from(camera_state.wb, "cloudy", camera_prev_wb); },
     "Camera set prev WB\nCamera set WB sunny\n",
     "55 0F 04 A2 02 01 00 00 40 02 2C 01 30 EB 68\n"},
    {"next_color from none", [] { return step_from(camera_state.color_mode, "none", camera_next_color); },
     "Camera set next color mode\nSet color d-log\n",
     "55 0E 04 66 02 01 00 00 40 02 42 17 D9 77\n"},
    {"prev_color from none", [] { return step_from(camera_state.color_mode, "none", camera_prev_color); },
     "Camera set prev color mode\nSet color portrait\n",
     "55 0E 04 66 02 01 00 00 40 02 42 07 58 67\n"},
};
// clang-format on

namespace command_cases_detail {

inline void add(std::vector<CommandCase>& cases, const std::string& name,
                int (*run)(const char* word), const char* word, const char* log,
                const char* packets) {
    cases.push_back({name + "(" + word + ")", [=] { return run(word); }, log, packets});
}

template <std::size_t N>
void add(std::vector<CommandCase>& cases, const char* name, int (*run)(const char* value),
         const SettingCase (&rows)[N]) {
    for (const SettingCase& row : rows) {
        add(cases, name, run, row.argument, row.log, row.packets);
    }
}

}  // namespace command_cases_detail

inline std::vector<CommandCase> command_cases() {
    using command_cases_detail::add;
    std::vector<CommandCase> cases;
    for (const PlainCase& row : kPlainCases) {
        cases.push_back({row.name, row.run, row.log, row.packets});
    }
    for (const WordCase& row : kWordCases) {
        add(cases, row.name, row.run, row.word, row.log, row.packets);
    }
    add(cases, "camera_set_shutter", camera_set_shutter, kShutterCases);
    add(cases, "camera_set_aperture", camera_set_aperture, kApertureCases);
    add(cases, "camera_set_iso", camera_set_iso, kIsoCases);
    add(cases, "camera_set_ev", camera_set_ev, kEvCases);
    add(cases, "camera_set_color", camera_set_color, kColorCases);
    return cases;
}
