// The three sticks: the part of a cycle that moves the gimbal.
#include "control/gimbal_commands.h"
#include "control/rc_mapper.h"
#include "control/rc_settings.h"

namespace {

constexpr int kStopRepeats = 3;

std::int32_t movement_mode() {
    return gimbal_movement_mode.load(std::memory_order_relaxed);
}

// At rest in both senses of the mode: one that changes during the stop is stopped in the new one.
void stop_gimbal() {
    if (movement_mode() == kMovementRelative) {
        for (int i = 0; i < kStopRepeats; ++i) {
            gimbal_set_speed(0.0, 0.0, 0.0);
        }
        if (movement_mode() == kMovementRelative) {
            return;
        }
    }
    for (int i = 0; i < kStopRepeats; ++i) {
        gimbal_set_abs_position(0.0, 0.0, 0.0);
    }
}

void move_gimbal(double pan, double tilt, double dutch) {
    const std::int32_t mode = movement_mode();
    if (mode == kMovementRelative) {
        gimbal_set_speed(pan, tilt, dutch);
    } else if (mode == kMovementAbsolute) {
        gimbal_set_abs_position(pan, tilt, dutch);
    }
}

}  // namespace

void rc_copy_sticks(RcMapperState& state) {
    state.pan = read_rc_channel(state.block->pan);
    state.tilt = read_rc_channel(state.block->tilt);
    state.dutch = read_rc_channel(state.block->dutch);
}

void rc_drive_gimbal(RcMapperState& state) {
    const bool at_rest = state.pan == 0.0 && state.tilt == 0.0 && state.dutch == 0.0;
    if (!at_rest) {
        state.moving = true;
        move_gimbal(state.pan, state.tilt, state.dutch);
    } else if (state.moving) {
        stop_gimbal();
        state.moving = false;
    }
}
