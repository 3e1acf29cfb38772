// Steps through the settings. The operations that set them are replaced and tell what they were
// called with.
#include "control/setting_steps.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "control/exposure_commands.h"
#include "control/image_commands.h"
#include "protocol/camera_state.h"

namespace {

std::string called;

int note(const std::string& call) {
    called += call;
    return 77;
}

}  // namespace

int camera_set_image_mode(const char* mode) {
    return note("image mode " + std::string(mode));
}

int camera_set_shutter(const char* shutter) {
    return note("shutter " + std::string(shutter));
}

int camera_set_aperture(const char* aperture) {
    return note("aperture " + std::string(aperture));
}

int camera_set_iso(const char* iso) {
    return note("iso " + std::string(iso));
}

int camera_set_ev(const char* ev) {
    return note("ev " + std::string(ev));
}

int camera_set_wb(const char* mode, const char* temperature) {
    return note("wb " + std::string(mode) + " " + temperature);
}

int camera_set_color(const char* color) {
    return note("color " + std::string(color));
}

namespace {

constexpr std::uint8_t kX3AndZ3[] = {0, 11};
constexpr std::uint8_t kX5AndX5r[] = {1, 5};
constexpr std::uint8_t kOtherModels[] = {2, 3, 4, 6, 7, 8, 9, 10, 12, 255};

using Texts = std::vector<std::string>;

const Texts kShutter = {
    "8\"",    "7\"",    "6\"",    "5\"",    "4\"",    "3.2\"",  "3\"",    "2.5\"",  "2\"",
    "1.6\"",  "1.3\"",  "1\"",    "1/1.25", "1/1.67", "1/2",    "1/2.5",  "1/3",    "1/4",
    "1/5",    "1/6.25", "1/8",    "1/10",   "1/12.5", "1/15",   "1/20",   "1/25",   "1/30",
    "1/40",   "1/50",   "1/60",   "1/80",   "1/100",  "1/120",  "1/160",  "1/200",  "1/240",
    "1/320",  "1/400",  "1/500",  "1/640",  "1/800",  "1/1000", "1/1250", "1/1600", "1/2000",
    "1/2500", "1/3200", "1/4000", "1/5000", "1/6400", "1/8000"};
const Texts kAperture = {"1.7", "1.8", "2",   "2.2", "2.5", "2.8", "3.2", "3.5", "4",  "4.5", "5",
                         "5.6", "6.3", "7.1", "8",   "9",   "10",  "11",  "13",  "14", "16"};
const Texts kIso = {"0", "100", "200", "400", "800", "1600", "3200", "6400"};
const Texts kEv = {"-3.0", "-2.7", "-2.3", "-2.0", "-1.7", "-1.3", "-1.0", "-0.7", "-0.3", "0",
                   "+0.3", "+0.7", "+1.0", "+1.3", "+1.7", "+2.0", "+2.3", "+2.7", "+3.0"};
const Texts kWb = {"auto", "sunny", "cloudy", "incandescent", "neon", "custom"};
const Texts kColor = {"none",  "d-log", "d-cinelike", "art",       "black white", "vivid",
                      "beach", "dream", "classic",    "nostalgia", "portrait"};

// One step: its log line and, behind it, the call that it led to.
std::string told(int (*step)(), int result = 77) {
    called.clear();
    testing::internal::CaptureStderr();
    EXPECT_EQ(step(), result);
    return testing::internal::GetCapturedStderr() + called;
}

template <std::size_t N>
std::string told_from(char (&field)[N], const std::string& reported, int (*step)()) {
    write_shared_text(field, reported.c_str());
    return told(step);
}

// Forwards and backwards from each entry, and from a text that is none.
template <std::size_t N>
void expect_ring(char (&field)[N], const Texts& list, int (*next)(), const std::string& next_told,
                 int (*prev)(), const std::string& prev_told, const std::string& behind = "") {
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string& following = i + 1 < list.size() ? list[i + 1] : list.front();
        const std::string& preceding = i > 0 ? list[i - 1] : list.back();
        EXPECT_EQ(told_from(field, list[i], next), next_told + following + behind);
        EXPECT_EQ(told_from(field, list[i], prev), prev_told + preceding + behind);
    }
    for (const char* unknown : {"", "?", "Auto", "1/"}) {
        EXPECT_EQ(told_from(field, unknown, next), next_told + list[1] + behind);
        EXPECT_EQ(told_from(field, unknown, prev), prev_told + list.back() + behind);
    }
}

class SettingSteps : public testing::Test {
  protected:
    SettingSteps() { camera_state = CameraState{}; }
};

TEST_F(SettingSteps, Shutter) {
    ASSERT_EQ(kShutter.size(), 51U);
    expect_ring(camera_state.shutter_set, kShutter, camera_next_shutter,
                "Camera set next shutter value\nshutter ", camera_prev_shutter,
                "Camera set prev shutter value\nshutter ");
}

TEST_F(SettingSteps, Aperture) {
    ASSERT_EQ(kAperture.size(), 21U);
    expect_ring(camera_state.aperture, kAperture, camera_next_aperture,
                "Camera set next aperture value\naperture ", camera_prev_aperture,
                "Camera set prev aperture value\naperture ");
}

TEST_F(SettingSteps, Iso) {
    expect_ring(camera_state.iso_set, kIso, camera_next_iso, "Camera set next ISO\niso ",
                camera_prev_iso, "Camera set prev ISO\niso ");
}

TEST_F(SettingSteps, Ev) {
    ASSERT_EQ(kEv.size(), 19U);
    expect_ring(camera_state.ev, kEv, camera_next_ev, "Camera set next EV\nev ", camera_prev_ev,
                "Camera set prev EV\nev ");
}

TEST_F(SettingSteps, Color) {
    ASSERT_EQ(kColor.size(), 11U);
    expect_ring(camera_state.color_mode, kColor, camera_next_color,
                "Camera set next color mode\ncolor ", camera_prev_color,
                "Camera set prev color mode\ncolor ");
}

TEST_F(SettingSteps, WbBringsTheReportedTemperature) {
    camera_state.wb_temp = 5600.0F;
    expect_ring(camera_state.wb, kWb, camera_next_wb, "Camera set next WB\nwb ", camera_prev_wb,
                "Camera set prev WB\nwb ", " 5600\n");
}

TEST_F(SettingSteps, WbTemperatureOfTheReservedFieldGoesFirst) {
    camera_state.wb_temp = 5600.0F;
    camera_state.wb_temp_reserved = 3200.0F;
    EXPECT_EQ(told(camera_next_wb), "Camera set next WB\nwb sunny 3200\n");
}

TEST_F(SettingSteps, WbTemperatureIsRoundedToAWholeNumber) {
    camera_state.wb_temp = 5649.6F;
    EXPECT_EQ(told(camera_next_wb), "Camera set next WB\nwb sunny 5650\n");
    camera_state.wb_temp = 0.0F;
    EXPECT_EQ(told(camera_next_wb), "Camera set next WB\nwb sunny 0\n");
}

TEST_F(SettingSteps, TheLargestWbTemperatureFits) {
    camera_state.wb_temp = -3.402823466e38F;
    EXPECT_EQ(told(camera_prev_wb),
              "Camera set prev WB\nwb custom -340282346638528859811704183484516925440\n");
}

TEST_F(SettingSteps, ImageModeOfX3AndZ3HasNoAperture) {
    for (const std::uint8_t model : kX3AndZ3) {
        camera_state.camera_model_code = model;
        expect_ring(camera_state.image_mode, {"auto", "shutter", "manual"}, camera_next_image_mode,
                    "Camera set next image mode\nimage mode ", camera_prev_image_mode,
                    "Camera set prev image mode\nimage mode ");
        EXPECT_EQ(told_from(camera_state.image_mode, "aperture", camera_next_image_mode),
                  "Camera set next image mode\nimage mode shutter");
    }
}

TEST_F(SettingSteps, ImageModeOfX5AndX5rHasAllFour) {
    for (const std::uint8_t model : kX5AndX5r) {
        camera_state.camera_model_code = model;
        expect_ring(camera_state.image_mode, {"auto", "shutter", "aperture", "manual"},
                    camera_next_image_mode, "Camera set next image mode\nimage mode ",
                    camera_prev_image_mode, "Camera set prev image mode\nimage mode ");
    }
}

TEST_F(SettingSteps, ImageModeOfAnyOtherModelStays) {
    write_shared_text(camera_state.image_mode, "auto");
    for (const std::uint8_t model : kOtherModels) {
        camera_state.camera_model_code = model;
        EXPECT_EQ(told(camera_next_image_mode, 0), "Camera set next image mode\n");
        EXPECT_EQ(told(camera_prev_image_mode, 0), "Camera set prev image mode\n");
    }
}

}  // namespace
