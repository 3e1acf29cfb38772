// The order of the start-up. Every step is replaced by one that tells of itself; each run is a
// process of its own, whose whole standard error is compared.
#include "app/startup.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "app/app_link_start.h"
#include "app/board_check.h"
#include "app/camera_link_start.h"
#include "app/focus_config.h"
#include "app/process_end.h"
#include "app/receiver_options.h"
#include "app/supervision.h"
#include "protocol/camera_state.h"
#include "video/frame_buffers.h"

ReceiverOptions receiver_options;

namespace {

// What the steps answer.
bool board_is_supported = true;
int focus_config_result = 0;
int frame_buffers_result = 0;
int app_link_result = 0;
int camera_link_result = 0;
std::uint8_t verbose = 0;
int signal_to_raise = 0;

bool camera_state_is_clear() {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&camera_state);
    return std::all_of(bytes, bytes + sizeof(camera_state), [](int byte) { return byte == 0; });
}

}  // namespace

extern "C" sighandler_t signal(int number, sighandler_t handler) noexcept {
    fprintf(stderr, "[signal %d]\n", number);
    const auto real =
        reinterpret_cast<sighandler_t (*)(int, sighandler_t)>(dlsym(RTLD_NEXT, "signal"));
    return real(number, handler);
}

extern "C" int usleep(useconds_t microseconds) {
    fprintf(stderr, "[usleep %u]\n", microseconds);
    return 0;
}

bool board_check() {
    fprintf(stderr, "[board_check]\n");
    return board_is_supported;
}

int focus_config_load() {
    fprintf(stderr, "[focus_config_load]");
    return focus_config_result;
}

void receiver_options_parse(int argc, char* const argv[]) {
    fprintf(stderr, "[options %d %s %s]\n", argc, argv[0], argv[1]);
    receiver_options = {"10.0.0.9", 7001, verbose};
    // Whatever stands in the state before the pause is cleared after it.
    memset(static_cast<void*>(&camera_state), 0xA5, sizeof(camera_state));
}

int frame_buffers_init() {
    fprintf(stderr, "[frame_buffers_init, state %s]\n",
            camera_state_is_clear() ? "clear" : "not clear");
    return frame_buffers_result;
}

int app_link_start(const char* dst_host, std::int32_t dst_port) {
    fprintf(stderr, "[app_link_start %s %d]\n", dst_host, dst_port);
    return app_link_result;
}

int camera_link_start() {
    fprintf(stderr, "[camera_link_start]\n");
    return camera_link_result;
}

void supervise() {
    if (signal_to_raise != 0) {
        kill(getpid(), signal_to_raise);
    }
    fprintf(stderr, "[supervise]\n");
    _exit(99);
}

namespace {

using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;

const std::string kBannerAndSignals =
    "DJI Osmo Pro/RAW Wired USB receiver\n"
    "[signal 15]\n[signal 2]\n[signal 2]\n[signal 6]\n[signal 1]\n"
    "[signal 9]\n[signal 3]\n[signal 15]\n[signal 11]\n[signal 13]\n";

const std::string kUpToTheBuffers = kBannerAndSignals +
                                    "[board_check]\n"
                                    "Loading camera config file... [focus_config_load]done\n"
                                    "[options 2 receiver -v]\n"
                                    "[usleep 1000000]\n"
                                    "Init telemetry buffer\n"
                                    "[frame_buffers_init, state clear]\n";

void run() {
    char name[] = "receiver";
    char argument[] = "-v";
    char* argv[] = {name, argument, nullptr};
    receiver_run(2, argv);
}

class StartupDeathTest : public testing::Test {
  protected:
    void SetUp() override {
        board_is_supported = true;
        focus_config_result = frame_buffers_result = app_link_result = camera_link_result = 0;
        verbose = 0;
        signal_to_raise = 0;
    }
};

TEST_F(StartupDeathTest, StepsInTheirOrder) {
    EXPECT_EXIT(run(), ExitedWithCode(99),
                Eq(kUpToTheBuffers + "[app_link_start 10.0.0.9 7001]\n"
                                     "[camera_link_start]\n"
                                     "[supervise]\n"));
}

TEST_F(StartupDeathTest, VerboseTellsOfBothLinks) {
    verbose = 1;
    EXPECT_EXIT(run(), ExitedWithCode(99),
                Eq(kUpToTheBuffers + "Init connection to main application 10.0.0.9:7001\n"
                                     "[app_link_start 10.0.0.9 7001]\n"
                                     "Done\n"
                                     "Init connection to camera\n"
                                     "[camera_link_start]\n"
                                     "[supervise]\n"));
}

TEST_F(StartupDeathTest, UnsupportedBoardEndsTheStart) {
    board_is_supported = false;
    EXPECT_EXIT(run(), ExitedWithCode(1), Eq(kBannerAndSignals + "[board_check]\n"));
}

TEST_F(StartupDeathTest, MissingFocusLimitsAreNoReasonToEnd) {
    focus_config_result = 1;
    EXPECT_EXIT(run(), ExitedWithCode(99),
                Eq(kBannerAndSignals + "[board_check]\n"
                                       "Loading camera config file... [focus_config_load]failed\n"
                                       "[options 2 receiver -v]\n"
                                       "[usleep 1000000]\n"
                                       "Init telemetry buffer\n"
                                       "[frame_buffers_init, state clear]\n"
                                       "[app_link_start 10.0.0.9 7001]\n"
                                       "[camera_link_start]\n"
                                       "[supervise]\n"));
}

TEST_F(StartupDeathTest, FailedFrameBuffersEndTheStart) {
    frame_buffers_result = -1;
    EXPECT_EXIT(run(), ExitedWithCode(2),
                Eq(kUpToTheBuffers + "Failed to init telemetry buffer\n"));
}

TEST_F(StartupDeathTest, FailedMainApplicationSideEndsTheStartSilently) {
    app_link_result = -1;
    EXPECT_EXIT(run(), ExitedWithCode(1), Eq(kUpToTheBuffers + "[app_link_start 10.0.0.9 7001]\n"));
}

TEST_F(StartupDeathTest, FailedMainApplicationSideIsToldWhenVerbose) {
    app_link_result = -1;
    verbose = 1;
    EXPECT_EXIT(run(), ExitedWithCode(1),
                Eq(kUpToTheBuffers + "Init connection to main application 10.0.0.9:7001\n"
                                     "[app_link_start 10.0.0.9 7001]\n"
                                     "Failed\n"));
}

TEST_F(StartupDeathTest, FailedCameraSideEndsTheStart) {
    camera_link_result = 1;
    EXPECT_EXIT(run(), ExitedWithCode(1),
                Eq(kUpToTheBuffers + "[app_link_start 10.0.0.9 7001]\n"
                                     "[camera_link_start]\n"));
}

TEST_F(StartupDeathTest, HandledSignalsEndTheProcess) {
    // clang-format off
    const struct { int number; const char* line; } kSignals[] = {
        {SIGTERM, "signal 15 handler\n"},
        {SIGINT,  "signal 2 handler\n"},
        {SIGABRT, "signal 6 handler\n"},
        {SIGHUP,  "signal 1 handler\n"},
        {SIGQUIT, "signal 3 handler\n"},
        {SIGSEGV, "signal 11 handler\n"},
        {SIGPIPE, "signal 13 handler\n"},
    };
    // clang-format on
    for (const auto& row : kSignals) {
        signal_to_raise = row.number;
        EXPECT_EXIT(run(), ExitedWithCode(1),
                    EndsWith(std::string("[camera_link_start]\n") + row.line))
            << row.number;
    }
}

TEST_F(StartupDeathTest, KillIsNotHandled) {
    signal_to_raise = SIGKILL;
    EXPECT_EXIT(run(), testing::KilledBySignal(SIGKILL), EndsWith("[camera_link_start]\n"));
}

}  // namespace
