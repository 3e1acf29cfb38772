// The simulated camera and the receiver understand each other: what the one encodes the other
// decodes, and each packet that the receiver builds is a command that the camera knows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hex_bytes.h"
#include "protocol/camera_packet.h"
#include "protocol/camera_state.h"
#include "protocol/telemetry_decode.h"
#include "simulator/camera_commands.h"
#include "simulator/camera_values.h"
#include "simulator/status_messages.h"
#include "tests/cases/command_packets.h"

namespace {

using std::chrono::milliseconds;
using testing::IsEmpty;

class Decoded : public testing::Test {
  protected:
    // The camera is told twice: the shutter's setting is shown by the message after it.
    void tell() {
        for (std::uint8_t i = 0; i < kMessageCount - 1; ++i) {
            const Bytes packet = encode_message(static_cast<Message>(i), model, i);
            telemetry_decode(&state, packet.data(), packet.size());
            telemetry_decode(&state, packet.data(), packet.size());
        }
    }

    CameraModel model;
    CameraState state{};
};

struct SameText {
    const char* name;
    const char* text;   // as the model's value
    const char* shown;  // as the receiver's text
    std::string (*field)(const CameraState&);
};

void PrintTo(const SameText& row, std::ostream* out) {
    *out << row.name << " " << row.text;
}

class DecodedText : public Decoded, public testing::WithParamInterface<SameText> {};

TEST_P(DecodedText, IsTheModelsValue) {
    ASSERT_TRUE(set_camera_value(model, GetParam().name, GetParam().text));
    tell();
    EXPECT_EQ(GetParam().field(state), GetParam().shown);
}

#define TEXT(field) [](const CameraState& state) { return std::string(state.field); }
#define NUMBER(field) [](const CameraState& state) { return std::to_string(state.field.load()); }

// clang-format off
INSTANTIATE_TEST_SUITE_P(Values, DecodedText, testing::Values(
    SameText{"camera_model",    "X3",           "DJI Osmo (X3)",      TEXT(camera_model)},
    SameText{"camera_model",    "X5",           "DJI Osmo Pro (X5)",  TEXT(camera_model)},
    SameText{"camera_model",    "X5R",          "DJI Osmo RAW (X5R)", TEXT(camera_model)},
    SameText{"camera_model",    "Z3",           "DJI Osmo+ (Z3)",     TEXT(camera_model)},
    SameText{"camera_mode",     "photo",        "photo",              TEXT(camera_mode)},
    SameText{"camera_mode",     "video",        "video",              TEXT(camera_mode)},
    SameText{"gimbal_lock",     "locked",       "locked",             TEXT(gimbal_lock)},
    SameText{"gimbal_lock",     "unlocked",     "unlocked",           TEXT(gimbal_lock)},
    SameText{"yaw",             "-1234",        "-1234",              NUMBER(yaw)},
    SameText{"pitch",           "-567",         "-567",               NUMBER(pitch)},
    SameText{"roll",            "89",           "89",                 NUMBER(roll)},
    SameText{"sd",              "12300",        "12.3G",              TEXT(sd)},
    SameText{"sd",              "0",            "",                   TEXT(sd)},
    SameText{"ssd",             "10240",        "10.0G",              TEXT(ssd)},
    SameText{"battery_level",   "42",           "42",                 NUMBER(battery_level)},
    SameText{"battery_level",   "42",           "10860",              NUMBER(voltage)},
    SameText{"battery_level",   "42",           "-1100",              NUMBER(current)},
    SameText{"record",          "recording",    "REC starting",       TEXT(record_text)},
    SameText{"loop",            "1",            "LOOP",               TEXT(busy_text)},
    SameText{"image_mode",      "auto",         "auto",               TEXT(image_mode)},
    SameText{"image_mode",      "shutter",      "shutter",            TEXT(image_mode)},
    SameText{"image_mode",      "aperture",     "aperture",           TEXT(image_mode)},
    SameText{"image_mode",      "manual",       "manual",             TEXT(image_mode)},
    SameText{"shutter_set",     "1/8000",       "1/8000",             TEXT(shutter)},
    SameText{"shutter_set",     "1/1.67",       "1/1.67",             TEXT(shutter_set)},
    SameText{"shutter_set",     "2.5\"",        "2.5\"",              TEXT(shutter)},
    SameText{"shutter_set",     "8\"",          "8\"",                TEXT(shutter_set)},
    SameText{"aperture_set",    "1.7",          "1.7",                TEXT(aperture)},
    SameText{"aperture_set",    "16",           "16",                 TEXT(aperture)},
    SameText{"iso_set",         "auto",         "auto",               TEXT(iso_set)},
    SameText{"iso_set",         "1600",         "1600",               TEXT(iso_set)},
    SameText{"iso_set",         "6400",         "6400",               NUMBER(iso)},
    SameText{"ev",              "-3.0",         "-3.0",               TEXT(ev)},
    SameText{"ev",              "0",            "0",                  TEXT(ev)},
    SameText{"ev",              "+2.7",         "+2.7",               TEXT(ev)},
    SameText{"ae",              "1",            "1",                  NUMBER(ae)},
    SameText{"wb",              "cloudy",       "cloudy",             TEXT(wb)},
    SameText{"wb",              "neon",         "neon",               TEXT(wb)},
    SameText{"wb",              "custom",       "custom",             TEXT(wb)},
    SameText{"wb_temp",         "5600",         "5600.000000",        NUMBER(wb_temp)},
    SameText{"color_mode",      "none",         "none",               TEXT(color_mode)},
    SameText{"color_mode",      "art",          "none",               TEXT(color_mode)},  // no code of it
    SameText{"color_mode",      "black white",  "black white",        TEXT(color_mode)},
    SameText{"color_mode",      "d-log",        "d-log",              TEXT(color_mode)},
    SameText{"color_mode",      "d-clike",      "d-clike",            TEXT(color_mode)},
    SameText{"resolution",      "1280x720",     "1280x720",           TEXT(resolution)},
    SameText{"resolution",      "1920x1080",    "1920x1080",          TEXT(resolution)},
    SameText{"resolution",      "2704X1520",    "2704X1520",          TEXT(resolution)},
    SameText{"resolution",      "3840x2160",    "3840x2160",          TEXT(resolution)},
    SameText{"resolution",      "4096x2160",    "4096x2160",          TEXT(resolution)},
    SameText{"framerate",       "24",           "24",                 TEXT(framerate)},
    SameText{"framerate",       "120",          "120",                TEXT(framerate)},
    SameText{"ratio",           "4:3",          "4:3",                TEXT(ratio)},
    SameText{"ratio",           "16:9",         "16:9",               TEXT(ratio)},
    SameText{"shot_mode",       "RAW",          "RAW",                TEXT(shot_mode)},
    SameText{"shot_mode",       "JPG+RAW",      "JPG+RAW",            TEXT(shot_mode)},
    SameText{"video_std",       "NTSC",         "NTSC",               TEXT(video_std)},
    SameText{"antiflicker",     "50 Hz",        "50 Hz",              TEXT(antiflicker)},
    SameText{"antiflicker",     "auto",         "auto",               TEXT(antiflicker)},
    SameText{"focus_type",      "MF",           "MF",                 TEXT(focus_type)},
    SameText{"focus_type",      "AF",           "AF",                 TEXT(focus_type)},
    SameText{"focus_range",     "1234",         "1234",               NUMBER(focus_range)},
    SameText{"focus_position",  "250",          "25.000000",          NUMBER(focus_percent)},
    SameText{"focus_point_x",   "0.25",         "0.250000",           NUMBER(focus_point_x)},
    SameText{"focus_point_y",   "0.75",         "0.750000",           NUMBER(focus_point_y)},
    SameText{"focus_assistants", "3",           "3",                  NUMBER(focus_byte42)},
    SameText{"focus_byte32",    "9",            "9",                  NUMBER(focus_byte32)},
    SameText{"digital_zoom",    "150",          "150",                NUMBER(aux_word0)},
    SameText{"optical_zoom",    "33",           "33",                 NUMBER(aux_word1)},
    SameText{"camera_flag",     "1",            "1",                  NUMBER(camera_flag)},
    SameText{"settings_byte69", "69",           "69",                 NUMBER(settings_byte69)},
    SameText{"settings_byte100", "100",         "100",                NUMBER(settings_byte100)}));
// clang-format on

TEST_F(Decoded, RecordingTimesAreClockTexts) {
    model.start_recording();
    model.advance(milliseconds(300 + 65000));
    model.drive_free = 0;
    model.card_free = 5 * 3725;
    tell();
    EXPECT_STREQ(state.record_text, "REC");
    EXPECT_STREQ(state.rec_time, "00:01:05");
    EXPECT_STREQ(state.rec_time_left, "01:02:05");
    EXPECT_EQ(state.shots_left.load(), 2328U);
}

// The camera would be stopped for being busy without a photo.
TEST_F(Decoded, PhotoIsShotThenBusyAndNeverStopped) {
    const std::uint16_t built = camera_packet_seq;
    model.mode = 0;
    model.take_photo();
    tell();
    EXPECT_STREQ(state.busy_text, "SHOT");
    model.advance(milliseconds(400));
    tell();
    EXPECT_STREQ(state.busy_text, "BUSY");
    EXPECT_EQ(camera_packet_seq, built);
}

TEST_F(Decoded, StuckCameraIsStopped) {
    const std::uint16_t built = camera_packet_seq;
    model.stuck = 1;
    const Bytes packet = encode_message(Message::kStatus, model, 0);
    telemetry_decode(&state, packet.data(), packet.size());
    EXPECT_EQ(camera_packet_seq, built + 2);
}

TEST_F(Decoded, ParameterBlockIsTheHistogram) {
    tell();
    EXPECT_EQ(hex_of_bytes(state.params_block), hex_of_bytes(model.histogram_bins()));
}

TEST_F(Decoded, FaultIsSetAndCleared) {
    testing::internal::CaptureStderr();
    for (const int fault : {0x85, GimbalModel::kNoFault}) {
        model.gimbal.fault = fault;
        const Bytes packet = encode_message(Message::kGimbalFault, model, 0);
        telemetry_decode(&state, packet.data(), packet.size());
        EXPECT_EQ(state.gimbal_error.load(), fault == 0x85 ? 1 : 0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "gimbal error\n");
}

// -- the other way

TEST(ReceiversPackets, AreAllCommandsThatTheCameraKnows) {
    CameraModel model;
    CommandReceiver receiver(model);
    std::vector<std::string> refused;
    for (const CommandCase& each : command_cases()) {
        receiver.link_begins();  // each case has its packets numbered from 0
        std::istringstream packets(each.packets);
        for (std::string packet; std::getline(packets, packet);) {
            if (const auto reason = receiver.take(bytes_of_hex(packet))) {
                refused.push_back(each.name + ": " + refusal_name(*reason) + ": " + packet);
            }
            model.wake_up();
        }
    }
    EXPECT_THAT(refused, IsEmpty());
    std::vector<std::string> never_sent;
    for (const std::string& name : command_names()) {
        if (!receiver.counts().taken.contains(name)) {
            never_sent.push_back(name);
        }
    }
    EXPECT_THAT(never_sent, IsEmpty());
}

}  // namespace
