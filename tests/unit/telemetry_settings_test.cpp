// Camera settings: what each code means, the exposure times and their lag.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "protocol/camera_state.h"
#include "telemetry_bytes.h"
#include "telemetry_operations.h"

namespace {

constexpr std::size_t kSettings = 104;

// One code byte's texts, field by field, for all 256 codes.
struct CodeByte {
    const char* name;
    std::size_t byte;
    std::map<unsigned, std::string> texts;
    std::string otherwise;
    std::string (*text)(const CameraState& state);
    unsigned (*code)(const CameraState& state);
};

// clang-format off
const CodeByte kCodeBytes[] = {
    {"PhotoFormat", 23, {{0, "RAW"}, {1, "JPG"}, {2, "JPG+RAW"}}, "",
     [](const CameraState& state) { return std::string(state.shot_mode); },
     [](const CameraState& state) -> unsigned { return state.photo_format_code; }},
    {"Resolution", 24,
     {{4, "1280x720"}, {10, "1920x1080"}, {16, "3840x2160"}, {22, "4096x2160"}, {24, "2704X1520"}}, "",
     [](const CameraState& state) { return std::string(state.resolution); },
     [](const CameraState& state) -> unsigned { return state.resolution_code; }},
    {"Framerate", 25,
     {{1, "24"}, {2, "25"}, {3, "30"}, {4, "48"}, {5, "50"}, {6, "60"}, {7, "120"}}, "",
     [](const CameraState& state) { return std::string(state.framerate); },
     [](const CameraState& state) -> unsigned { return state.framerate_code; }},
    {"ImageMode", 31, {{2, "shutter"}, {3, "aperture"}, {4, "manual"}}, "auto",
     [](const CameraState& state) { return std::string(state.image_mode); },
     [](const CameraState& state) -> unsigned { return state.image_mode_code; }},
    {"Iso", 16,
     {{3, "100"}, {4, "200"}, {5, "400"}, {6, "800"}, {7, "1600"}, {8, "3200"}, {9, "6400"}}, "auto",
     [](const CameraState& state) { return std::string(state.iso_set); },
     [](const CameraState& state) -> unsigned { return state.iso_set_code; }},
    {"WhiteBalance", 34,
     {{0, "auto"}, {1, "sunny"}, {2, "cloudy"}, {3, "custom"}, {4, "incandescent"}, {5, "neon"}}, "custom",
     [](const CameraState& state) { return std::string(state.wb); },
     [](const CameraState& state) -> unsigned { return state.wb_code; }},
    {"ColorMode", 42,
     {{4, "black white"}, {5, "vivid"}, {6, "d-cinelike"}, {7, "portrait"}, {14, "beach"},
      {16, "dream"}, {18, "classic"}, {19, "nostalgia"}, {23, "d-log"}, {52, "d-clike"}}, "none",
     [](const CameraState& state) { return std::string(state.color_mode); },
     [](const CameraState& state) -> unsigned { return state.color_mode_code; }},
    {"Ratio", 21, {{1, "16:9"}}, "4:3",
     [](const CameraState& state) { return std::string(state.ratio); },
     [](const CameraState& state) -> unsigned { return state.ratio_code; }},
    {"Antiflicker", 43, {{1, "50 Hz"}, {2, "60 Hz"}}, "auto",
     [](const CameraState& state) { return std::string(state.antiflicker); },
     [](const CameraState& state) -> unsigned { return state.antiflicker_code; }},
};
// clang-format on

class SettingsCode : public testing::TestWithParam<CodeByte> {};

TEST_P(SettingsCode, EachOf256HasItsText) {
    const CodeByte& tested = GetParam();
    CameraState state{};
    for (unsigned code = 0; code < 256; ++code) {
        decode_bytes(state, kSettings, {{tested.byte, code}});
        const auto row = tested.texts.find(code);
        EXPECT_EQ(tested.text(state), row != tested.texts.end() ? row->second : tested.otherwise)
            << code;
        EXPECT_EQ(tested.code(state), code);
    }
}

INSTANTIATE_TEST_SUITE_P(Telemetry, SettingsCode, testing::ValuesIn(kCodeBytes),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(TelemetrySettings, ExposureCompensation) {
    const std::map<unsigned, std::pair<std::string, float>> steps = {
        {7, {"-3.0", -3.0F}},  {8, {"-2.7", -2.7F}},  {9, {"-2.3", -2.3F}},  {10, {"-2.0", -2.0F}},
        {11, {"-1.7", -1.7F}}, {12, {"-1.3", -1.3F}}, {13, {"-1.0", -1.0F}}, {14, {"-0.7", -0.7F}},
        {15, {"-0.3", -0.3F}}, {16, {"0", 0.0F}},     {17, {"+0.3", 0.3F}},  {18, {"+0.7", 0.7F}},
        {19, {"+1.0", 1.0F}},  {20, {"+1.3", 1.3F}},  {21, {"+1.7", 1.7F}},  {22, {"+2.0", 2.0F}},
        {23, {"+2.3", 2.3F}},  {24, {"+2.7", 2.7F}},  {25, {"+3.0", 3.0F}}};
    CameraState state{};
    for (unsigned code = 0; code < 256; ++code) {
        const auto row = steps.find(code);
        decode_bytes(state, kSettings, {{17, code}});
        EXPECT_EQ(state.ev, row != steps.end() ? row->second.first : "0") << code;
        EXPECT_EQ(state.ev_value, row != steps.end() ? row->second.second : 0.0F) << code;
    }
}

TEST(TelemetrySettings, VideoStandardIsBitZero) {
    CameraState state{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        decode_bytes(state, kSettings, {{66, byte}});
        EXPECT_EQ(state.video_std_code, byte % 2) << byte;
        EXPECT_STREQ(state.video_std, byte % 2 == 1 ? "NTSC" : "PAL") << byte;
    }
}

TEST(TelemetrySettings, AnyBitLocksTheExposure) {
    CameraState state{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        decode_bytes(state, kSettings, {{67, byte}});
        EXPECT_EQ(state.ae, byte != 0 ? 1 : 0) << byte;
    }
}

TEST(TelemetrySettings, ColourTemperatureInHundreds) {
    CameraState state{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        decode_bytes(state, kSettings, {{35, byte}});
        EXPECT_EQ(state.wb_temp_code, byte);
        EXPECT_EQ(state.wb_temp, static_cast<float>(byte) * 100.0F);
    }
}

// Settings with only the current shutter's three bytes.
void shutter_message(CameraState& state, unsigned b0, unsigned b1, unsigned b2) {
    decode_bytes(state, kSettings, {{51, b0}, {52, b1}, {53, b2}});
}

TEST(TelemetryShutter, TheSettingShowsTheCurrentShutterOfTheMessageBefore) {
    CameraState state{};
    shutter_message(state, 50, 0x80, 0);
    EXPECT_STREQ(state.shutter, "1/50");
    EXPECT_STREQ(state.shutter_set, "0\"");
    shutter_message(state, 100, 0x80, 0);
    EXPECT_STREQ(state.shutter, "1/100");
    EXPECT_STREQ(state.shutter_set, "1/50");
}

TEST(TelemetryShutter, TheSettingItselfIsNeverShown) {
    CameraState state{};
    for (int message = 0; message < 3; ++message) {
        decode_bytes(state, kSettings, {{13, 0xF4}, {14, 0x81}, {15, 0x00}, {51, 8}});
        EXPECT_EQ(state.shutter_set_raw, 0x0081F4U);
        EXPECT_STREQ(state.shutter, "8\"");
    }
    EXPECT_STREQ(state.shutter_set, "8\"");
}

TEST(TelemetryShutter, NeitherSecondsNorAFractionLeavesTheText) {
    CameraState state{};
    shutter_message(state, 50, 0x80, 0);
    shutter_message(state, 3, 0x01, 0);
    EXPECT_EQ(state.shutter_raw, 0x000103U);
    EXPECT_STREQ(state.shutter, "1/50");
    EXPECT_STREQ(state.shutter_set, "1/50");
    shutter_message(state, 4, 0x7F, 0);
    EXPECT_STREQ(state.shutter, "1/50");
    EXPECT_STREQ(state.shutter_set, "1/50");
}

TEST(TelemetryShutter, TheLongestTextFitsOnlyTheCurrentOne) {
    CameraState state{};
    shutter_message(state, 0xFF, 0xFF, 0xFF);
    shutter_message(state, 0xFF, 0xFF, 0xFF);
    EXPECT_STREQ(state.shutter, "1/32767.255");
    EXPECT_STREQ(state.shutter_set, "1/32767.2");
}

}  // namespace
