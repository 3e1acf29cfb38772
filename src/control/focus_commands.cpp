#include "control/focus_commands.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>

#include "app/focus_config.h"
#include "control/packet_table.h"
#include "control/send_packet.h"
#include "control/word_table.h"
#include "protocol/camera_state.h"
#include "protocol/little_endian.h"
#include "protocol/number_conversion.h"

namespace {

// Before and after the lens is driven to its end.
constexpr useconds_t kInfinityPauseUs = 20000;

constexpr int kDigitalZoomLeast = 100;
constexpr int kDigitalZoomMost = 200;

// Switches of the focus assistants, as reported and as set.
constexpr unsigned kMfAssistant = 0x01;
constexpr unsigned kAfAssistant = 0x02;

// The position sent last, so that a stick at rest sends nothing.
std::atomic<std::uint16_t> last_manual_focus{0};

int focus_by_hand() {
    const int result = send_packet(kFocusModeMf);
    camera_state.focus_infinity = 0;
    return result;
}

int focus_by_itself() {
    const int result = send_packets<kFocusModeAf, kFocusFaOff>();
    camera_state.focus_infinity = 0;
    return result;
}

int focus_at_infinity() {
    send_packets<kFocusModeAf, kFocusFaOn, kFocusModeMf>();
    usleep(kInfinityPauseUs);
    const int result = send_packet(kFocusPosition);
    usleep(kInfinityPauseUs);
    camera_state.focus_infinity = 1;
    return result;
}

// clang-format off
constexpr WordPackets kFocusTypes[] = {
    {"mf",  "", focus_by_hand},
    {"af",  "", focus_by_itself},
    {"inf", "", focus_at_infinity},
};
// clang-format on

// The focus limits are percents too, and the given percent lies between them.
int effective_percent(int percent) {
    const double least = focus_config_get()->mf_min.load(std::memory_order_relaxed);
    const double most = focus_config_get()->mf_max.load(std::memory_order_relaxed);
    if (least == 0 && most == 0) {
        return percent;
    }
    return saturate_to_int32(least + (most - least) * percent * 0.01);
}

}  // namespace

int camera_set_focus_type(const char* type) {
    fprintf(stderr, "Camera set focus type %s\n", type);
    return send_word(kFocusTypes, type);
}

int camera_set_focus_point(float x, float y) {
    fprintf(stderr, "Camera set focus point %f,%f\n", static_cast<double>(x),
            static_cast<double>(y));
    auto packet = kFocusPoint;
    write_le32(&packet[kPayload], std::bit_cast<std::uint32_t>(x));
    write_le32(&packet[kPayload + 4], std::bit_cast<std::uint32_t>(y));
    return send_packet(packet);
}

int camera_set_manual_focus(int percent) {
    if (camera_state.focus_auto != 0) {
        return 0;
    }
    const int effective = effective_percent(percent);
    // In single precision, which decides between two neighbouring positions.
    const float exact =
        static_cast<float>(camera_state.focus_range) * 0.01F * static_cast<float>(effective);
    const auto position = static_cast<std::uint16_t>(saturate_to_uint32(exact));
    if (position == last_manual_focus.load(std::memory_order_relaxed)) {
        return 0;
    }
    last_manual_focus.store(position, std::memory_order_relaxed);

    fprintf(stderr, "Set manual focus %d%% (%d)\n", effective, position);
    auto packet = kFocusPosition;
    write_le16(&packet[kPayload], position);
    return send_packet(packet);
}

int camera_set_focus_assistant(const char* assistant, int on) {
    // Kept: a value above 1 reaches into the neighbouring bits.
    const auto value = static_cast<unsigned>(on);
    const unsigned switches = camera_state.focus_byte42;
    auto packet = kFocusAssistant;
    if (strcmp(assistant, "afa") == 0) {
        packet[kPayload] = static_cast<std::uint8_t>((switches & kMfAssistant) | value * 2);
        return send_packet(packet);
    }
    const int difference = strcmp(assistant, "mfa");
    if (difference == 0) {
        packet[kPayload] = static_cast<std::uint8_t>((switches & kAfAssistant) | value);
        return send_packet(packet);
    }
    return difference;
}

int camera_set_realtime_af(int on) {
    fprintf(stderr, "Set Real-time AF to %d\n", on);
    auto packet = kRealtimeAf;
    packet[kPayload + 6] = static_cast<std::uint8_t>(on);
    return send_packet(packet);
}

int camera_set_digital_zoom(int level) {
    const int limited = std::clamp(level, kDigitalZoomLeast, kDigitalZoomMost);
    fprintf(stderr, "Set digital zoom %d\n", limited);
    auto packet = kDigitalZoom;
    packet[kPayload + 3] = static_cast<std::uint8_t>(limited);
    return send_packet(packet);
}

int camera_set_optical_zoom(int direction) {
    fprintf(stderr, "Set optical zoom %d\n", direction);
    if (direction > 0) {
        return send_packet(kOpticalZoomIn);
    }
    if (direction < 0) {
        return send_packet(kOpticalZoomOut);
    }
    return send_packets<kOpticalZoomStop1, kOpticalZoomStop2>();
}
