// The remote control's sticks: what a cycle sends to the gimbal in each of the two modes.
#include <gtest/gtest.h>

#include <string>

#include "rc_mapper_fixture.h"

namespace {

using RcSticks = RcMapperTest;

const std::string kStopSpeed =
    "gimbal_set_speed(0,0,0)\ngimbal_set_speed(0,0,0)\ngimbal_set_speed(0,0,0)\n";
const std::string kStopPosition =
    "gimbal_set_abs_position(0,0,0)\ngimbal_set_abs_position(0,0,0)\n"
    "gimbal_set_abs_position(0,0,0)\n";

TEST_F(RcSticks, SpeedIsSentEveryCycleAsItIs) {
    gimbal_movement_mode = kMovementRelative;
    set_channel(kPan, 0.25);
    set_channel(kTilt, -0.5);
    set_channel(kDutch, 1.75);
    EXPECT_EQ(cycles(2), "gimbal_set_speed(0.25,-0.5,1.75)\ngimbal_set_speed(0.25,-0.5,1.75)\n");
}

TEST_F(RcSticks, PositionIsSentEveryCycleAsItIs) {
    gimbal_movement_mode = kMovementAbsolute;
    set_channel(kPan, 0.25);
    set_channel(kTilt, -0.5);
    set_channel(kDutch, 1.75);
    EXPECT_EQ(cycles(2),
              "gimbal_set_abs_position(0.25,-0.5,1.75)\ngimbal_set_abs_position(0.25,-0.5,1.75)\n");
}

TEST_F(RcSticks, AnyStickMoves) {
    gimbal_movement_mode = kMovementRelative;
    EXPECT_EQ(cycle_with(kPan, 1.0), "gimbal_set_speed(1,0,0)\n");
    set_channel(kPan, 0.0);
    EXPECT_EQ(cycle_with(kTilt, 1.0), "gimbal_set_speed(0,1,0)\n");
    set_channel(kTilt, 0.0);
    EXPECT_EQ(cycle_with(kDutch, 1.0), "gimbal_set_speed(0,0,1)\n");
}

TEST_F(RcSticks, SmallestDeflectionMoves) {
    gimbal_movement_mode = kMovementAbsolute;
    EXPECT_EQ(cycle_with(kTilt, -kSmallest), "gimbal_set_abs_position(0,-4.94065646e-324,0)\n");
}

TEST_F(RcSticks, WhatIsNoNumberIsNotAtRest) {
    gimbal_movement_mode = kMovementRelative;
    EXPECT_EQ(cycle_with(kPan, kNoNumber), "gimbal_set_speed(nan,0,0)\n");
}

TEST_F(RcSticks, ReleaseStopsTheSpeedThreeTimes) {
    gimbal_movement_mode = kMovementRelative;
    cycle_with(kPan, 1.0);
    EXPECT_EQ(cycle_with(kPan, 0.0), kStopSpeed);
    EXPECT_EQ(cycles(3), "");
}

TEST_F(RcSticks, ReleaseSendsTheMiddlePositionThreeTimes) {
    gimbal_movement_mode = kMovementAbsolute;
    cycle_with(kPan, 1.0);
    EXPECT_EQ(cycle_with(kPan, 0.0), kStopPosition);
    EXPECT_EQ(cycles(3), "");
}

TEST_F(RcSticks, NegativeZeroIsAtRest) {
    gimbal_movement_mode = kMovementRelative;
    cycle_with(kPan, 1.0);
    EXPECT_EQ(cycle_with(kPan, -0.0), kStopSpeed);
}

TEST_F(RcSticks, SticksAtRestFromTheStartSendNothing) {
    for (const std::int32_t mode : {kMovementRelative, kMovementAbsolute}) {
        gimbal_movement_mode = mode;
        EXPECT_EQ(cycles(3), "");
    }
}

TEST_F(RcSticks, ModeThatChangesDuringTheStopIsStoppedInBoth) {
    gimbal_movement_mode = kMovementRelative;
    cycle_with(kPan, 1.0);
    during_call = [](const std::string&) { gimbal_movement_mode = kMovementAbsolute; };
    EXPECT_EQ(cycle_with(kPan, 0.0), kStopSpeed + kStopPosition);
    EXPECT_EQ(cycles(3), "");
}

TEST_F(RcSticks, ModeThatChangesBetweenCyclesCountsFromTheNext) {
    gimbal_movement_mode = kMovementRelative;
    EXPECT_EQ(cycle_with(kPan, 0.5), "gimbal_set_speed(0.5,0,0)\n");
    gimbal_movement_mode = kMovementAbsolute;
    EXPECT_EQ(cycle(), "gimbal_set_abs_position(0.5,0,0)\n");
    EXPECT_EQ(cycle_with(kPan, 0.0), kStopPosition);
}

TEST_F(RcSticks, SticksOfTheCyclesStartAreSent) {
    gimbal_movement_mode = kMovementRelative;
    set_channel(kPan, 0.5);
    set_channel(kLock2, 1.0);
    during_call = [this](const std::string& call) {
        if (call == "gimbal_orientation_lock(lock)") {
            set_channel(kPan, 0.75);
        }
    };
    EXPECT_EQ(cycle(), "gimbal_orientation_lock(lock)\ngimbal_set_speed(0.5,0,0)\n");
    EXPECT_EQ(cycle(), "gimbal_set_speed(0.75,0,0)\n");
}

}  // namespace
