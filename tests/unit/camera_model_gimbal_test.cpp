// The simulated gimbal: speeds, positions, limits.
#include <gtest/gtest.h>

#include "simulator/gimbal_model.h"

namespace {

using std::chrono::milliseconds;

class Gimbal : public testing::Test {
  protected:
    void pass(int time) {
        for (int passed = 0; passed < time; passed += 10) {
            gimbal.advance(milliseconds(10));
        }
    }

    GimbalModel gimbal;
};

TEST_F(Gimbal, SpeedTurnsEachAxisInTime) {
    gimbal.turn(100, -50, 30);
    pass(400);
    EXPECT_NEAR(gimbal.yaw.angle, 40, 1e-6);
    EXPECT_NEAR(gimbal.roll.angle, -20, 1e-6);
    EXPECT_NEAR(gimbal.pitch.angle, 12, 1e-6);
}

TEST_F(Gimbal, SpeedHoldsForHalfASecond) {
    gimbal.turn(100, 0, 0);
    pass(2000);
    EXPECT_NEAR(gimbal.yaw.angle, 50, 1e-6);
}

TEST_F(Gimbal, RepeatedSpeedGoesOn) {
    for (int i = 0; i < 100; ++i) {
        gimbal.turn(100, 0, 0);
        pass(20);
    }
    EXPECT_NEAR(gimbal.yaw.angle, 200, 1e-6);
}

TEST_F(Gimbal, SpeedOfNothingStopsIt) {
    gimbal.turn(100, 0, 0);
    pass(100);
    gimbal.turn(0, 0, 0);
    pass(100);
    EXPECT_NEAR(gimbal.yaw.angle, 10, 1e-6);
}

TEST_F(Gimbal, TravelsToAPositionAtNinetyDegreesASecond) {
    gimbal.go_to(-1800, 90, 45);
    pass(1000);
    EXPECT_NEAR(gimbal.yaw.angle, -900, 1e-6);
    EXPECT_NEAR(gimbal.roll.angle, 90, 1e-6);
    EXPECT_NEAR(gimbal.pitch.angle, 45, 1e-6);
    pass(5000);
    EXPECT_NEAR(gimbal.yaw.angle, -1800, 1e-6);
}

TEST_F(Gimbal, SpeedTakesOverFromAPosition) {
    gimbal.go_to(1800, 0, 0);
    pass(100);
    gimbal.turn(0, 0, 0);
    pass(1000);
    EXPECT_NEAR(gimbal.yaw.angle, 90, 1e-6);
}

TEST_F(Gimbal, PositionTakesOverFromASpeed) {
    gimbal.turn(1000, 0, 0);
    gimbal.go_to(0, 0, 0);
    pass(1000);
    EXPECT_NEAR(gimbal.yaw.angle, 0, 1e-6);
}

TEST_F(Gimbal, StopsAtItsLimitsOnTheWayToAPosition) {
    gimbal.go_to(9999, 9999, 9999);
    pass(10000);
    EXPECT_EQ(gimbal.yaw.angle, 3200);
    EXPECT_EQ(gimbal.roll.angle, 450);
    EXPECT_EQ(gimbal.pitch.angle, 300);
    gimbal.go_to(-9999, -9999, -9999);
    pass(10000);
    EXPECT_EQ(gimbal.yaw.angle, -3200);
    EXPECT_EQ(gimbal.roll.angle, -450);
    EXPECT_EQ(gimbal.pitch.angle, -1240);
}

TEST_F(Gimbal, StopsAtItsLimitsWhateverItsSpeed) {
    gimbal.turn(32767, 32767, -32768);
    pass(400);
    EXPECT_EQ(gimbal.yaw.angle, 3200);
    EXPECT_EQ(gimbal.roll.angle, 450);
    EXPECT_EQ(gimbal.pitch.angle, -1240);
}

TEST_F(Gimbal, CalibrationLevelsItAndListensToNothingElse) {
    gimbal.horizon_trim = 9;
    gimbal.yaw.angle = 300;
    gimbal.calibrate();
    gimbal.turn(500, 0, 0);
    gimbal.go_to(1000, 0, 0);
    pass(1990);
    EXPECT_TRUE(gimbal.calibrating());
    EXPECT_NEAR(gimbal.yaw.angle, 0, 1e-6);
    EXPECT_EQ(gimbal.horizon_trim, 0);
    EXPECT_EQ(gimbal.calibrations, 1);
    pass(10);
    gimbal.go_to(90, 0, 0);
    pass(100);
    EXPECT_NEAR(gimbal.yaw.angle, 90, 1e-6);
}

TEST_F(Gimbal, TrimIsOnTopOfTheRoll) {
    gimbal.roll.angle = 10;
    gimbal.horizon_trim = -3;
    EXPECT_EQ(gimbal.shown_roll(), 7);
}

}  // namespace
