// What the remote control does while a control is held, and the order of all of it.
#include <gtest/gtest.h>

#include <string>

#include "protocol/camera_state.h"
#include "rc_mapper_fixture.h"

namespace {

using RcHold = RcMapperTest;

// -- optical zoom ------------------------------------------------------------------------------

struct ZoomCase {
    std::size_t offset;
    const char* up;
    const char* down;
};

// clang-format off
const ZoomCase kOpticalZooms[] = {
    {kZoomIn,  "camera_set_optical_zoom(1)\n",  "camera_set_optical_zoom(1)\n" },
    {kZoomOut, "camera_set_optical_zoom(-1)\n", "camera_set_optical_zoom(-1)\n"},
    {kZoom,    "camera_set_optical_zoom(1)\n",  "camera_set_optical_zoom(-1)\n"},
};
// clang-format on

TEST_F(RcHold, OpticalZoomFollowsEveryChangeOfSign) {
    const std::string stop = "camera_set_optical_zoom(0)\n";
    for (const ZoomCase& row : kOpticalZooms) {
        SCOPED_TRACE(row.offset);
        EXPECT_EQ(cycle_with(row.offset, 1.0), row.up);
        EXPECT_EQ(cycle_with(row.offset, 0.1), "");
        EXPECT_EQ(cycle_with(row.offset, -1.0), row.down);
        EXPECT_EQ(cycle(), "");
        EXPECT_EQ(cycle_with(row.offset, 0.0), stop);
        EXPECT_EQ(cycle_with(row.offset, -0.1), row.down);
        EXPECT_EQ(cycle_with(row.offset, kNoNumber), stop);
        EXPECT_EQ(cycle_with(row.offset, 0.0), "");
    }
}

// -- digital zoom ------------------------------------------------------------------------------

TEST_F(RcHold, DigitalZoomOfFiveCyclesIsSixSteps) {
    camera_state.digital_zoom_level = 100;
    set_channel(kDzoomIn, 1.0);
    EXPECT_EQ(cycle(), "camera_set_digital_zoom(101)\ncamera_set_digital_zoom(102)\n");
    EXPECT_EQ(cycles(4),
              "camera_set_digital_zoom(103)\ncamera_set_digital_zoom(104)\n"
              "camera_set_digital_zoom(105)\ncamera_set_digital_zoom(106)\n");
    EXPECT_EQ(camera_state.digital_zoom_level, 106);
    EXPECT_EQ(cycle_with(kDzoomIn, 0.0), "camera_set_digital_zoom(106)\n");
    EXPECT_EQ(cycles(3), "");
}

struct StepCase {
    std::size_t offset;
    double value;
    int step;
};

// clang-format off
const StepCase kDigitalZooms[] = {
    {kDzoomIn,  1.0,  1 }, {kDzoomIn,  -1.0, -1},
    {kDzoomOut, 1.0,  -1}, {kDzoomOut, -1.0, 1 },
    {kDzoom,    1.0,  1 }, {kDzoom,    -1.0, -1},
};
// clang-format on

TEST_F(RcHold, DigitalZoomChannelsSetTheirStep) {
    for (const StepCase& row : kDigitalZooms) {
        SCOPED_TRACE(testing::Message() << row.offset << " " << row.value);
        camera_state.digital_zoom_level = 0;
        cycle_with(row.offset, row.value);
        EXPECT_EQ(rc_digital_zoom_step, row.step);
        EXPECT_EQ(camera_state.digital_zoom_level, 2 * row.step);
        EXPECT_EQ(cycle_with(row.offset, 0.0),
                  "camera_set_digital_zoom(" + std::to_string(2 * row.step) + ")\n");
        EXPECT_EQ(rc_digital_zoom_step, 0);
    }
}

TEST_F(RcHold, DigitalZoomIsNotLimitedButStartsOver) {
    camera_state.digital_zoom_level = 32766;
    EXPECT_EQ(cycle_with(kDzoom, 1.0),
              "camera_set_digital_zoom(32767)\ncamera_set_digital_zoom(-32768)\n");
    EXPECT_EQ(cycle_with(kDzoom, -1.0),
              "camera_set_digital_zoom(32767)\ncamera_set_digital_zoom(32766)\n");
    EXPECT_EQ(camera_state.digital_zoom_level, 32766);
}

TEST_F(RcHold, StepOfTheMainApplicationIsTakenEveryCycle) {
    camera_state.digital_zoom_level = 100;
    rc_digital_zoom_step = -300;
    EXPECT_EQ(cycles(2), "camera_set_digital_zoom(-200)\ncamera_set_digital_zoom(-500)\n");
    rc_digital_zoom_step = 0;
    EXPECT_EQ(cycles(2), "");
}

TEST_F(RcHold, LargestStepsStayWithinTheLevel) {
    camera_state.digital_zoom_level = 32767;
    rc_digital_zoom_step = 32767;
    EXPECT_EQ(cycle(), "camera_set_digital_zoom(-2)\n");
    camera_state.digital_zoom_level = -32768;
    rc_digital_zoom_step = -32768;
    EXPECT_EQ(cycle(), "camera_set_digital_zoom(0)\n");
}

TEST_F(RcHold, LevelChangedElsewhereIsTheOneThatGrows) {
    camera_state.digital_zoom_level = 100;
    cycle_with(kDzoom, 1.0);
    camera_state.digital_zoom_level = 180;
    EXPECT_EQ(cycle(), "camera_set_digital_zoom(181)\n");
}

// -- focus -------------------------------------------------------------------------------------

TEST_F(RcHold, HeldFocusMovesOneUnitEveryCycle) {
    set_channel(kFocusIn, 1.0);
    EXPECT_EQ(cycles(3),
              "camera_set_manual_focus(1)\ncamera_set_manual_focus(2)\n"
              "camera_set_manual_focus(3)\n");
    EXPECT_EQ(cycle_with(kFocusIn, 0.0), "");
    EXPECT_EQ(cycles(3), "");
    EXPECT_EQ(cycle_with(kFocusIn, -1.0), "camera_set_manual_focus(2)\n");
}

TEST_F(RcHold, FocusOutTurnsTheOtherWay) {
    set_channel(kFocusOut, -1.0);
    EXPECT_EQ(cycles(2), "camera_set_manual_focus(1)\ncamera_set_manual_focus(2)\n");
    EXPECT_EQ(cycle_with(kFocusOut, 1.0), "camera_set_manual_focus(1)\n");
    EXPECT_EQ(cycle_with(kFocusOut, 0.0), "");
}

TEST_F(RcHold, FocusStaysBetweenItsEnds) {
    set_channel(kFocusOut, 1.0);
    EXPECT_EQ(cycles(3), "");  // 0 counts as sent
    set_channel(kFocusOut, -1.0);
    cycles(99);
    EXPECT_EQ(cycles(4), "camera_set_manual_focus(100)\n");
    EXPECT_EQ(cycle_with(kFocusOut, 1.0), "camera_set_manual_focus(99)\n");
}

TEST_F(RcHold, LaterFocusChannelHasTheSay) {
    set_channel(kFocusIn, 1.0);
    set_channel(kFocusOut, -1.0);
    EXPECT_EQ(cycle(), "camera_set_manual_focus(1)\n");
    // Released while the other is still held: the step is gone with it.
    EXPECT_EQ(cycle_with(kFocusOut, 0.0), "");
}

// The steps go on from where they were, not from the position that was sent in between.
TEST_F(RcHold, FocusStepsAndPositionKeepTheirOwnCount) {
    set_channel(kFocusIn, 1.0);
    cycles(3);
    set_channel(kFocusIn, 0.0);
    set_byte(kFocusAbsEnable, 1);
    EXPECT_EQ(cycle_with(kFocusAbs, 0.0), "camera_set_manual_focus(50)\n");
    EXPECT_EQ(cycle_with(kFocusIn, 1.0), "camera_set_manual_focus(4)\n");
    EXPECT_EQ(cycle(), "camera_set_manual_focus(50)\ncamera_set_manual_focus(5)\n");
}

// -- all at once -------------------------------------------------------------------------------

class RcOrder : public RcMapperTest {
  protected:
    void SetUp() override {
        RcMapperTest::SetUp();
        camera_state.camera_mode_code = 1;
        camera_state.camera_model_code = 11;
        set_byte(kLockEnable, 1);
        set_byte(kFocusAbsEnable, 1);
        set_byte(kEvAbsEnable, 1);
    }

    std::string cycle_with_all(double value) {
        for (std::size_t offset = kPosition; offset <= 1392; offset += 8) {
            set_channel(offset, value);
        }
        return cycle();
    }
};

TEST_F(RcOrder, ChannelsArePressedInTheirOrder) {
    EXPECT_EQ(cycle_with_all(1.0),
              "gimbal_set_position(selfie)\n"
              "gimbal_set_position(normal)\n"
              "gimbal_orientation_lock(lock)\n"
              "gimbal_orientation_lock(lock)\n"
              "camera_set_mode(photo)\n"
              "camera_record(1)\n"
              "camera_set_focus_type(inf)\n"
              "camera_set_ae_lock(lock)\n"
              "camera_next_image_mode()\n"
              "camera_prev_image_mode()\n"
              "camera_next_image_mode()\n"
              "camera_next_iso()\n"
              "camera_prev_iso()\n"
              "camera_next_iso()\n"
              "camera_next_shutter()\n"
              "camera_prev_shutter()\n"
              "camera_next_shutter()\n"
              "camera_next_aperture()\n"
              "camera_prev_aperture()\n"
              "camera_next_aperture()\n"
              "camera_next_color()\n"
              "camera_prev_color()\n"
              "camera_next_color()\n"
              "camera_next_wb()\n"
              "camera_prev_wb()\n"
              "camera_next_wb()\n"
              "camera_next_ev()\n"
              "camera_prev_ev()\n"
              "camera_next_ev()\n"
              "camera_set_ev(+3.0)\n"
              "camera_set_optical_zoom(1)\n"
              "camera_set_optical_zoom(-1)\n"
              "camera_set_optical_zoom(1)\n"
              "camera_set_digital_zoom(1)\n"    // in: +1
              "camera_set_digital_zoom(0)\n"    // out: -1
              "camera_set_digital_zoom(1)\n"    // either way: +1
              "camera_set_manual_focus(100)\n"  // position
              // focus out left a step of -1 at 0
              "camera_set_manual_focus(0)\n"
              "camera_set_digital_zoom(2)\n");
}

TEST_F(RcOrder, ChannelsAreReleasedInTheirOrder) {
    cycle_with_all(1.0);
    EXPECT_EQ(cycle_with_all(0.0),
              "camera_record(0)\n"
              "camera_set_ev(0)\n"
              "camera_set_optical_zoom(0)\n"
              "camera_set_optical_zoom(0)\n"
              "camera_set_optical_zoom(0)\n"
              "camera_set_digital_zoom(2)\n"
              "camera_set_digital_zoom(2)\n"
              "camera_set_digital_zoom(2)\n"
              "camera_set_manual_focus(50)\n");
    EXPECT_EQ(cycle_with_all(0.0), "");
}

TEST_F(RcOrder, LaterChannelSeesTheModeThatAnEarlierOneBrought) {
    during_call = [](const std::string& call) {
        if (call == "camera_set_mode(photo)") {
            camera_state.camera_mode_code = 0;
        }
    };
    set_channel(kMode, 1.0);
    set_channel(kRecord, 1.0);
    set_byte(kFocusAbsEnable, 0);
    set_byte(kEvAbsEnable, 0);
    EXPECT_EQ(cycle(), "camera_set_mode(photo)\ncamera_shot()\n");
}

TEST_F(RcOrder, BytesThatAreNoChannelsDoNothing) {
    for (const std::size_t offset : {1080U, 1216U, 1400U, 1408U}) {
        set_channel(offset, 1.0);
    }
    for (std::size_t offset = 0; offset < 1056; ++offset) {
        set_byte(offset, 0x3F);
    }
    set_byte(kFocusAbsEnable, 0);
    set_byte(kEvAbsEnable, 0);
    EXPECT_EQ(cycle(), "");
}

}  // namespace
