// Fifty times a second: a cycle of the remote control allocates nothing, whatever is pressed.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "bench/allocation_count.h"
#include "control/rc_mapper.h"
#include "control/rc_settings.h"
#include "protocol/camera_state.h"
#include "usb/camera_send.h"

namespace {

int packets_sent = 0;

}  // namespace

ssize_t camera_send(const std::uint8_t* /*packet*/, std::size_t length) {
    ++packets_sent;
    return static_cast<ssize_t>(length);
}

namespace {

struct Case {
    const char* name;
    std::uint8_t camera_mode;
    std::uint8_t model;
    std::int32_t movement;
};

class RcAllocations : public testing::TestWithParam<Case> {
  protected:
    RcAllocations() {
        memset(static_cast<void*>(&camera_state), 0, sizeof(camera_state));
        camera_state.camera_mode_code = GetParam().camera_mode;
        camera_state.camera_model_code = GetParam().model;
        gimbal_movement_mode = GetParam().movement;
        rc_digital_zoom_step = 0;
        block_.lock_enable = 1;
        block_.focus_abs_enable = 1;
        block_.ev_abs_enable = 1;
        state_.block = &block_;
    }
    ~RcAllocations() override { gimbal_movement_mode = kMovementUnset; }

    // What a cycle allocates that finds every channel at that value.
    unsigned long cycle_with(double value) {
        for (std::size_t at = offsetof(RcRawBlock, pan); at <= offsetof(RcRawBlock, ev_prev);
             at += sizeof(RcChannel)) {
            memcpy(reinterpret_cast<std::uint8_t*>(&block_) + at, &value, sizeof(value));
        }
        // The operations print; what captures their lines is a file, which takes no memory.
        testing::internal::CaptureStderr();
        const unsigned long before = allocation_count;
        rc_copy_sticks(state_);
        rc_evaluate_channels(state_);
        rc_drive_gimbal(state_);
        const unsigned long allocated = allocation_count - before;
        testing::internal::GetCapturedStderr();
        return allocated;
    }

  private:
    RcRawBlock block_{};
    RcMapperState state_{};
};

TEST_P(RcAllocations, None) {
    for (const double value : {1.0, 0.0, -1.0, 0.0}) {
        packets_sent = 0;
        EXPECT_EQ(cycle_with(value), 0U) << value;
        // At rest the recording, the zooms and the gimbal are told to stop.
        EXPECT_GE(packets_sent, value == 0.0 ? 4 : 25) << value;
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rc, RcAllocations, testing::Values(
    Case{"VideoRelative", 1, kModelX5, kMovementRelative},
    Case{"VideoAbsolute", 1, kModelZ3, kMovementAbsolute},
    Case{"PhotoRelative", 0, kModelX3, kMovementRelative},
    Case{"PhotoAbsolute", 0, kModelX5R, kMovementAbsolute}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

}  // namespace
