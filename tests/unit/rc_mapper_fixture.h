// The remote control's cycle under a test: the channels as their writer fills them, by offset, and
// operations that print their calls.
//
// Included by one source file of a test.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "control/rc_mapper.h"
#include "control/rc_settings.h"
#include "protocol/camera_state.h"
#include "recorded_commands.h"

std::atomic<std::int32_t> gimbal_movement_mode;
std::atomic<std::int32_t> rc_digital_zoom_step;

// Offsets of the channels, and of the bytes that enable some of them.
inline constexpr std::size_t kPan = 1056, kTilt = 1064, kDutch = 1072, kPosition = 1088,
                             kLock = 1096, kLock2 = 1104, kRecord = 1112, kMode = 1120,
                             kFocusType = 1128, kFocusIn = 1136, kFocusOut = 1144, kFocusAbs = 1152,
                             kZoomIn = 1160, kZoomOut = 1168, kZoom = 1176, kDzoomIn = 1184,
                             kDzoomOut = 1192, kDzoom = 1200, kAeLock = 1208, kEvAbs = 1368;
inline constexpr std::size_t kLockEnable = 1422, kFocusAbsEnable = 1436, kEvAbsEnable = 1490;

inline constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kSmallest = std::numeric_limits<double>::denorm_min();
inline constexpr double kInfinite = std::numeric_limits<double>::infinity();

class RcMapperTest : public testing::Test {
  protected:
    void SetUp() override {
        memset(static_cast<void*>(&camera_state), 0, sizeof(camera_state));
        gimbal_movement_mode = kMovementUnset;
        rc_digital_zoom_step = 0;
        state_.block = &block_;
    }
    void TearDown() override { during_call = nullptr; }

    void set_channel(std::size_t offset, double value) {
        memcpy(reinterpret_cast<std::uint8_t*>(&block_) + offset, &value, sizeof(value));
    }

    void set_byte(std::size_t offset, std::uint8_t value) {
        reinterpret_cast<std::uint8_t*>(&block_)[offset] = value;
    }

    std::string cycle() {
        testing::internal::CaptureStderr();
        rc_copy_sticks(state_);
        rc_evaluate_channels(state_);
        rc_drive_gimbal(state_);
        return testing::internal::GetCapturedStderr();
    }

    std::string cycles(int count) {
        std::string calls;
        for (int i = 0; i < count; ++i) {
            calls += cycle();
        }
        return calls;
    }

    std::string cycle_with(std::size_t offset, double value) {
        set_channel(offset, value);
        return cycle();
    }

  private:
    RcRawBlock block_{};
    RcMapperState state_{};
};
