// Every command: what it logs, what it sends, what it returns.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sent_packets.h"
#include "tests/cases/command_packets.h"

namespace {

constexpr int kFirstSendResult = 1000;

void expect_case(const CommandCase& expected) {
    SCOPED_TRACE(expected.name);
    camera_state = CameraState{};
    next_send_result = kFirstSendResult;
    const CommandRun run = run_command(expected.run);
    EXPECT_EQ(camera_state.digital_zoom_level, 0) << "which is the remote control's to change";
    EXPECT_EQ(run.log, expected.log);
    EXPECT_EQ(run.packets, expected.packets);
    if (expected.log != "Camera set focus type inf\n") {
        EXPECT_EQ(sent_and_paused, expected.packets) << "rests between its packets";
    }
    if (expected.packets.empty()) {
        EXPECT_NE(run.result, 0);
    } else {
        EXPECT_EQ(run.result, next_send_result - 1) << "is not that of the last packet";
    }
}

TEST(AllCommands, LogAndSendWhatTheirCasesShow) {
    for (const CommandCase& expected : command_cases()) {
        expect_case(expected);
    }
}

TEST(AllCommands, LogTheirLineBeforeTheySend) {
    at_each_step = [] { fputs("[step]", stderr); };
    for (const CommandCase& expected : command_cases()) {
        camera_state = CameraState{};
        const std::string printed = run_command(expected.run).log;
        EXPECT_EQ(printed.substr(0, printed.find('[')), expected.log) << expected.name;
    }
    at_each_step = nullptr;
}

TEST(AllCommands, ReturnTheFailureOfTheLastPacket) {
    next_send_result = -1;
    EXPECT_EQ(run_command(camera_shot).result, -1);
    next_send_result = -2;
    EXPECT_EQ(run_command(camera_stop_shooting).result, -1);
}

int set_wb(const char* mode) {
    return camera_set_wb(mode, "");
}

int set_focus_assistant(const char* assistant) {
    return camera_set_focus_assistant(assistant, 1);
}

// The words lie between the last word of their table and its others, so that the sign of the result
// tells with which of them the word was compared last.
TEST(AllCommands, AnUnknownWordReturnsItsComparisonWithTheLastOne) {
    struct UnknownWord {
        const char* name;
        int (*run)(const char* word);
        const char* word;
        bool is_before_last;
    };
    const UnknownWord unknown_words[] = {
        {"camera_set_mode", camera_set_mode, "s", true},
        {"gimbal_set_position", gimbal_set_position, "p", true},
        {"gimbal_orientation_lock", gimbal_orientation_lock, "m", true},
        {"gimbal_pitch_lock", gimbal_pitch_lock, "m", true},
        {"camera_set_focus_assistant", set_focus_assistant, "b", true},
        {"camera_format", camera_format, "se", true},
        {"camera_set_image_mode", camera_set_image_mode, "b", true},
        {"camera_set_shot_mode", camera_set_shot_mode, "jpg+", true},
        {"gimbal_horizon", gimbal_horizon, "cc", false},
        {"camera_set_focus_type", camera_set_focus_type, "j", false},
        {"camera_set_histogram", camera_set_histogram, "00", false},
        {"camera_power", camera_power, "si", false},
        {"camera_set_wb", set_wb, "d", false},
        {"camera_set_aspect_ratio", camera_set_aspect_ratio, "2", false},
        {"camera_set_video_standard", camera_set_video_standard, "O", false},
    };
    for (const UnknownWord& unknown : unknown_words) {
        const int result = run_command([&] { return unknown.run(unknown.word); }).result;
        EXPECT_TRUE(unknown.is_before_last ? result < 0 : result > 0) << unknown.name;
    }
}

TEST(AllCommands, AnUnknownWordTakesNoSequenceNumber) {
    run_command([] { return camera_set_mode("none of them"); }, 7);
    EXPECT_EQ(camera_packet_seq, 7);
}

}  // namespace
