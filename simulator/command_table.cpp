#include "simulator/command_table.h"

#include <algorithm>
#include <bit>

namespace {

using Packet = std::span<const std::uint8_t>;

int word(Packet packet, std::size_t at) {
    return packet[at] | packet[at + 1] << 8;
}

int signed_word(Packet packet, std::size_t at) {
    return static_cast<std::int16_t>(word(packet, at));
}

float single(Packet packet, std::size_t at) {
    const auto low = static_cast<std::uint32_t>(word(packet, at));
    return std::bit_cast<float>(low | static_cast<std::uint32_t>(word(packet, at + 2)) << 16);
}

// Whether the bytes from `at` on are these.
bool fixed(Packet packet, std::size_t at, std::initializer_list<std::uint8_t> bytes) {
    return std::ranges::equal(packet.subspan(at, bytes.size()), bytes);
}

// Takes over a code that the camera has; another one it leaves.
void choose(int& setting, int code, std::initializer_list<int> codes) {
    if (std::ranges::find(codes, code) != codes.end()) {
        setting = code;
    }
}

// -- effects: false where a byte is not what the command always has there

bool gimbal_speed(CameraModel& model, Packet packet) {
    model.gimbal.turn(signed_word(packet, 11), signed_word(packet, 13), signed_word(packet, 15));
    return fixed(packet, 17, {0x90});
}

bool gimbal_position(CameraModel& model, Packet packet) {
    model.gimbal.go_to(signed_word(packet, 11), signed_word(packet, 13), signed_word(packet, 15));
    return fixed(packet, 17, {0x64, 0x00, 0xE0, 0x04});
}

bool record(CameraModel& model, Packet packet) {
    if (packet[11] != 0) {
        model.start_recording();
    } else {
        model.stop_recording();
    }
    return packet[11] <= 1;
}

bool shot(CameraModel& model, Packet packet) {
    model.take_photo();
    return fixed(packet, 11, {0x01});
}

bool stop_shooting(CameraModel& model, Packet packet) {
    model.stop_shooting();
    return fixed(packet, 11, {0, 0, 0, 0, 0, 0x91, 0, 0, 0, 0x91});
}

bool gimbal_stop_shooting(CameraModel& /*model*/, Packet packet) {
    return fixed(packet, 11, {0, 0, 0, 0, 0, 0x91, 0, 0, 0, 0x91});
}

bool set_mode(CameraModel& model, Packet packet) {
    model.stop_recording();
    choose(model.mode, packet[11], {0, 1});
    return packet[11] <= 1;
}

bool gimbal_center(CameraModel& model, Packet packet) {
    model.gimbal.go_to(0, 0, 0);
    return fixed(packet, 11, {0, 0, 0, 0, 0x01, 0x91, 0, 0, 0, 0x90});
}

bool gimbal_selfie(CameraModel& model, Packet packet) {
    model.gimbal.go_to(1800, 0, 0);
    return fixed(packet, 11, {0, 0, 0, 0, 0x10, 0x91, 0, 0, 0, 0x81});
}

bool orientation_lock(CameraModel& model, Packet packet) {
    model.gimbal.orientation_locked = true;
    return fixed(packet, 11, {0, 0, 0, 0, 0x02, 0x91, 0, 0, 0, 0x93});
}

// The lock is let go when the hand that did it is off.
bool orientation_unlock(CameraModel& model, Packet packet) {
    model.gimbal.orientation_locked = false;
    return fixed(packet, 11, {0, 0, 0, 0, 0x0A, 0, 0, 0, 0, 0});
}

bool orientation_hand_off(CameraModel& /*model*/, Packet packet) {
    return fixed(packet, 11, {0, 0, 0, 0, 0x00, 0, 0, 0, 0, 0});
}

// Each of the three is given or left alone.
bool gimbal_parameters(CameraModel& model, Packet packet) {
    constexpr std::uint8_t kLeave = 0xFF;
    int* const parameters[] = {&model.gimbal.pitch_locked, &model.gimbal.smooth_track,
                               &model.gimbal.realtime_focus};
    for (std::size_t i = 0; i < std::size(parameters); ++i) {
        if (packet[15 + i] != kLeave) {
            *parameters[i] = packet[15 + i];
        }
    }
    return fixed(packet, 11, {kLeave, kLeave, kLeave, kLeave}) && packet[18] == kLeave;
}

bool focus_mode(CameraModel& model, Packet packet) {
    choose(model.focus_auto, packet[11], {0, 1});
    model.focus_target = model.focus_position;  // it stays where it is until it is told
    return packet[11] <= 1;
}

bool focus_infinity(CameraModel& model, Packet packet) {
    choose(model.focus_infinity, packet[11], {0, 1});
    return packet[11] <= 1;
}

bool focus_position(CameraModel& model, Packet packet) {
    model.focus_at(word(packet, 11));
    return true;
}

bool focus_point(CameraModel& model, Packet packet) {
    model.focus_point_x = single(packet, 11);
    model.focus_point_y = single(packet, 15);
    return true;
}

bool digital_zoom(CameraModel& model, Packet packet) {
    model.digital_zoom = packet[14];
    return fixed(packet, 11, {0x09, 0x00, 0x00}) && packet[15] == 0 && packet[14] >= 100 &&
           packet[14] <= 200;
}

bool optical_zoom(CameraModel& model, Packet packet) {
    const bool zooms = packet[11] == 0x01;
    const int direction = packet[13] == 0x01 ? 1 : -1;
    model.zoom_direction = zooms ? direction : 0;
    return fixed(packet, 12, {0x48}) && packet[13] <= 1 && packet[14] == 0;
}

bool exposure_center(CameraModel& model, Packet packet) {
    model.exposure_point = 0;
    return fixed(packet, 11, {0x00});
}

// Steps that the hand makes, or straight away level.
bool horizon(CameraModel& model, Packet packet) {
    const auto step = static_cast<std::int8_t>(packet[11]);
    model.gimbal.horizon_trim = step == 0 ? 0 : model.gimbal.horizon_trim + step;
    return step == 0 || step == 3 || step == -3;
}

bool sticks_centered(CameraModel& model, Packet packet) {
    model.gimbal.turn(0, 0, 0);
    return fixed(packet, 11, {0x00, 0x04, 0x00, 0x04, 0x00, 0x04, 0x80, 0x00});
}

bool calibrate(CameraModel& model, Packet /*packet*/) {
    model.gimbal.calibrate();
    return true;
}

bool reset(CameraModel& model, Packet packet) {
    model.reset();
    return fixed(packet, 11, {0x00});
}

bool power(CameraModel& model, Packet packet) {
    constexpr void (CameraModel::*kActions[])() = {&CameraModel::sleep, &CameraModel::wake_up,
                                                   &CameraModel::restart, &CameraModel::shut_down};
    const unsigned action = packet[11] - 1U;
    if (action < std::size(kActions)) {
        (model.*kActions[action])();
    }
    return action < std::size(kActions);
}

bool format_card(CameraModel& model, Packet /*packet*/) {
    model.format_card();
    return true;
}

bool prepare_drive_format(CameraModel& model, Packet packet) {
    model.prepare_drive_format();
    return fixed(packet, 11, {0x00});
}

bool format_drive(CameraModel& model, Packet packet) {
    model.format_drive();
    return fixed(packet, 11, {0x00});
}

bool image_mode(CameraModel& model, Packet packet) {
    choose(model.image_mode, packet[11], {1, 2, 3, 4});
    return packet[11] >= 1 && packet[11] <= 4 && packet[12] == 0;
}

// A word that the receiver does not know comes as a time of nothing.
bool shutter(CameraModel& model, Packet packet) {
    const int code = word(packet, 12) | packet[14] << 16;
    if (code != 0) {
        model.shutter_set = code;
    }
    return fixed(packet, 11, {0x01});
}

bool aperture(CameraModel& model, Packet packet) {
    model.aperture_set = word(packet, 11);
    return true;
}

bool iso(CameraModel& model, Packet packet) {
    choose(model.iso_code, packet[11], {0, 3, 4, 5, 6, 7, 8, 9});
    return packet[11] == 0 || (packet[11] >= 3 && packet[11] <= 9);
}

bool exposure_value(CameraModel& model, Packet packet) {
    const bool known = packet[11] >= 7 && packet[11] <= 25;
    model.ev_code = known ? packet[11] : model.ev_code;
    return known;
}

bool white_balance(CameraModel& model, Packet packet) {
    choose(model.white_balance, packet[11], {0, 1, 2, 4, 5, 6});
    model.white_balance_hundreds = packet[12];
    return packet[11] <= 6 && packet[11] != 3;
}

bool color(CameraModel& model, Packet packet) {
    choose(model.color, packet[11], {0, 1, 4, 5, 6, 7, 14, 16, 18, 19, 23, 52});
    return model.color == packet[11];
}

// A size or a rate that the camera does not have comes as 0: it stays as it was.
void choose_video_format(CameraModel& model, Packet packet) {
    choose(model.resolution, packet[11], {4, 10, 16, 22, 24});
    choose(model.frame_rate, packet[12], {1, 2, 3, 4, 5, 6, 7});
}

bool video_format(CameraModel& model, Packet packet) {
    choose_video_format(model, packet);
    return fixed(packet, 13, {0, 0, 0});
}

bool video_format_again(CameraModel& model, Packet packet) {
    choose_video_format(model, packet);
    return true;
}

bool aspect_ratio(CameraModel& model, Packet packet) {
    choose(model.ratio, packet[12], {0, 1});
    return packet[11] == 0 && packet[12] <= 1;
}

bool wifi_band(CameraModel& model, Packet packet) {
    choose(model.wifi_band_wanted, packet[11], {0, 1});
    return packet[11] <= 1;
}

bool wifi_restart(CameraModel& model, Packet /*packet*/) {
    model.wifi_band = model.wifi_band_wanted;
    return true;
}

// A setting that is the payload byte, 0 to the most.
template <auto setting, int most>
bool one_byte(CameraModel& model, Packet packet) {
    if (packet[11] <= most) {
        model.*setting = packet[11];
    }
    return packet[11] <= most;
}

using Model = CameraModel;
constexpr std::int16_t kAny = CameraCommand::kAny;

// clang-format off
constexpr CameraCommand kCommands[] = {
    // Capture
    {"record",               0x02, 0x01, 0x40, 0x02, 0x02, 14, kAny, record},
    {"shot",                 0x02, 0x01, 0x40, 0x02, 0x01, 14, kAny, shot},
    {"gimbal_stop_shooting", 0x09, 0x04, 0x40, 0x01, 0x01, 23, kAny, gimbal_stop_shooting},
    {"camera_stop_shooting", 0x09, 0x01, 0x40, 0x01, 0x01, 23, kAny, stop_shooting},
    {"mode",                 0x09, 0x01, 0x40, 0x02, 0x10, 14, kAny, set_mode},
    // Gimbal
    {"gimbal_speed",         0x02, 0x04, 0x40, 0x04, 0x0C, 20, kAny, gimbal_speed},
    {"gimbal_position",      0x02, 0x04, 0x40, 0x04, 0x0A, 23, kAny, gimbal_position},
    {"gimbal_center",        0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x01, gimbal_center},
    {"gimbal_selfie",        0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x10, gimbal_selfie},
    {"orientation_lock",     0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x02, orientation_lock},
    {"orientation_unlock",   0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x0A, orientation_unlock},
    {"orientation_hand_off", 0x02, 0x09, 0x40, 0x01, 0x01, 23, 0x00, orientation_hand_off},
    {"gimbal_parameters",    0x02, 0x04, 0x40, 0x04, 0x35, 21, kAny, gimbal_parameters},
    {"horizon",              0x02, 0x04, 0x40, 0x04, 0x07, 14, kAny, horizon},
    {"sticks_centered",      0x09, 0x04, 0x20, 0x04, 0x01, 21, kAny, sticks_centered},
    {"calibrate",            0x02, 0x04, 0x40, 0x04, 0x08, 13, kAny, calibrate},
    // Focus and zoom
    {"focus_mode",           0x02, 0x01, 0x40, 0x02, 0x24, 14, kAny, focus_mode},
    {"focus_infinity",       0x02, 0x01, 0x40, 0x02, 0xFA, 14, kAny, focus_infinity},
    {"focus_position",       0x02, 0x01, 0x40, 0x02, 0x95, 15, kAny, focus_position},
    {"focus_point",          0x02, 0x01, 0x40, 0x02, 0x30, 21, kAny, focus_point},
    {"focus_assistant",      0x02, 0x01, 0x40, 0x02, 0x9A, 14, kAny, one_byte<&Model::focus_assistants, 255>},
    {"digital_zoom",         0x02, 0x01, 0x40, 0x02, 0x34, 18, kAny, digital_zoom},
    {"optical_zoom",         0x02, 0x01, 0x40, 0x02, 0xB8, 17, kAny, optical_zoom},
    // Exposure
    {"image_mode",           0x02, 0x01, 0x40, 0x02, 0x1E, 15, kAny, image_mode},
    {"shutter",              0x02, 0x01, 0x40, 0x02, 0x28, 17, kAny, shutter},
    {"aperture",             0x02, 0x01, 0x40, 0x02, 0x26, 15, kAny, aperture},
    {"iso",                  0x02, 0x01, 0x40, 0x02, 0x2A, 14, kAny, iso},
    {"ev",                   0x02, 0x01, 0x40, 0x02, 0x2E, 14, kAny, exposure_value},
    {"ae_lock",              0x02, 0x01, 0x40, 0x02, 0x68, 14, kAny, one_byte<&Model::ae_locked, 1>},
    {"exposure_point",       0x02, 0x01, 0x40, 0x02, 0x32, 14, kAny, one_byte<&Model::exposure_point, 255>},
    {"exposure_center",      0x02, 0x01, 0x40, 0x02, 0x22, 14, kAny, exposure_center},
    {"histogram",            0x02, 0x01, 0x40, 0x02, 0x60, 14, kAny, one_byte<&Model::histogram, 1>},
    // Picture
    {"white_balance",        0x02, 0x01, 0x40, 0x02, 0x2C, 15, kAny, white_balance},
    {"color",                0x02, 0x01, 0x40, 0x02, 0x42, 14, kAny, color},
    {"video_format",         0x02, 0x01, 0x40, 0x02, 0x18, 18, kAny, video_format},
    {"video_format_again",   0x02, 0x01, 0x40, 0x02, 0xAF, 15, kAny, video_format_again},
    {"aspect_ratio",         0x02, 0x01, 0x40, 0x02, 0x12, 15, kAny, aspect_ratio},
    {"photo_format",         0x02, 0x01, 0x40, 0x02, 0x16, 14, kAny, one_byte<&Model::photo_format, 2>},
    {"antiflicker",          0x02, 0x01, 0x40, 0x02, 0x46, 14, kAny, one_byte<&Model::antiflicker, 2>},
    {"video_standard",       0x02, 0x01, 0x40, 0x02, 0x66, 14, kAny, one_byte<&Model::video_standard, 1>},
    // Device
    {"reset",                0x02, 0x01, 0x40, 0x02, 0x78, 14, kAny, reset},
    {"power",                0x02, 0x09, 0x40, 0x09, 0x51, 14, kAny, power, true},
    {"format_card",          0x02, 0x01, 0x40, 0x02, 0x72, 13, kAny, format_card},
    {"prepare_drive_format", 0x02, 0x01, 0x40, 0x02, 0xA1, 14, kAny, prepare_drive_format},
    {"format_drive",         0x02, 0x07, 0x80, 0x00, 0x0E, 14, kAny, format_drive},
    {"wifi_band",            0x02, 0x07, 0x40, 0x07, 0x10, 14, kAny, wifi_band},
    {"wifi_restart",         0x02, 0x07, 0x40, 0x07, 0x15, 13, kAny, wifi_restart},
};
// clang-format on

}  // namespace

std::span<const CameraCommand> camera_command_table() {
    return kCommands;
}
