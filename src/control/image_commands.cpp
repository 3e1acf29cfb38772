#include "control/image_commands.h"

#include <stdio.h>
#include <string.h>

#include <array>
#include <cstdint>

#include "control/packet_table.h"
#include "control/send_packet.h"
#include "control/word_table.h"
#include "protocol/number_conversion.h"

namespace {

// clang-format off
struct WbMode {
    const char* word;
    bool takes_temperature;
    std::array<std::uint8_t, kWbCustom.size()> packet;
};

constexpr WbMode kWbModes[] = {
    {"auto",         false, kWbAuto},
    {"sunny",        false, kWbSunny},
    {"cloudy",       false, kWbCloudy},
    {"incandescent", false, kWbIncandescent},
    {"neon",         false, kWbNeon},
    {"custom",       true,  kWbCustom},
};

constexpr WordCode kColors[] = {
    {"none",         0},
    {"art",          1},
    {"black white",  4},
    {"vivid",        5},
    {"d-cinelike",   6},
    {"portrait",     7},
    {"beach",       14},
    {"dream",       16},
    {"classic",     18},
    {"nostalgia",   19},
    {"d-log",       23},
    {"d-clike",     52},
};

struct VideoSize {
    int width;
    int height;
    std::uint8_t code;
};

constexpr VideoSize kVideoSizes[] = {
    {4096, 2160, 22},
    {3840, 2160, 16},
    {2704, 1520, 24},
    {1920, 1080, 10},
    {1280,  720,  4},
};

constexpr NumberCode kVideoRates[] = {
    { 24, 1},
    { 25, 2},
    { 30, 3},
    { 48, 4},
    { 50, 5},
    { 60, 6},
    {120, 7},
};

constexpr WordPackets kRatios[] = {
    {"4:3",  "", send_packets<kRatio4To3>},
    {"16:9", "", send_packets<kRatio16To9>},
};

constexpr WordPackets kShotModes[] = {
    {"raw",     "", send_packets<kShotRaw>},
    {"jpg",     "", send_packets<kShotJpg>},
    {"jpg+raw", "", send_packets<kShotJpgRaw>},
};

constexpr WordCode kFrequencies[] = {
    {"50", 1},
    {"60", 2},
};

constexpr WordPackets kVideoStandards[] = {
    {"PAL",  "", send_packets<kVideoPal>},
    {"NTSC", "", send_packets<kVideoNtsc>},
};
// clang-format on

std::uint8_t video_size_code(int width, int height) {
    for (const VideoSize& size : kVideoSizes) {
        if (size.width == width && size.height == height) {
            return size.code;
        }
    }
    return 0;
}

// In hundreds of kelvin: 20 is 2000 K.
std::uint8_t wb_temperature_code(const char* temperature) {
    const std::int64_t kelvin = parse_int32(temperature);
    return static_cast<std::uint8_t>((kelvin - 2000) / 100 + 20);
}

}  // namespace

int camera_set_wb(const char* mode, const char* temperature) {
    fprintf(stderr, "Camera set WB %s\n", mode);
    int difference = 0;
    for (const WbMode& row : kWbModes) {
        difference = strcmp(mode, row.word);
        if (difference != 0) {
            continue;
        }
        auto packet = row.packet;
        if (row.takes_temperature) {
            fprintf(stderr, "Camera set WB temperature %s\n", temperature);
            packet[kPayload + 1] = wb_temperature_code(temperature);
        }
        return send_packet(packet);
    }
    return difference;
}

int camera_set_color(const char* color) {
    fprintf(stderr, "Set color %s\n", color);
    auto packet = kColor;
    packet[kPayload] = code_of(kColors, color);
    return send_packet(packet);
}

int camera_set_video_resolution(int width, int height, int fps) {
    fprintf(stderr, "Camera set video resolution %dx%d@%d\n", width, height, fps);
    auto first = kResolution1;
    auto second = kResolution2;
    first[kPayload] = second[kPayload] = video_size_code(width, height);
    first[kPayload + 1] = second[kPayload + 1] = code_of(kVideoRates, fps);
    send_packet(first);
    return send_packet(second);
}

int camera_set_aspect_ratio(const char* ratio) {
    fprintf(stderr, "Camera set image aspect ratio %s\n", ratio);
    return send_word(kRatios, ratio);
}

int camera_set_shot_mode(const char* mode) {
    fprintf(stderr, "Camera set shot mode %s\n", mode);
    return send_word(kShotModes, mode);
}

int camera_set_antiflicker(const char* frequency) {
    fprintf(stderr, "Camera set anti-flicker %s\n", frequency);
    auto packet = kAntiflicker;
    packet[kPayload] = code_of(kFrequencies, frequency);
    return send_packet(packet);
}

int camera_set_video_standard(const char* standard) {
    fprintf(stderr, "Camera set video standard %s\n", standard);
    return send_word(kVideoStandards, standard);
}
