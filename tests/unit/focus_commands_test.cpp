#include "control/focus_commands.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <limits>

#include "app/focus_config.h"
#include "protocol/camera_state.h"
#include "sent_packets.h"

namespace {

constexpr int kLeastInt = std::numeric_limits<std::int32_t>::min();
constexpr int kMostInt = std::numeric_limits<std::int32_t>::max();

CommandRun focus_type(const char* type) {
    return run_command([=] { return camera_set_focus_type(type); });
}

TEST(FocusType, InfinityDrivesTheLensBetweenTwoPauses) {
    next_send_result = 1;
    const CommandRun run = focus_type("inf");
    EXPECT_EQ(sent_and_paused,
              "55 0E 04 66 02 01 00 00 40 02 24 01 EB 33\n"
              "55 0E 04 66 02 01 01 00 40 02 FA 01 EB F2\n"
              "55 0E 04 66 02 01 02 00 40 02 24 00 34 2A\n"
              "pause 20000\n"
              "55 0F 04 A2 02 01 03 00 40 02 95 00 00 82 FE\n"
              "pause 20000\n");
    EXPECT_EQ(run.result, 4);
}

// The remote control goes by the flag: it must not turn back a change that is still on its way.
TEST(FocusType, InfinityIsNotedWhenAllIsDone) {
    static std::string seen;
    camera_state.focus_infinity = 0;
    at_each_step = [] { seen += camera_state.focus_infinity != 0 ? '1' : '0'; };
    for (const char* type : {"inf", "mf", "inf", "af"}) {
        focus_type(type);
        seen += ' ';
    }
    at_each_step = nullptr;
    EXPECT_EQ(seen, "000000 1 000000 11 ");
    camera_state.focus_infinity = 0;
}

TEST(FocusType, InfinityIsNotedAndMfAndAfTakeItBack) {
    for (const char* back : {"mf", "af"}) {
        camera_state.focus_infinity = 0;
        focus_type("inf");
        EXPECT_EQ(camera_state.focus_infinity, 1);
        focus_type(back);
        EXPECT_EQ(camera_state.focus_infinity, 0) << back;
    }
}

TEST(FocusType, AnUnknownWordLeavesTheNoteAlone) {
    camera_state.focus_infinity = 1;
    focus_type("MF");
    EXPECT_EQ(camera_state.focus_infinity, 1);
    camera_state.focus_infinity = 0;
    focus_type("INF");
    EXPECT_EQ(camera_state.focus_infinity, 0);
    EXPECT_EQ(sent_and_paused, "");
}

class ManualFocus : public testing::Test {
  protected:
    // The lens stands somewhere else when a test begins.
    ManualFocus() {
        camera_state = CameraState{};
        set_limits(0, 0);
        set_range(12345);
        run_command([] { return camera_set_manual_focus(100); });
    }

    static void set_limits(std::int32_t least, std::int32_t most) {
        focus_config_get()->mf_min = least;
        focus_config_get()->mf_max = most;
    }

    static void set_range(std::uint16_t range) { camera_state.focus_range = range; }

    static CommandRun set_percent(int percent) {
        return run_command([=] { return camera_set_manual_focus(percent); });
    }

    static std::string log_of(int percent) { return set_percent(percent).log; }
};

TEST_F(ManualFocus, IsThePercentageOfTheRange) {
    set_range(4000);
    next_send_result = 15;
    const CommandRun run = set_percent(50);
    EXPECT_EQ(run.log, "Set manual focus 50% (2000)\n");
    EXPECT_EQ(run.packets, "55 0F 04 A2 02 01 00 00 40 02 95 D0 07 68 7D\n");
    EXPECT_EQ(run.result, 15);
}

TEST_F(ManualFocus, TheSamePositionIsSentOnce) {
    set_range(50);
    EXPECT_EQ(log_of(50), "Set manual focus 50% (25)\n");
    EXPECT_EQ(log_of(50), "");
    const CommandRun run = set_percent(51);
    EXPECT_EQ(run.log, "");
    EXPECT_EQ(run.packets, "");
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(log_of(52), "Set manual focus 52% (26)\n");
    EXPECT_EQ(log_of(50), "Set manual focus 50% (25)\n");
}

TEST_F(ManualFocus, DoesNothingWhileTheCameraFocusesByItself) {
    set_range(4000);
    camera_state.focus_auto = 1;
    const CommandRun run = set_percent(50);
    EXPECT_EQ(run.log + run.packets, "");
    EXPECT_EQ(run.result, 0);
    camera_state.focus_auto = 0;
    EXPECT_EQ(log_of(50), "Set manual focus 50% (2000)\n");
}

TEST_F(ManualFocus, LiesBetweenTheLimits) {
    set_range(1000);
    set_limits(10, 90);
    EXPECT_EQ(log_of(0), "Set manual focus 10% (100)\n");
    EXPECT_EQ(log_of(50), "Set manual focus 50% (500)\n");
    EXPECT_EQ(log_of(100), "Set manual focus 90% (900)\n");
    EXPECT_EQ(log_of(33), "Set manual focus 36% (360)\n");  // 36.4
}

TEST_F(ManualFocus, OneLimitIsEnough) {
    set_range(1000);
    set_limits(0, 50);
    EXPECT_EQ(log_of(100), "Set manual focus 50% (500)\n");
    set_limits(20, 0);
    EXPECT_EQ(log_of(50), "Set manual focus 10% (100)\n");
}

TEST_F(ManualFocus, LimitsMayBeTurnedRound) {
    set_range(1000);
    set_limits(90, 10);
    EXPECT_EQ(log_of(25), "Set manual focus 70% (700)\n");
}

// 100 x (29 x 0.01) would be a little less than 29.
TEST_F(ManualFocus, APercentageOfAWholeRangeIsItself) {
    set_range(1000);
    set_limits(0, 100);
    EXPECT_EQ(log_of(29), "Set manual focus 29% (290)\n");
}

TEST_F(ManualFocus, IsCutTowardsZeroBelowItAsWell) {
    set_range(1000);
    set_limits(-10, 1);
    EXPECT_EQ(log_of(33), "Set manual focus -6% (0)\n");  // -6.37
}

TEST_F(ManualFocus, ThePositionIsReckonedInSinglePrecision) {
    set_range(5);
    EXPECT_EQ(log_of(40), "Set manual focus 40% (1)\n");  // 1.9999999
    set_range(65535);
    EXPECT_EQ(log_of(100), "Set manual focus 100% (65534)\n");  // 65534.996
}

TEST_F(ManualFocus, APositionBeyondTheWordKeepsItsLowHalf) {
    set_range(1000);
    EXPECT_EQ(log_of(6600), "Set manual focus 6600% (464)\n");  // 66000
}

TEST_F(ManualFocus, ExtremeNumbersStopAtTheEnds) {
    set_range(65535);
    set_limits(kLeastInt, kMostInt);
    EXPECT_EQ(log_of(100), "Set manual focus 2147483647% (65535)\n");
    EXPECT_EQ(log_of(kLeastInt), "Set manual focus -2147483648% (0)\n");
    EXPECT_EQ(log_of(kMostInt), "Set manual focus 2147483647% (65535)\n");
}

TEST_F(ManualFocus, TheInfinityPositionIsNotRemembered) {
    set_range(1000);
    log_of(10);
    run_command([] { return camera_set_focus_type("inf"); });
    EXPECT_EQ(log_of(10), "");
}

// In a process of its own, where nothing was sent before.
TEST(ManualFocusDeathTest, StartsAtPositionZero) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    camera_state = CameraState{};
    EXPECT_EXIT(
        {
            camera_state.focus_range = 1000;
            camera_set_manual_focus(0);
            exit(sent_packets.empty() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
