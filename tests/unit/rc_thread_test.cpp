// The remote-control thread's loop and its start. Each step is replaced by one that tells of
// itself, and the pauses take no time; each run is a process of its own.
#include "control/rc_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "app/supervision.h"
#include "control/rc_mapper.h"
#include "control/rc_settings.h"
#include "control/rc_shared_block.h"

namespace {

using testing::Eq;
using testing::ExitedWithCode;

RcRawBlock block;
RcMapperState* thread_state = nullptr;

bool link_is_up = true;
int openings_that_fail = 0;
int thread_error = 0;
int pauses = 0;
// What happens during each pause, counted from 1.
std::function<void(int pause)> during_pause;

void tell(const char* step, const RcMapperState& state) {
    fprintf(stderr, "[%s%s]\n", step, state.block == &block ? "" : " without its block");
}

}  // namespace

bool link_is_active() {
    return link_is_up;
}

void supervise() {
    _exit(99);
}

void* usb_watchdog_thread(void* /*unused*/) {
    return nullptr;
}

RcRawBlock* rc_shm_open() {
    fprintf(stderr, "[open]\n");
    return openings_that_fail-- > 0 ? nullptr : &block;
}

void rc_copy_sticks(RcMapperState& state) {
    thread_state = &state;
    tell("sticks", state);
}

void rc_evaluate_channels(RcMapperState& state) {
    tell("channels", state);
}

void rc_drive_gimbal(RcMapperState& state) {
    tell("gimbal", state);
}

extern "C" int usleep(useconds_t microseconds) {
    fprintf(stderr, "[usleep %u]\n", microseconds);
    during_pause(++pauses);
    return 0;
}

extern "C" {

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);

int __wrap_pthread_create(pthread_t* /*thread*/, const pthread_attr_t* attributes,
                          void* (*body)(void*), void* /*argument*/) {
    fprintf(stderr, "[thread%s]\n",
            body == rc_thread && attributes == nullptr ? "" : " of another");
    return thread_error;
}

}  // extern "C"

namespace {

const std::string kCycle = "[sticks]\n[channels]\n[gimbal]\n[usleep 20000]\n";

// Runs the thread until that pause, after which the process ends.
void run_until(int last_pause, const std::function<void(int pause)>& meanwhile = nullptr) {
    during_pause = [=](int pause) {
        if (pause == last_pause) {
            _exit(0);
        }
        if (meanwhile) {
            meanwhile(pause);
        }
    };
    rc_thread(nullptr);
}

TEST(RcThreadDeathTest, NoMovementModeIsChosenAtTheStart) {
    EXPECT_EQ(gimbal_movement_mode, -1);
    EXPECT_EQ(rc_digital_zoom_step, 0);
    EXPECT_EXIT(run_until(3), ExitedWithCode(0),
                Eq("[usleep 1000000]\n[usleep 1000000]\n[usleep 1000000]\n"));
}

TEST(RcThreadDeathTest, CyclesOnceAModeIsChosen) {
    const auto run = [] {
        run_until(4, [](int pause) {
            gimbal_movement_mode = pause == 1 ? kMovementRelative : kMovementAbsolute;
        });
    };
    EXPECT_EXIT(run(), ExitedWithCode(0),
                Eq("[usleep 1000000]\n[open]\n" + kCycle + kCycle + kCycle));
}

TEST(RcThreadDeathTest, WaitsForTheLinkBeforeItLooksAtTheMode) {
    const auto run = [] {
        link_is_up = false;
        run_until(4, [](int pause) { link_is_up = pause == 3; });
    };
    EXPECT_EXIT(run(), ExitedWithCode(0),
                Eq("[usleep 100000]\n[usleep 100000]\n[usleep 100000]\n[usleep 1000000]\n"));
}

TEST(RcThreadDeathTest, LinkLostBetweenCyclesIsWaitedForAndTheBlockKept) {
    const auto run = [] {
        gimbal_movement_mode = kMovementRelative;
        run_until(4, [](int pause) { link_is_up = pause == 3; });
    };
    EXPECT_EXIT(run(), ExitedWithCode(0),
                Eq("[open]\n" + kCycle + "[usleep 100000]\n[usleep 100000]\n" + kCycle));
}

TEST(RcThreadDeathTest, BlockThatCannotBeHadIsTriedForEveryCycle) {
    const auto run = [] {
        gimbal_movement_mode = kMovementAbsolute;
        openings_that_fail = 2;
        run_until(4);
    };
    EXPECT_EXIT(run(), ExitedWithCode(0),
                Eq("[open]\n[usleep 20000]\n[open]\n[usleep 20000]\n[open]\n" + kCycle + kCycle));
}

TEST(RcThreadDeathTest, StartOpensTheBlockAndStartsTheThread) {
    const auto run = [] {
        const int result = rc_thread_start();
        gimbal_movement_mode = kMovementRelative;
        fprintf(stderr, "[%d]\n", result);
        run_until(1);
    };
    EXPECT_EXIT(run(), ExitedWithCode(0), Eq("[open]\n[thread]\n[0]\n" + kCycle));
}

TEST(RcThreadDeathTest, StartTriesTwiceForTheBlock) {
    const auto run = [] {
        openings_that_fail = 1;
        _exit(rc_thread_start());
    };
    EXPECT_EXIT(run(), ExitedWithCode(0), Eq("[open]\n[open]\n[thread]\n"));
}

TEST(RcThreadDeathTest, StartSucceedsWithoutTheBlock) {
    const auto run = [] {
        openings_that_fail = 9;
        _exit(rc_thread_start());
    };
    EXPECT_EXIT(run(), ExitedWithCode(0), Eq("[open]\n[open]\n[thread]\n"));
}

TEST(RcThreadDeathTest, StartSucceedsWithoutAThread) {
    const auto run = [] {
        thread_error = 11;
        _exit(rc_thread_start());
    };
    EXPECT_EXIT(run(), ExitedWithCode(0), Eq("[open]\n[thread]\n"));
}

TEST(RcThreadDeathTest, StartForgetsSignsSticksAndMovement) {
    const auto run = [] {
        gimbal_movement_mode = kMovementRelative;
        run_until(3, [](int pause) {
            if (pause == 1) {
                thread_state->previous_sign.fill(1);
                thread_state->pan = thread_state->tilt = thread_state->dutch = 1.0;
                thread_state->moving = true;
                thread_state->last_focus = 30;
                rc_thread_start();
                const RcMapperState& state = *thread_state;
                for (const std::int8_t sign : state.previous_sign) {
                    fprintf(stderr, "%d", sign);
                }
                fprintf(stderr, "\n%g %g %g %d %d\n", state.pan, state.tilt, state.dutch,
                        state.moving, state.last_focus);
            }
        });
    };
    EXPECT_EXIT(run(), ExitedWithCode(0),
                Eq("[open]\n" + kCycle + "[thread]\n" + std::string(38, '0') + "\n0 0 0 0 30\n" +
                   kCycle + kCycle));
}

}  // namespace
