// One cycle of the remote control: channels become commands, sticks move the gimbal. Remote-control
// thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "control/rc_raw_block.h"

inline constexpr std::size_t kRcChannelCount = 38;

// What the thread remembers from cycle to cycle, and while it idles. All zero at start.
struct RcMapperState {
    RcRawBlock* block;  // null while there is none
    double pan;
    double tilt;
    double dutch;
    bool moving;  // the gimbal was told to move and not yet to stop
    // -1, 0 or +1, a channel's last sign, in the order in which the channels are looked at.
    std::array<std::int8_t, kRcChannelCount> previous_sign;
    std::int32_t focus_step;         // -1, 0, +1
    std::int32_t last_focus;         // position sent last, 0 .. 100
    std::int32_t focus_accumulator;  // 0 .. 100
    std::int32_t last_ev;            // place in the list of the compensation sent last
};

// +1 above zero, -1 below, 0 at zero and for what is no number.
constexpr int rc_sign(double value) {
    return (value > 0.0 ? 1 : 0) - (value < 0.0 ? 1 : 0);
}

// The three steps of a cycle, in their order. The first two read the block, which must be there.
void rc_copy_sticks(RcMapperState& state);
void rc_evaluate_channels(RcMapperState& state);
void rc_drive_gimbal(RcMapperState& state);
