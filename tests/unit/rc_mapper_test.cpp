// Buttons, rockers and positions of the remote control, one cycle after another.
#include "control/rc_mapper.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <span>
#include <string>

#include "protocol/camera_state.h"
#include "rc_mapper_fixture.h"

namespace {

struct PositionCase {
    double value;
    const char* calls;
};

class RcMapper : public RcMapperTest {
  protected:
    void expect_positions(std::size_t offset, std::span<const PositionCase> rows) {
        for (const PositionCase& row : rows) {
            EXPECT_EQ(cycle_with(offset, row.value), row.calls) << row.value;
            EXPECT_EQ(cycle(), "") << row.value;
        }
    }
};

// -- kinds of channels -------------------------------------------------------------------------

struct ButtonCase {
    std::size_t offset;
    const char* calls;
};

// clang-format off
const ButtonCase kButtons[] = {
    {kPosition,  "gimbal_set_position(selfie)\ngimbal_set_position(normal)\n"},
    {kLock,      "gimbal_orientation_lock(lock)\n"},
    {kLock2,     "gimbal_orientation_lock(lock)\n"},
    {kMode,      "camera_set_mode(video)\n"},
    {kFocusType, "camera_set_focus_type(inf)\n"},
    {kAeLock,    "camera_set_ae_lock(lock)\n"},
    {1232,       "camera_next_image_mode()\n"},
    {1240,       "camera_prev_image_mode()\n"},
    {1256,       "camera_next_iso()\n"},
    {1264,       "camera_prev_iso()\n"},
    {1280,       "camera_next_shutter()\n"},
    {1288,       "camera_prev_shutter()\n"},
    {1304,       "camera_next_aperture()\n"},
    {1312,       "camera_prev_aperture()\n"},
    {1328,       "camera_next_color()\n"},
    {1336,       "camera_prev_color()\n"},
    {1352,       "camera_next_wb()\n"},
    {1360,       "camera_prev_wb()\n"},
    {1384,       "camera_next_ev()\n"},
    {1392,       "camera_prev_ev()\n"},
};
// clang-format on

TEST_F(RcMapper, ButtonFiresWhenItsSignBecomesAnotherButZero) {
    camera_state.camera_model_code = 11;
    set_byte(kLockEnable, 1);
    for (const ButtonCase& button : kButtons) {
        SCOPED_TRACE(button.offset);
        EXPECT_EQ(cycle_with(button.offset, 1.0), button.calls);
        EXPECT_EQ(cycles(3), "");
        EXPECT_EQ(cycle_with(button.offset, 0.25), "");
        EXPECT_EQ(cycle_with(button.offset, -1.0), button.calls);
        EXPECT_EQ(cycle(), "");
        EXPECT_EQ(cycle_with(button.offset, 0.0), "");
        EXPECT_EQ(cycle_with(button.offset, 1.0), button.calls);
        EXPECT_EQ(cycle_with(button.offset, 0.0), "");
        EXPECT_EQ(cycle_with(button.offset, -1.0), button.calls);
        EXPECT_EQ(cycle_with(button.offset, 0.0), "");
    }
}

struct RockerCase {
    std::size_t offset;
    const char* next;
    const char* previous;
};

// clang-format off
const RockerCase kRockers[] = {
    {1224, "camera_next_image_mode()\n", "camera_prev_image_mode()\n"},
    {1248, "camera_next_iso()\n",        "camera_prev_iso()\n"       },
    {1272, "camera_next_shutter()\n",    "camera_prev_shutter()\n"   },
    {1296, "camera_next_aperture()\n",   "camera_prev_aperture()\n"  },
    {1320, "camera_next_color()\n",      "camera_prev_color()\n"     },
    {1344, "camera_next_wb()\n",         "camera_prev_wb()\n"        },
    {1376, "camera_next_ev()\n",         "camera_prev_ev()\n"        },
};
// clang-format on

TEST_F(RcMapper, RockerStepsOnePerSwing) {
    for (const RockerCase& rocker : kRockers) {
        SCOPED_TRACE(rocker.offset);
        EXPECT_EQ(cycle_with(rocker.offset, 1.0), rocker.next);
        EXPECT_EQ(cycles(3), "");
        EXPECT_EQ(cycle_with(rocker.offset, -1.0), rocker.previous);
        EXPECT_EQ(cycles(3), "");
        EXPECT_EQ(cycle_with(rocker.offset, 1.0), rocker.next);
        EXPECT_EQ(cycle_with(rocker.offset, 0.0), "");
        EXPECT_EQ(cycle_with(rocker.offset, -0.5), rocker.previous);
        EXPECT_EQ(cycle_with(rocker.offset, 0.0), "");
        EXPECT_EQ(cycle_with(rocker.offset, -0.5), rocker.previous);
        EXPECT_EQ(cycle_with(rocker.offset, 0.0), "");
    }
}

TEST_F(RcMapper, OnlyTheSignOfAButtonCounts) {
    EXPECT_EQ(cycle_with(kLock2, kSmallest), "gimbal_orientation_lock(lock)\n");
    EXPECT_EQ(cycle_with(kLock2, kInfinite), "");
    EXPECT_EQ(cycle_with(kLock2, -kSmallest), "gimbal_orientation_lock(lock)\n");
    EXPECT_EQ(cycle_with(kLock2, -1e300), "");
    EXPECT_EQ(cycle_with(kLock2, -0.0), "");
    EXPECT_EQ(cycle_with(kLock2, 1.0), "gimbal_orientation_lock(lock)\n");
}

TEST_F(RcMapper, WhatIsNoNumberIsARelease) {
    EXPECT_EQ(cycle_with(kLock2, 1.0), "gimbal_orientation_lock(lock)\n");
    EXPECT_EQ(cycle_with(kLock2, kNoNumber), "");
    EXPECT_EQ(cycle_with(kLock2, 1.0), "gimbal_orientation_lock(lock)\n");
}

// -- locks, mode, focus type -------------------------------------------------------------------

TEST_F(RcMapper, LockCountsOnlyWhileItIsEnabled) {
    EXPECT_EQ(cycle_with(kLock, 1.0), "");
    set_byte(kLockEnable + 1, 0xFF);
    EXPECT_EQ(cycle(), "");
    set_byte(kLockEnable, 0x80);
    EXPECT_EQ(cycle(), "gimbal_orientation_lock(lock)\n");
    // A release that falls into the time without it is not seen.
    set_byte(kLockEnable, 0);
    EXPECT_EQ(cycle_with(kLock, 0.0), "");
    set_byte(kLockEnable, 1);
    EXPECT_EQ(cycle_with(kLock, 1.0), "");
}

TEST_F(RcMapper, LocksUnlockAnUnlockedGimbal) {
    set_byte(kLockEnable, 1);
    camera_state.gimbal_unlocked = 1;
    EXPECT_EQ(cycle_with(kLock, 1.0), "gimbal_orientation_lock(unlock)\n");
    EXPECT_EQ(cycle_with(kLock2, 1.0), "gimbal_orientation_lock(unlock)\n");
    camera_state.gimbal_unlocked = 2;
    EXPECT_EQ(cycle_with(kLock, -1.0), "gimbal_orientation_lock(lock)\n");
    EXPECT_EQ(cycle_with(kLock2, -1.0), "gimbal_orientation_lock(lock)\n");
}

TEST_F(RcMapper, ModeChangesToTheOther) {
    camera_state.camera_mode_code = 1;
    EXPECT_EQ(cycle_with(kMode, 1.0), "camera_set_mode(photo)\n");
    camera_state.camera_mode_code = 0;
    EXPECT_EQ(cycle_with(kMode, -1.0), "camera_set_mode(video)\n");
    camera_state.camera_mode_code = 2;
    EXPECT_EQ(cycle_with(kMode, 1.0), "");
    // The press was seen, although there was no mode to change to.
    camera_state.camera_mode_code = 1;
    EXPECT_EQ(cycle(), "");
}

struct FocusTypeCase {
    std::uint8_t model;
    std::uint8_t infinity;
    const char* reported;
    const char* calls;
};

// clang-format off
const FocusTypeCase kFocusTypes[] = {
    {11, 1,   "MF",  "camera_set_focus_type(af)\n" },
    {11, 0,   "MF",  "camera_set_focus_type(inf)\n"},
    {11, 2,   "MF",  ""                            },
    {1,  0,   "MF",  "camera_set_focus_type(af)\n" },
    {1,  1,   "AF",  "camera_set_focus_type(mf)\n" },
    {1,  0,   "",    ""                            },
    {1,  0,   "mf",  ""                            },
    {5,  0,   "MF",  "camera_set_focus_type(af)\n" },
    {5,  0,   "AF",  "camera_set_focus_type(mf)\n" },
    {5,  0,   "AFC", ""                            },
    {0,  1,   "MF",  ""                            },
    {2,  0,   "AF",  ""                            },
    {12, 1,   "AF",  ""                            },
};
// clang-format on

TEST_F(RcMapper, FocusTypeTogglesAsTheModelHasIt) {
    double value = 1.0;
    for (const FocusTypeCase& row : kFocusTypes) {
        SCOPED_TRACE(testing::Message() << int{row.model} << " " << row.reported);
        camera_state.camera_model_code = row.model;
        camera_state.focus_infinity = row.infinity;
        write_shared_text(camera_state.focus_type, row.reported);
        EXPECT_EQ(cycle_with(kFocusType, value), row.calls);
        value = -value;
    }
}

TEST_F(RcMapper, ExposureLockToggles) {
    camera_state.ae = 1;
    EXPECT_EQ(cycle_with(kAeLock, 1.0), "camera_set_ae_lock(unlock)\n");
    camera_state.ae = 0;
    EXPECT_EQ(cycle_with(kAeLock, -1.0), "camera_set_ae_lock(lock)\n");
    camera_state.ae = 2;
    EXPECT_EQ(cycle_with(kAeLock, 1.0), "");
}

// -- recording ---------------------------------------------------------------------------------

TEST_F(RcMapper, VideoIsRecordedWhileTheControlIsHeld) {
    camera_state.camera_mode_code = 1;
    EXPECT_EQ(cycle_with(kRecord, 1.0), "camera_record(1)\n");
    EXPECT_EQ(cycles(149), "");  // three seconds
    EXPECT_EQ(cycle_with(kRecord, 0.0), "camera_record(0)\n");
    EXPECT_EQ(cycle(), "");
}

TEST_F(RcMapper, SwingOfTheRecordControlStartsOnceMore) {
    camera_state.camera_mode_code = 1;
    EXPECT_EQ(cycle_with(kRecord, -1.0), "camera_record(1)\n");
    EXPECT_EQ(cycle_with(kRecord, 1.0), "camera_record(1)\n");
}

TEST_F(RcMapper, HeldRecordControlTakesOnePhoto) {
    EXPECT_EQ(cycle_with(kRecord, 1.0), "camera_shot()\n");
    EXPECT_EQ(cycles(149), "");
    EXPECT_EQ(cycle_with(kRecord, 0.0), "");
    EXPECT_EQ(cycle_with(kRecord, -1.0), "camera_shot()\n");
}

TEST_F(RcMapper, RecordControlDoesNothingInOtherModes) {
    camera_state.camera_mode_code = 2;
    EXPECT_EQ(cycle_with(kRecord, 1.0), "");
    EXPECT_EQ(cycle_with(kRecord, 0.0), "");
    EXPECT_EQ(cycle_with(kRecord, 1.0), "");
    camera_state.camera_mode_code = 1;
    EXPECT_EQ(cycle(), "");
}

TEST_F(RcMapper, CameraThatWentOverToPhotosMeanwhileTakesOne) {
    camera_state.camera_mode_code = 1;
    during_call = [](const std::string&) { camera_state.camera_mode_code = 0; };
    EXPECT_EQ(cycle_with(kRecord, 1.0), "camera_record(1)\ncamera_shot()\n");
    camera_state.camera_mode_code = 1;
    EXPECT_EQ(cycle_with(kRecord, 0.0), "camera_record(0)\n");
    during_call = [](const std::string&) { camera_state.camera_mode_code = 2; };
    camera_state.camera_mode_code = 1;
    EXPECT_EQ(cycle_with(kRecord, -1.0), "camera_record(1)\n");
}

// -- positions ---------------------------------------------------------------------------------

// One after another: what is the same as the one before sends nothing.
// clang-format off
const PositionCase kEvPositions[] = {
    {-1.0,          ""                     },  // place 0 counts as sent
    {0.0,           "camera_set_ev(0)\n"   },  // 9.5, cut to 9
    {0.05,          ""                     },  // 9.975
    {0.0527,        "camera_set_ev(+0.3)\n"},  // 10.0007
    {1.0,           "camera_set_ev(+3.0)\n"},  // 19, limited to 18
    {7.0,           ""                     },
    {kInfinite,     ""                     },
    {0.9,           ""                     },  // 18.05
    {0.88,          "camera_set_ev(+2.7)\n"},  // 17.86
    {0.74,          "camera_set_ev(+2.3)\n"},
    {0.65,          "camera_set_ev(+2.0)\n"},
    {0.53,          "camera_set_ev(+1.7)\n"},
    {0.4,           "camera_set_ev(+1.3)\n"},
    {0.3,           "camera_set_ev(+1.0)\n"},
    {0.2,           "camera_set_ev(+0.7)\n"},
    {-0.1,          "camera_set_ev(-0.3)\n"},
    {-0.2,          "camera_set_ev(-0.7)\n"},
    {-0.3,          "camera_set_ev(-1.0)\n"},
    {-0.4,          "camera_set_ev(-1.3)\n"},
    {-0.5,          "camera_set_ev(-1.7)\n"},
    {-0.6,          "camera_set_ev(-2.0)\n"},
    {-0.7,          "camera_set_ev(-2.3)\n"},
    {-0.8,          "camera_set_ev(-2.7)\n"},
    {-0.9,          "camera_set_ev(-3.0)\n"},
    {-1.1,          ""                     },  // below 0, but cut to it
    {1.0,           "camera_set_ev(+3.0)\n"},
    {-kInfinite,    "camera_set_ev(-3.0)\n"},
    {1.0,           "camera_set_ev(+3.0)\n"},
    {kNoNumber,     "camera_set_ev(-3.0)\n"},
};

const PositionCase kFocusPositions[] = {
    {-1.0,          ""                             },  // position 0 counts as sent
    {1.0,           "camera_set_manual_focus(100)\n"},
    {0.0,           "camera_set_manual_focus(50)\n" },
    {0.019,         ""                              },  // 50.95
    {0.021,         "camera_set_manual_focus(51)\n" },
    {-0.5,          "camera_set_manual_focus(25)\n" },
    {-1.0,          "camera_set_manual_focus(0)\n"  },
    {-1.01,         ""                              },
    {-9.0,          ""                              },
    {9.0,           "camera_set_manual_focus(100)\n"},
    {-kInfinite,    "camera_set_manual_focus(0)\n"  },
    {kInfinite,     "camera_set_manual_focus(100)\n"},
    {kNoNumber,     "camera_set_manual_focus(0)\n"  },
};
// clang-format on

TEST_F(RcMapper, CompensationFollowsItsControlInThirdStops) {
    set_byte(kEvAbsEnable, 1);
    expect_positions(kEvAbs, kEvPositions);
}

TEST_F(RcMapper, CompensationFollowsOnlyWhileEnabled) {
    set_byte(kEvAbsEnable - 1, 0xFF);
    set_byte(kEvAbsEnable + 1, 0xFF);
    EXPECT_EQ(cycle_with(kEvAbs, 1.0), "");
    set_byte(kEvAbsEnable, 0x80);
    EXPECT_EQ(cycle(), "camera_set_ev(+3.0)\n");
    set_byte(kEvAbsEnable, 0);
    EXPECT_EQ(cycle_with(kEvAbs, 0.0), "");
}

TEST_F(RcMapper, FocusFollowsItsControlInPercent) {
    set_byte(kFocusAbsEnable, 1);
    expect_positions(kFocusAbs, kFocusPositions);
}

TEST_F(RcMapper, FocusFollowsWhileEitherByteOfItsEnableWordIsSet) {
    set_byte(kFocusAbsEnable - 1, 0xFF);
    set_byte(kFocusAbsEnable + 2, 0xFF);
    EXPECT_EQ(cycle_with(kFocusAbs, 1.0), "");
    set_byte(kFocusAbsEnable + 1, 1);
    EXPECT_EQ(cycle(), "camera_set_manual_focus(100)\n");
    set_byte(kFocusAbsEnable + 1, 0);
    EXPECT_EQ(cycle_with(kFocusAbs, 0.0), "");
    set_byte(kFocusAbsEnable, 1);
    EXPECT_EQ(cycle(), "camera_set_manual_focus(50)\n");
}

}  // namespace
