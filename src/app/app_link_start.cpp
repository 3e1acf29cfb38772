#include "app/app_link_start.h"

#include <pthread.h>
#include <stdio.h>

#include "app/focus_config.h"
#include "control/app_command_dispatch.h"
#include "control/rc_thread.h"
#include "link/app_link.h"
#include "link/telemetry_thread.h"
#include "protocol/camera_state.h"

namespace {

constexpr std::uint16_t kRxBufferSize = 10000;
constexpr std::uint16_t kAnyPort = 0;
constexpr std::uint32_t kPresenceTimeoutMs = 1000;

std::uint8_t rx_buffer[kRxBufferSize];

void report_found() {
    fprintf(stderr, "Main application found\n");
}

void report_lost() {
    fprintf(stderr, "Main application lost\n");
}

}  // namespace

int app_link_start(const char* dst_host, std::int32_t dst_port) {
    telemetry_set_sources(focus_config_get(), &camera_state);
    rc_thread_start();  // before there is a channel that could choose its movement mode
    telemetry_set_destination(dst_host, dst_port);

    app_link_set_buffer(rx_buffer, kRxBufferSize);
    app_link_set_found_callback(report_found);
    app_link_set_lost_callback(report_lost);
    app_link_set_datagram_callback(app_command_dispatch);
    if (app_link_open(kAnyPort, kPresenceTimeoutMs, true) != 0) {
        return -1;
    }

    // The video needs no telemetry: a system without a thread to spare goes on without it.
    pthread_t telemetry;
    pthread_create(&telemetry, nullptr, telemetry_thread, nullptr);
    return 0;
}
