// The simulated camera's values by name, and the scripts that use them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "simulator/camera_script.h"
#include "simulator/camera_values.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

struct NamedText {
    const char* name;
    const char* text;
};

void PrintTo(const NamedText& row, std::ostream* out) {
    *out << row.name << " " << row.text;
}

class Value : public testing::TestWithParam<NamedText> {};
class ReadOnlyValue : public testing::TestWithParam<NamedText> {};
class RefusedText : public testing::TestWithParam<NamedText> {};

TEST_P(Value, ReadsAsItWasSet) {
    CameraModel model;
    ASSERT_NE(camera_value(model, GetParam().name), GetParam().text) << "sets what is there";
    EXPECT_TRUE(set_camera_value(model, GetParam().name, GetParam().text));
    EXPECT_EQ(camera_value(model, GetParam().name), GetParam().text);
}

// clang-format off
constexpr NamedText kSettable[] = {
    {"camera_model", "Z3"}, {"camera_model_code", "7"}, {"camera_mode", "photo"},
    {"power", "asleep"}, {"power", "restarting"}, {"power", "off"}, {"loop", "1"}, {"stuck", "1"},
    {"sd", "12345"}, {"sd_capacity", "128000"}, {"ssd", "0"}, {"ssd_capacity", "1"},
    {"sd_formats", "3"}, {"ssd_formats", "4"}, {"battery_level", "20.5"},
    {"image_mode", "auto"}, {"image_mode", "shutter"}, {"image_mode", "aperture"},
    {"shutter_set", "1/500"}, {"shutter_set", "1/1.25"}, {"shutter_set", "8\""},
    {"shutter_set", "2.5\""}, {"shutter_set", "30\""}, {"aperture_set", "1.7"},
    {"aperture_set", "16"}, {"iso_set", "auto"}, {"iso_set", "6400"}, {"ev", "-3.0"},
    {"ev", "+0.3"}, {"ae", "1"}, {"exposure_point", "255"}, {"histogram", "0"},
    {"wb", "custom"}, {"wb_temp", "5600"}, {"color_mode", "black white"}, {"color_mode", "d-log"},
    {"resolution", "2704X1520"}, {"framerate", "120"}, {"ratio", "4:3"}, {"shot_mode", "JPG+RAW"},
    {"video_std", "NTSC"}, {"antiflicker", "50 Hz"}, {"focus_type", "MF"}, {"focus_infinity", "1"},
    {"focus_range", "500"}, {"focus_position", "1"}, {"focus_target", "2"},
    {"focus_point_x", "0.25"}, {"focus_point_y", "-1"}, {"focus_assistants", "3"},
    {"focus_byte32", "9"}, {"digital_zoom", "200"}, {"optical_zoom", "99.5"},
    {"zoom_direction", "-1"}, {"yaw", "-3200"}, {"pitch", "300"}, {"roll", "450"},
    {"gimbal_lock", "locked"}, {"pitch_lock", "1"}, {"smooth_track", "8"}, {"realtime_af", "9"},
    {"horizon_trim", "-450"}, {"calibrations", "2"}, {"gimbal_fault", "133"}, {"camera_flag", "1"},
    {"settings_byte69", "69"}, {"settings_byte100", "100"}, {"resets", "5"},
};
constexpr NamedText kReadOnly[] = {
    {"photo", "none"}, {"rec_time", "0"}, {"rec_time_left", "2400"}, {"shots_left", "7500"},
    {"voltage", "12600"}, {"current", "-1100"}, {"shutter", "1/50"}, {"aperture", "2.8"},
    {"iso", "100"}, {"wifi", "2.4"},
};
constexpr NamedText kRefused[] = {
    {"no_such_name", "1"}, {"iso_set", "125"}, {"iso_set", ""}, {"camera_mode", "Photo"},
    {"exposure_point", "256"}, {"exposure_point", "-1"}, {"exposure_point", "1x"},
    {"battery_level", "101"}, {"battery_level", "nan"}, {"battery_level", ""},
    {"shutter_set", "50"}, {"shutter_set", "1/"}, {"shutter_set", "0\""}, {"shutter_set", "1/50."},
    {"aperture_set", "0"}, {"wb_temp", "30000"}, {"record", "starting"}, {"power", "weak"},
    {"yaw", "3201"}, {"pitch", "301"}, {"gimbal_lock", "1"}, {"gimbal_fault", "256"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Table, Value, testing::ValuesIn(kSettable));
INSTANTIATE_TEST_SUITE_P(Table, ReadOnlyValue, testing::ValuesIn(kReadOnly));
INSTANTIATE_TEST_SUITE_P(Table, RefusedText, testing::ValuesIn(kRefused));

TEST_P(ReadOnlyValue, IsShownAndCannotBeSet) {
    CameraModel model;
    EXPECT_EQ(camera_value(model, GetParam().name), GetParam().text);
    EXPECT_FALSE(set_camera_value(model, GetParam().name, GetParam().text));
}

TEST_P(RefusedText, LeavesTheValueAsItWas) {
    CameraModel model;
    EXPECT_FALSE(set_camera_value(model, GetParam().name, GetParam().text));
    EXPECT_EQ(camera_value(model, GetParam().name), camera_value(CameraModel(), GetParam().name));
}

TEST(Values, AreAllInTheseTables) {
    std::set<std::string> shown = {"record"};
    for (const NamedText& row : kSettable) {
        shown.insert(row.name);
    }
    for (const NamedText& row : kReadOnly) {
        shown.insert(row.name);
    }
    EXPECT_THAT(camera_value_names(), testing::UnorderedElementsAreArray(shown));
}

TEST(Values, RecordingGoesThroughItsPhases) {
    CameraModel model;
    EXPECT_TRUE(set_camera_value(model, "record", "recording"));
    EXPECT_EQ(camera_value(model, "record"), "starting");
    model.advance(milliseconds(2300));
    EXPECT_EQ(camera_value(model, "record"), "recording");
    EXPECT_EQ(camera_value(model, "rec_time"), "2");
    EXPECT_TRUE(set_camera_value(model, "record", "idle"));
    EXPECT_EQ(camera_value(model, "record"), "stopping");
}

TEST(Values, PhotoTellsItsPhases) {
    CameraModel model;
    model.mode = 0;
    model.take_photo();
    EXPECT_EQ(camera_value(model, "photo"), "exposing");
    model.advance(milliseconds(400));
    EXPECT_EQ(camera_value(model, "photo"), "storing");
}

TEST(Values, CodeWithoutAWordIsShownAsItIs) {
    CameraModel model;
    model.model_code = 7;
    EXPECT_EQ(camera_value(model, "camera_model"), "code 7");
}

TEST(Values, AngleThatIsSetStaysThere) {
    CameraModel model;
    model.gimbal.go_to(1000, 0, 0);
    EXPECT_TRUE(set_camera_value(model, "yaw", "100"));
    model.advance(milliseconds(1000));
    EXPECT_EQ(camera_value(model, "yaw"), "100");
}

// -- scripts

using Line = std::tuple<double, ScriptVerb, std::string, std::string, int>;

std::vector<Line> parsed(const std::string& text) {
    std::string error;
    const auto lines = parse_camera_script(text, &error);
    EXPECT_TRUE(lines) << error;
    std::vector<Line> tuples;
    for (const ScriptLine& line : lines.value_or(std::vector<ScriptLine>{})) {
        tuples.emplace_back(line.seconds, line.verb, line.name, line.value, line.number);
    }
    return tuples;
}

TEST(CameraScript, HasSetExpectAndPrint) {
    EXPECT_THAT(parsed("1.5 set iso_set 400\n2 expect wb auto\n3 print iso\n4 print\n"),
                ElementsAre(Line{1.5, ScriptVerb::kSet, "iso_set", "400", 1},
                            Line{2, ScriptVerb::kExpect, "wb", "auto", 2},
                            Line{3, ScriptVerb::kPrint, "iso", "", 3},
                            Line{4, ScriptVerb::kPrint, "", "", 4}));
}

TEST(CameraScript, FaultAndClearAreTheGimbals) {
    EXPECT_THAT(parsed("1 fault\n2 fault 132\n3 clear\n"),
                ElementsAre(Line{1, ScriptVerb::kSet, "gimbal_fault", "133", 1},
                            Line{2, ScriptVerb::kSet, "gimbal_fault", "132", 2},
                            Line{3, ScriptVerb::kSet, "gimbal_fault", "128", 3}));
}

TEST(CameraScript, ValueGoesOnToTheEndOfItsLine) {
    EXPECT_THAT(parsed("0 set color_mode  black white \t\r\n"),
                ElementsAre(Line{0, ScriptVerb::kSet, "color_mode", "black white", 1}));
}

TEST(CameraScript, SkipsEmptyLinesAndComments) {
    EXPECT_THAT(parsed("# a comment\n\n   \n  # another\n5 print"),
                ElementsAre(Line{5, ScriptVerb::kPrint, "", "", 5}));
}

TEST(CameraScript, IsInTheOrderOfItsSeconds) {
    EXPECT_THAT(parsed("3 print iso\n1 print wb\n3 print ev\n"),
                ElementsAre(Line{1, ScriptVerb::kPrint, "wb", "", 2},
                            Line{3, ScriptVerb::kPrint, "iso", "", 1},
                            Line{3, ScriptVerb::kPrint, "ev", "", 3}));
}

struct BadScript {
    const char* text;
    const char* error;
};

void PrintTo(const BadScript& bad, std::ostream* out) {
    *out << bad.error;
}

class CameraScriptLine : public testing::TestWithParam<BadScript> {};

TEST_P(CameraScriptLine, ThatIsWrongIsNamed) {
    std::string error;
    EXPECT_FALSE(parse_camera_script(GetParam().text, &error));
    EXPECT_EQ(error, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Wrong, CameraScriptLine,
    testing::Values(BadScript{"1 print\nset iso 3", "line 2: not SECONDS and what to do"},
                    BadScript{"-1 print", "line 1: not SECONDS and what to do"},
                    BadScript{"1", "line 1: not SECONDS and what to do"},
                    BadScript{"1 dance", "line 1: neither set, expect, print, fault nor clear"},
                    BadScript{"1 set nothing 2", "line 1: no such value"},
                    BadScript{"1 set", "line 1: no such value"},
                    BadScript{"1 print iso wb", "line 1: more than belongs there"},
                    BadScript{"1 clear 3", "line 1: more than belongs there"}));

}  // namespace
