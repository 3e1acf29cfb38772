#include "control/gimbal_commands.h"

#include <stdio.h>

#include <array>

#include "control/packet_table.h"
#include "control/send_packet.h"
#include "control/word_table.h"
#include "protocol/little_endian.h"
#include "protocol/number_conversion.h"

namespace {

constexpr double kSpeedScale = 1000.0;
constexpr double kPanScale = 1800.0;
constexpr double kDutchScale = 450.0;
// Down and up have different ranges, and the gimbal counts both the other way round.
constexpr double kTiltBelowZeroScale = -400.0;
constexpr double kTiltAboveZeroScale = -1250.0;

// The spelling of "horizont" and "contr-clockwise" is kept: logs are searched for it.
// clang-format off
constexpr WordPackets kPositions[] = {
    {"normal", "Gimbal set center position\n", send_packets<kPositionNormal>},
    {"selfie", "Gimbal set selfie position\n", send_packets<kPositionSelfie>},
};

constexpr WordPackets kOrientationStates[] = {
    {"lock",   "Gimbal orientation lock\n",   send_packets<kOrientationLock>},
    {"unlock", "Gimbal orientation unlock\n", send_packets<kOrientationFree1, kOrientationFree2,
                                                           kOrientationFree1, kOrientationFree2,
                                                           kOrientationFree1, kOrientationFree2>},
};

constexpr WordPackets kPitchStates[] = {
    {"lock",   "Gimbal pitch lock\n",   send_packets<kPitchLock>},
    {"unlock", "Gimbal pitch unlock\n", send_packets<kPitchUnlock>},
};

constexpr WordPackets kHorizonSteps[] = {
    {"cw",        "Gimbal roll horizont clockwise\n",       send_packets<kHorizonCw>},
    {"ccw",       "Gimbal roll horizont contr-clockwise\n", send_packets<kHorizonCcw>},
    {"zero",      "Gimbal roll horizont to zero\n",         send_packets<kHorizonZero>},
    {"calibrate", "Gimbal full calibrate\n", send_packets<kHorizonZero, kCalibrate2, kCalibrate3>},
};
// clang-format on

// Three axes at the start of the payload, the low 16 bits of each.
template <std::size_t N>
int send_axes(std::array<std::uint8_t, N> packet, int first, int second, int third) {
    write_le16(&packet[kPayload], static_cast<std::uint16_t>(first));
    write_le16(&packet[kPayload + 2], static_cast<std::uint16_t>(second));
    write_le16(&packet[kPayload + 4], static_cast<std::uint16_t>(third));
    return send_packet(packet);
}

}  // namespace

int gimbal_set_speed(double s1, double s2, double s3) {
    return send_axes(kGimbalSpeed, saturate_to_int32(s1 * kSpeedScale),
                     saturate_to_int32(s3 * kSpeedScale), saturate_to_int32(s2 * kSpeedScale));
}

int gimbal_set_abs_position(double pan, double tilt, double dutch) {
    const double tilt_scale = tilt < 0.0 ? kTiltBelowZeroScale : kTiltAboveZeroScale;
    return gimbal_set_abs_position_raw(saturate_to_int32(pan * kPanScale),
                                       saturate_to_int32(tilt * tilt_scale),
                                       saturate_to_int32(dutch * kDutchScale));
}

int gimbal_set_abs_position_raw(int pan, int tilt, int dutch) {
    fprintf(stderr, "abs position pan %d tilt %d dutch %d\n", pan, tilt, dutch);
    return send_axes(kGimbalPosition, pan, dutch, tilt);
}

int gimbal_set_position(const char* position) {
    return send_word(kPositions, position);
}

int gimbal_orientation_lock(const char* state) {
    return send_word(kOrientationStates, state);
}

int gimbal_pitch_lock(const char* state) {
    return send_word(kPitchStates, state);
}

int gimbal_horizon(const char* step) {
    return send_word(kHorizonSteps, step);
}

int camera_set_zoom_adjusted_smoothtrack(int on) {
    fprintf(stderr, "Set Zoom Adjusted Smoothtrack to %d\n", on);
    auto packet = kZoomSmoothTrack;
    packet[kPayload + 5] = static_cast<std::uint8_t>(on);
    return send_packet(packet);
}
