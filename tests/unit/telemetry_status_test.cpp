// Camera status and gimbal fault: the codes' meanings, and what the messages set off.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "protocol/camera_state.h"
#include "telemetry_bytes.h"
#include "telemetry_operations.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kStatus = 50;
constexpr std::size_t kFault = 18;

TEST(TelemetryStatus, RecordPhases) {
    const struct {
        unsigned phase;
        int recording;
        const char* text;
    } phases[] = {{2, 1, "REC"}, {3, 0, "REC stopping"}, {1, 0, "REC starting"}, {0, 0, ""}};
    CameraState state{};
    for (const auto& phase : phases) {
        for (unsigned low_bits = 0; low_bits < 0x40; ++low_bits) {
            decode_bytes(state, kStatus, {{11, phase.phase << 6 | low_bits}});
            EXPECT_EQ(state.recording, phase.recording);
            EXPECT_STREQ(state.record_text, phase.text);
        }
    }
}

TEST(TelemetryStatus, CameraModels) {
    const std::map<unsigned, const char*> models = {{0, "DJI Osmo (X3)"},
                                                    {1, "DJI Osmo Pro (X5)"},
                                                    {5, "DJI Osmo RAW (X5R)"},
                                                    {11, "DJI Osmo+ (Z3)"}};
    for (unsigned code = 0; code < 256; ++code) {
        CameraState state{};
        decode_bytes(state, kStatus, {{44, code}});
        EXPECT_EQ(state.camera_model_code, code);
        EXPECT_STREQ(state.camera_model,
                     models.contains(code) ? models.at(code) : "Unknown camera");
        EXPECT_EQ(state.camera_detected, 1);
    }
}

TEST(TelemetryStatus, OneIsVideoAndEverythingElsePhoto) {
    CameraState state{};
    for (unsigned code = 0; code < 256; ++code) {
        decode_bytes(state, kStatus, {{15, code}});
        EXPECT_EQ(state.camera_mode_code, code);
        EXPECT_STREQ(state.camera_mode, code == 1 ? "video" : "photo");
    }
}

TEST(TelemetryStatus, NoFreeSpaceEmptiesItsText) {
    CameraState state{};
    decode_bytes(state, kStatus, {{23, 0x01}});
    EXPECT_STREQ(state.sd, "16777.2G");
    decode_bytes(state, kStatus, {});
    EXPECT_STREQ(state.sd, "");
    decode_bytes(state, kStatus, {{20, 1}});
    EXPECT_STREQ(state.sd, "0.0G");
}

// 850 x 0.001 lies above 0.85 in single precision and below it in double precision.
TEST(TelemetryStatus, FreeSpaceIsASingle) {
    CameraState state{};
    decode_bytes(state, kStatus, {{20, 0x52}, {21, 0x03}});  // 850
    EXPECT_STREQ(state.sd, "0.9G");
}

TEST(TelemetryStatus, RecordingTimes) {
    CameraState state{};
    decode_bytes(state, kStatus, {{40, 0x8D}, {41, 0x0E}, {28, 0xA0}, {29, 0x8C}});
    EXPECT_STREQ(state.rec_time, "01:02:05");
    EXPECT_STREQ(state.rec_time_left, "10:00:00");
}

TEST(TelemetryStatus, BusyText) {
    operations.clear();
    CameraState state{};
    const struct {
        unsigned byte13;
        unsigned byte11;
        const char* text;
    } cases[] = {
        {0x00, 0x00, ""},     {0x00, 0x08, "SHOT"}, {0x08, 0x00, "BUSY"}, {0x08, 0x08, "BUSY"},
        {0x10, 0x00, "LOOP"}, {0x10, 0x08, "LOOP"}, {0x18, 0x00, "LOOP"}, {0x18, 0x08, "LOOP"},
        {0xE7, 0xF7, ""},     {0xE7, 0xFF, "SHOT"}, {0xEF, 0xF7, "BUSY"}, {0xFF, 0xFF, "LOOP"},
    };
    for (const auto& c : cases) {
        decode_bytes(state, kStatus, {{11, c.byte11}, {13, c.byte13}, {42, 0x01}});
        EXPECT_STREQ(state.busy_text, c.text) << c.byte13 << " " << c.byte11;
        EXPECT_EQ(state.busy, c.text[0] != '\0' ? 1 : 0) << c.byte13 << " " << c.byte11;
    }
    EXPECT_THAT(operations, IsEmpty());
}

TEST(TelemetryStatus, StopsOnlyABusyCameraThatNeitherShootsNorRecords) {
    CameraState state{};
    for (unsigned bits = 0; bits < 8; ++bits) {
        const bool busy = (bits & 1) != 0;
        const bool shoots = (bits & 2) != 0;
        const bool records = (bits & 4) != 0;
        const bool stops = busy && !shoots && !records;
        for (const bool others : {false, true}) {  // the other bits of the three bytes
            operations.clear();
            decode_bytes(state, kStatus,
                         {{11, (records ? 0x20U : 0) | (others ? 0xDFU : 0)},
                          {13, (busy ? 0x08U : 0) | (others ? 0xF7U : 0)},
                          {42, (shoots ? 0x01U : 0) | (others ? 0xFEU : 0)}});
            EXPECT_EQ(operations.size(), stops ? 1U : 0U) << bits << others;
        }
    }
}

TEST(TelemetryStatus, EveryMessageOfAHungCameraStopsItAgain) {
    CameraState state{};
    operations.clear();
    decode_bytes(state, 49, {{13, 0x08}});
    decode_bytes(state, 50, {{13, 0x08}});
    EXPECT_THAT(operations, ElementsAre("camera_stop_shooting", "camera_stop_shooting"));
}

TEST(TelemetryStatus, TheStopFindsTheFlagsAndTheBusyTextFollowsIt) {
    CameraState state{};
    operations.clear();
    during_stop = [&state] {
        EXPECT_EQ(state.status_flags, 0x08);
        EXPECT_EQ(state.busy_bit, 1);
        EXPECT_STREQ(state.busy_text, "");
        state.loop_bit = 1;
    };
    decode_bytes(state, kStatus, {{13, 0x08}});
    during_stop = nullptr;
    EXPECT_THAT(operations, ElementsAre("camera_stop_shooting"));
    EXPECT_STREQ(state.busy_text, "LOOP");
}

// All three flags are looked at again after the stop, not taken from the message.
TEST(TelemetryStatus, BusyTextIsOfTheFlagsAsTheStopLeavesThem) {
    CameraState state{};
    during_stop = [&state] { state.status_flags = 0x00; };
    decode_bytes(state, kStatus, {{13, 0x08}});
    EXPECT_STREQ(state.busy_text, "");
    EXPECT_EQ(state.busy, 0);
    during_stop = [&state] {
        state.status_flags = 0x00;
        state.record_state = 0x08;
    };
    decode_bytes(state, kStatus, {{13, 0x08}});
    during_stop = nullptr;
    EXPECT_STREQ(state.busy_text, "SHOT");
    EXPECT_EQ(state.busy, 1);
}

// What a fault message of that type byte and code prints; what it calls is in `operations`.
std::string fault(CameraState& state, unsigned type, unsigned code) {
    operations.clear();
    testing::internal::CaptureStderr();
    decode_bytes(state, kFault, {{8, type}, {12, code}});
    return testing::internal::GetCapturedStderr();
}

TEST(GimbalFault, OddCodesAnd84hRestartTheCamera) {
    for (unsigned code = 0; code < 256; ++code) {
        CameraState state{};
        const bool restarts = code % 2 == 1 || code == 0x84;
        EXPECT_EQ(fault(state, 0, code), restarts ? "gimbal error\n" : "") << code;
        EXPECT_EQ(state.gimbal_error, restarts ? 1 : 0) << code;
        EXPECT_EQ(operations.size(), restarts ? 1U : 0U) << code;
    }
}

TEST(GimbalFault, Only80hTakesItBackAndSilently) {
    for (unsigned code = 0; code < 256; code += 2) {
        CameraState state{};
        state.gimbal_error = 1;
        EXPECT_EQ(fault(state, 0, code), code == 0x80 ? "" : "gimbal error\n") << code;
        EXPECT_EQ(state.gimbal_error, code == 0x80 ? 0 : 1) << code;
    }
}

TEST(GimbalFault, ComesAndGoes) {
    CameraState state{};
    EXPECT_EQ(fault(state, 0, 0x85), "gimbal error\n");
    EXPECT_THAT(operations, ElementsAre("camera_power restart"));
    EXPECT_EQ(fault(state, 0, 0x85), "gimbal error\n");
    EXPECT_THAT(operations, ElementsAre("camera_power restart"));
    EXPECT_EQ(fault(state, 0, 0x80), "");
    EXPECT_THAT(operations, IsEmpty());
    EXPECT_EQ(state.gimbal_error, 0);
}

TEST(GimbalFault, OtherMessagesOfItsLengthRepeatTheLineAlone) {
    CameraState state{};
    fault(state, 0, 0x85);
    for (const unsigned code : {0x80U, 0x85U, 0x00U}) {
        EXPECT_EQ(fault(state, 0x40, code), "gimbal error\n");
        EXPECT_THAT(operations, IsEmpty());
        EXPECT_EQ(state.gimbal_error, 1);
    }
}

TEST(GimbalFault, LineFollowsTheRestart) {
    CameraState state{};
    testing::internal::CaptureStderr();
    operations.clear();
    decode_bytes(state, kFault, {{12, 0x84}});
    EXPECT_THAT(operations, ElementsAre("camera_power restart"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "gimbal error\n");
}

}  // namespace
