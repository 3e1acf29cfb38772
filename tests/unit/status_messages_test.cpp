// The simulated camera's messages: their bytes, and when they come.
#include "simulator/status_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hex_bytes.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint16_t kSequence = 0x0102;

std::string encoded(Message message, const CameraModel& model) {
    return hex_of_bytes(encode_message(message, model, kSequence));
}

TEST(StatusMessage, AttitudeIsPitchRollYawAndTheLock) {
    CameraModel model;
    model.gimbal.pitch.angle = -123;
    model.gimbal.roll.angle = 40;
    model.gimbal.horizon_trim = 5;
    model.gimbal.yaw.angle = 1234;
    model.gimbal.orientation_locked = true;
    EXPECT_EQ(encoded(Message::kAttitude, model),
              "55 19 04 E4 "  // start, length 25, version, header check
              "04 02 02 01 "  // from the gimbal, to the application, sequence
              "00 04 05 "     // message, gimbal set, attitude
              "85 FF 2D 00 D2 04 01 00 00 00 00 00 "
              "FC 43");
}

TEST(StatusMessage, AngleIsRoundedToATenthOfADegree) {
    CameraModel model;
    model.gimbal.yaw.angle = -0.6;
    EXPECT_EQ(encode_message(Message::kAttitude, model, 0)[15], 0xFF);
}

TEST(StatusMessage, StatusOfARecordingCamera) {
    CameraModel model;
    model.model_code = 11;
    model.start_recording();
    model.advance(milliseconds(300 + 62000));
    model.card_free = 12345;
    model.photo_format = 2;
    model.stuck = 1;
    model.loop = 1;
    EXPECT_EQ(encoded(Message::kStatus, model),
              "55 32 04 06 "
              "01 02 02 01 "
              "00 02 80 "
              "80 00 18 00 01 00 00 00 00 39 30 00 00 44 01 00 00 A5 09 00 "
              "00 00 00 00 00 00 00 00 00 3E 00 00 00 0B 00 00 00 "
              "E2 2D");
}

TEST(StatusMessage, StatusOfACameraThatTakesAPhoto) {
    CameraModel model;
    model.model_code = 0;
    model.mode = 0;
    model.take_photo();
    EXPECT_EQ(encoded(Message::kStatus, model),
              "55 32 04 06 "
              "01 02 02 01 "
              "00 02 80 "
              "28 00 00 00 00 00 00 00 00 60 EA 00 00 4C 1D 00 00 E0 2E 00 "
              "00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00 00 "
              "AF FB");
}

TEST(StatusMessage, SettingsAreWhatIsSetAndWhatTheExposureMakesOfIt) {
    CameraModel model;
    model.shutter_set = shutter_fraction(1, 25);
    model.iso_code = 8;
    model.ev_code = 13;
    model.ratio = 1;
    model.photo_format = 2;
    model.resolution = 24;
    model.frame_rate = 6;
    model.image_mode = kAperturePriority;
    model.white_balance = 5;
    model.white_balance_hundreds = 56;
    model.color = 19;
    model.antiflicker = 2;
    model.aperture_set = 560;
    model.video_standard = 1;
    model.ae_locked = 1;
    model.settings_byte69 = 0x69;
    model.settings_byte100 = 0xA0;
    EXPECT_EQ(encoded(Message::kSettings, model),
              "55 68 04 96 "
              "01 02 02 01 "
              "00 02 81 "
              "00 00 01 80 19 08 0D 00 00 00 01 00 02 18 06 00 00 00 00 00 "
              "03 00 00 05 38 00 00 00 00 00 00 13 02 00 00 00 00 00 30 02 "
              "64 80 00 80 0C 00 00 00 00 00 00 00 00 00 00 01 01 00 69 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 A0 00 "
              "B3 26");
}

TEST(StatusMessage, FocusHasItsPointAsTwoSingles) {
    CameraModel model;
    model.focus_auto = 0;
    model.focus_range = 0x0A0B;
    model.focus_position = 0x0123;
    model.focus_point_x = 0.25;
    model.focus_point_y = 0.75;
    model.focus_byte32 = 7;
    model.focus_assistants = kAutoFocusAssistant;
    EXPECT_EQ(encoded(Message::kFocus, model),
              "55 3B 04 B4 "
              "01 02 02 01 "
              "00 02 82 "
              "00 0B 0A 23 01 00 00 00 00 00 00 00 00 00 00 80 3E 00 00 40 "
              "3F 07 00 00 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 00 "
              "00 00 00 00 00 00 "
              "EC F8");
}

TEST(StatusMessage, ParameterBlockIsTheHistogram) {
    CameraModel model;
    model.ev_code = 13;  // a stop darker: the hill's top at bin 26
    EXPECT_EQ(encoded(Message::kParameters, model),
              "55 4D 04 A8 "
              "01 02 02 01 "
              "00 02 83 "
              "00 00 00 00 00 00 00 0A 14 1E 28 32 3C 46 50 5A 64 6E 78 82 "
              "8C 96 A0 AA B4 BE C8 BE B4 AA A0 96 8C 82 78 6E 64 5A 50 46 "
              "3C 32 28 1E 14 0A 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "00 00 00 00 "
              "AC E8");
}

TEST(StatusMessage, BatteryIsPercentMillivoltAndMilliampere) {
    CameraModel model;
    model.battery_percent = 42;
    EXPECT_EQ(encoded(Message::kBattery, model),
              "55 34 04 AC "
              "01 02 02 01 "
              "00 02 84 "
              "2A 6C 2A 00 00 00 00 00 00 00 00 00 00 00 B4 FB 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "7F 82");
}

TEST(StatusMessage, DriveSpaceHasThreeBytes) {
    CameraModel model;
    model.drive_free = 0x123456;
    EXPECT_EQ(encoded(Message::kDrive, model),
              "55 16 04 FC 01 02 02 01 00 02 85 00 00 00 56 34 12 00 00 00 73 31");
}

TEST(StatusMessage, AuxiliaryWordsAreBothZooms) {
    CameraModel model;
    model.digital_zoom = 150;
    model.optical_zoom = 33.4;
    EXPECT_EQ(encoded(Message::kAuxiliary, model),
              "55 13 04 03 01 02 02 01 00 02 86 96 00 21 00 00 00 F9 CB");
}

TEST(StatusMessage, CameraFlagIsOfSetNine) {
    CameraModel model;
    model.camera_flag = 1;
    EXPECT_EQ(encoded(Message::kCameraFlag, model), "55 0F 04 A2 01 02 02 01 00 09 52 01 00 DB A7");
}

TEST(StatusMessage, GimbalFaultIsItsSecondByte) {
    CameraModel model;
    model.gimbal.fault = 0x85;
    EXPECT_EQ(encoded(Message::kGimbalFault, model),
              "55 12 04 C7 04 02 02 01 00 04 06 00 85 00 00 00 6F A4");
}

// -- when they come

// The lengths of the packets that lie behind each other: by them the receiver tells them apart.
std::vector<int> lengths(const Bytes& packets) {
    std::vector<int> all;
    for (std::size_t at = 0; at < packets.size(); at += packets[at + 1]) {
        all.push_back(packets[at + 1]);
    }
    return all;
}

class Schedule : public testing::Test {
  protected:
    // How often a message of that length comes in the next ten seconds, looked at in such steps.
    unsigned count_in_ten_seconds(int length, milliseconds step = milliseconds(5)) {
        unsigned count = 0;
        for (const milliseconds end = now + milliseconds(10000); now < end; now += step) {
            for (const int each : lengths(schedule.due(model, now))) {
                count += each == length ? 1 : 0;
            }
        }
        return count;
    }

    CameraModel model;
    MessageSchedule schedule;
    milliseconds now{0};
};

TEST_F(Schedule, BeginsWithOneOfEachButTheFault) {
    EXPECT_THAT(lengths(schedule.due(model, now)),
                ElementsAre(25, 50, 104, 59, 77, 52, 22, 19, 15));
    EXPECT_THAT(schedule.due(model, now), IsEmpty());
}

TEST_F(Schedule, NumbersItsPackets) {
    const Bytes packets = schedule.due(model, now);
    EXPECT_EQ(packets[6], 0);
    EXPECT_EQ(packets[25 + 6], 1);
    EXPECT_EQ(packets[25 + 50 + 6], 2);
}

struct Rate {
    const char* name;
    int length;
    unsigned in_ten_seconds;
};

void PrintTo(const Rate& rate, std::ostream* out) {
    *out << rate.name;
}

class ScheduleRate : public Schedule, public testing::WithParamInterface<Rate> {};

TEST_P(ScheduleRate, IsKept) {
    EXPECT_EQ(count_in_ten_seconds(GetParam().length), GetParam().in_ten_seconds);
}

TEST_P(ScheduleRate, IsKeptOnAverageByOneWhoLooksAtOtherTimes) {
    EXPECT_NEAR(count_in_ten_seconds(GetParam().length, milliseconds(7)), GetParam().in_ten_seconds,
                1);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Messages, ScheduleRate, testing::Values(
    Rate{"Attitude",       25, 200},
    Rate{"Status",         50, 100},
    Rate{"Settings",      104,  50},
    Rate{"Focus",          59,  50},
    Rate{"ParameterBlock", 77,  50},
    Rate{"Battery",        52,  10},
    Rate{"Drive",          22,  10},
    Rate{"Auxiliary",      19,  10},
    Rate{"CameraFlag",     15,  10},
    Rate{"GimbalFault",    18,   0}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(Schedule, CatchesNothingUp) {
    schedule.due(model, milliseconds(0));
    EXPECT_THAT(lengths(schedule.due(model, milliseconds(60000))),
                ElementsAre(25, 50, 104, 59, 77, 52, 22, 19, 15));
    EXPECT_THAT(lengths(schedule.due(model, milliseconds(60001))), IsEmpty());
}

TEST_F(Schedule, SendsNothingWhileTheCameraSleeps) {
    model.sleep();
    EXPECT_THAT(schedule.due(model, milliseconds(1000)), IsEmpty());
    model.wake_up();
    EXPECT_THAT(lengths(schedule.due(model, milliseconds(1000))), testing::Contains(25));
}

TEST_F(Schedule, LeavesTheParameterBlockOutWithoutAHistogram) {
    model.histogram = 0;
    EXPECT_EQ(count_in_ten_seconds(77), 0U);
}

TEST_F(Schedule, TellsAFaultAtOnceThenEachSecondAndOnceWhenItIsGone) {
    schedule.due(model, milliseconds(0));
    model.gimbal.fault = 0x85;
    EXPECT_THAT(lengths(schedule.due(model, milliseconds(10))), ElementsAre(18));
    now = milliseconds(1010);
    EXPECT_EQ(count_in_ten_seconds(18), 10U);
    model.gimbal.fault = GimbalModel::kNoFault;
    const Bytes packets = schedule.due(model, now);
    EXPECT_EQ(packets[packets.size() - 18 + 12], 0x80);
    EXPECT_EQ(count_in_ten_seconds(18), 0U);
}

TEST_F(Schedule, BeginsAgainWithANewLink) {
    schedule.due(model, milliseconds(500));
    schedule.restart();
    const Bytes packets = schedule.due(model, milliseconds(0));
    EXPECT_THAT(lengths(packets), ElementsAre(25, 50, 104, 59, 77, 52, 22, 19, 15));
    EXPECT_EQ(packets[6], 0);
}

TEST_F(Schedule, TellsAFaultThatOutlastsTheLinkAgain) {
    model.gimbal.fault = 0x85;
    schedule.due(model, milliseconds(500));
    schedule.restart();
    EXPECT_THAT(lengths(schedule.due(model, milliseconds(0))), testing::Contains(18));
}

}  // namespace
