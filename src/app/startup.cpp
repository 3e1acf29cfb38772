#include "app/startup.h"

#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cstddef>

#include "app/app_link_start.h"
#include "app/board_check.h"
#include "app/camera_link_start.h"
#include "app/focus_config.h"
#include "app/process_end.h"
#include "app/receiver_options.h"
#include "app/supervision.h"
#include "protocol/camera_state.h"
#include "video/frame_buffers.h"

namespace {

// Every signal that ends the process, in the order in which the handler is installed. The repeats
// change nothing, and the kernel refuses the attempt on SIGKILL without harm.
constexpr int kHandledSignals[] = {
    SIGTERM, SIGINT,  SIGINT,  SIGABRT, SIGHUP,  //
    SIGKILL, SIGQUIT, SIGTERM, SIGSEGV, SIGPIPE,
};

constexpr useconds_t kPauseBeforeBuffersUs = 1000000;

// May interrupt a thread inside stdio, so the line is formatted on the stack and written directly.
void on_signal(int number) {
    char line[32];
    const int length = snprintf(line, sizeof(line), "signal %d handler\n", number);
    // A standard error that cannot take the line does not keep the process from ending.
    [[maybe_unused]] const ssize_t written =
        write(STDERR_FILENO, line, static_cast<std::size_t>(length));
    end_process(kExitRefused);
}

void install_signal_handlers() {
    for (const int number : kHandledSignals) {
        signal(number, on_signal);
    }
}

void load_focus_limits() {
    fprintf(stderr, "Loading camera config file... ");
    // A board without the file is a new one: the limits stay 0 until the main application sets
    // them.
    fprintf(stderr, "%s\n", focus_config_load() == 0 ? "done" : "failed");
}

void start_frame_buffers() {
    // The text says telemetry, but the buffer is the video's.
    fprintf(stderr, "Init telemetry buffer\n");
    if (frame_buffers_init() != 0) {
        fprintf(stderr, "Failed to init telemetry buffer\n");
        end_process(kExitTimeout);
    }
}

void start_main_application_side() {
    const ReceiverOptions& options = receiver_options;
    if (options.verbose) {
        fprintf(stderr, "Init connection to main application %s:%d\n", options.dst_host,
                options.dst_port);
    }
    if (app_link_start(options.dst_host, options.dst_port) != 0) {
        if (options.verbose) {
            fprintf(stderr, "Failed\n");
        }
        end_process(kExitRefused);
    }
    if (options.verbose) {
        fprintf(stderr, "Done\n");
        fprintf(stderr, "Init connection to camera\n");
    }
}

void start_camera_side() {
    if (camera_link_start() != 0) {
        end_process(kExitRefused);
    }
}

}  // namespace

void receiver_run(int argc, char* argv[]) {
    fprintf(stderr, "DJI Osmo Pro/RAW Wired USB receiver\n");
    install_signal_handlers();
    if (!board_check()) {
        end_process(kExitRefused);
    }
    load_focus_limits();
    receiver_options_parse(argc, argv);
    usleep(kPauseBeforeBuffersUs);
    // No other thread exists yet that could see the state half cleared.
    memset(static_cast<void*>(&camera_state), 0, sizeof(camera_state));
    start_frame_buffers();
    start_main_application_side();
    start_camera_side();
    supervise();
}
