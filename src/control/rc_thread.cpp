#include "control/rc_thread.h"

#include <pthread.h>
#include <unistd.h>

#include "app/supervision.h"
#include "control/rc_mapper.h"
#include "control/rc_settings.h"
#include "control/rc_shared_block.h"

namespace {

constexpr useconds_t kCyclePauseUs = 20000;
constexpr useconds_t kLinkDownPauseUs = 100000;
constexpr useconds_t kModeUnsetPauseUs = 1000000;

// Start-up thread until the thread starts, the thread's from then on.
RcMapperState state;

bool have_block() {
    if (state.block == nullptr) {
        state.block = rc_shm_open();
    }
    return state.block != nullptr;
}

void wait_for_link() {
    while (!link_is_active()) {
        usleep(kLinkDownPauseUs);
    }
}

bool mode_is_chosen() {
    return gimbal_movement_mode.load(std::memory_order_relaxed) != kMovementUnset;
}

}  // namespace

int rc_thread_start() {
    state.pan = state.tilt = state.dutch = 0.0;
    // One that cannot be had now is tried for again in every cycle.
    if (!have_block()) {
        have_block();
    }
    state.previous_sign.fill(0);
    state.moving = false;
    // The video and the main application's commands need no remote control.
    pthread_t thread;
    pthread_create(&thread, nullptr, rc_thread, nullptr);
    return 0;
}

void* rc_thread(void* /*unused*/) {
    for (;;) {
        wait_for_link();
        if (!mode_is_chosen()) {
            usleep(kModeUnsetPauseUs);
            continue;
        }
        if (have_block()) {
            rc_copy_sticks(state);
            rc_evaluate_channels(state);
            rc_drive_gimbal(state);
        }
        usleep(kCyclePauseUs);
    }
}
