#include "control/setting_steps.h"

#include <stdio.h>

#include <array>
#include <cassert>
#include <cstddef>
#include <span>

#include "control/exposure_commands.h"
#include "control/image_commands.h"
#include "control/setting_lists.h"
#include "protocol/camera_state.h"
#include "protocol/shared_fields.h"

namespace {

struct Setting {
    const char* name;
    std::span<const char> reported;  // field of the camera state
    TextList steps;
    int (*set)(const char* value);
};

// The temperature that a step to "custom" sets again: the reported one. The reserved field, if ever
// written, wins over it. The line end is kept: the log shows it.
int set_reported_wb(const char* mode) {
    const float reserved = camera_state.wb_temp_reserved;
    const float kelvin = reserved != 0.0F ? reserved : camera_state.wb_temp.load();
    char text[64];  // the largest float has 39 digits
    snprintf(text, sizeof(text), "%1.0f\n", static_cast<double>(kelvin));
    return camera_set_wb(mode, text);
}

// clang-format off
constexpr Setting kImageNoneSetting{"image mode",     camera_state.image_mode,  {},             camera_set_image_mode};
constexpr Setting kImageX3Setting  {"image mode",     camera_state.image_mode,  kImageModesX3,  camera_set_image_mode};
constexpr Setting kImageX5Setting  {"image mode",     camera_state.image_mode,  kImageModesX5,  camera_set_image_mode};
constexpr Setting kShutterSetting  {"shutter value",  camera_state.shutter_set, kShutterSteps,  camera_set_shutter};
constexpr Setting kApertureSetting {"aperture value", camera_state.aperture,    kApertureSteps, camera_set_aperture};
constexpr Setting kIsoSetting      {"ISO",            camera_state.iso_set,     kIsoSteps,      camera_set_iso};
constexpr Setting kEvSetting       {"EV",             camera_state.ev,          kEvSteps,       camera_set_ev};
constexpr Setting kWbSetting       {"WB",             camera_state.wb,          kWbSteps,       set_reported_wb};
constexpr Setting kColorSetting    {"color mode",     camera_state.color_mode,  kColorSteps,    camera_set_color};
// clang-format on

const Setting& image_mode_setting() {
    switch (camera_state.camera_model_code) {
        case kModelX3:
        case kModelZ3:
            return kImageX3Setting;
        case kModelX5:
        case kModelX5R:
            return kImageX5Setting;
        default:
            return kImageNoneSetting;
    }
}

// Where the reported text stands in the list. One that does not stand there is at the list's end,
// which in a ring is its beginning: its neighbours are the second entry and the last.
std::size_t reported_index(const Setting& setting) {
    std::array<char, 32> text{};
    assert(setting.reported.size() <= text.size());
    read_shared_bytes(text.data(), setting.reported.data(), setting.reported.size() - 1);
    return index_of(setting.steps, text.data());
}

// By so many entries further on in the list's ring.
int step(const Setting& setting, std::size_t entries) {
    if (setting.steps.empty()) {
        return 0;
    }
    const std::size_t index = (reported_index(setting) + entries) % setting.steps.size();
    return setting.set(setting.steps[index]);
}

int step_forward(const Setting& setting) {
    fprintf(stderr, "Camera set next %s\n", setting.name);
    return step(setting, 1);
}

int step_back(const Setting& setting) {
    fprintf(stderr, "Camera set prev %s\n", setting.name);
    return step(setting, setting.steps.size() - 1);
}

}  // namespace

int camera_next_image_mode() {
    return step_forward(image_mode_setting());
}

int camera_prev_image_mode() {
    return step_back(image_mode_setting());
}

int camera_next_shutter() {
    return step_forward(kShutterSetting);
}

int camera_prev_shutter() {
    return step_back(kShutterSetting);
}

int camera_next_aperture() {
    return step_forward(kApertureSetting);
}

int camera_prev_aperture() {
    return step_back(kApertureSetting);
}

int camera_next_iso() {
    return step_forward(kIsoSetting);
}

int camera_prev_iso() {
    return step_back(kIsoSetting);
}

int camera_next_ev() {
    return step_forward(kEvSetting);
}

int camera_prev_ev() {
    return step_back(kEvSetting);
}

int camera_next_wb() {
    return step_forward(kWbSetting);
}

int camera_prev_wb() {
    return step_back(kWbSetting);
}

int camera_next_color() {
    return step_forward(kColorSetting);
}

int camera_prev_color() {
    return step_back(kColorSetting);
}
