#include "link/telemetry_thread.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "app/millisecond_clock.h"
#include "app/supervision.h"
#include "link/app_link.h"
#include "link/telemetry_report.h"
#include "protocol/camera_state.h"

TelemetryDestination telemetry_destination;

namespace {

constexpr useconds_t kTickUs = 100000;
constexpr unsigned kTextReportTicks = 10;
constexpr unsigned kBinaryReportTicks = 2;
constexpr std::uint32_t kParametersFreshMs = 3000;

// Written before the thread starts.
struct {
    const FocusLimits* limits;
    CameraState* state;
} sources;

// What was sent, or `length` where there is nowhere to send to. A port of 65536 is none.
ssize_t send_report(const void* report, std::size_t length) {
    const auto port = static_cast<std::uint16_t>(telemetry_destination.port);
    if (telemetry_destination.host == nullptr || port == 0) {
        return static_cast<ssize_t>(length);
    }
    return app_link_send_to(static_cast<const std::uint8_t*>(report), length,
                            telemetry_destination.host, port);
}

void send_binary_reports(const CameraState& state) {
    const auto record = build_status_record(state);
    send_report(record.data(), record.size());
    if (state.params_time_ms != 0) {
        const auto block = build_parameter_block(state);
        send_report(block.data(), block.size());
    }
}

// A block that arrives between the two steps is taken for old with the one before it, and is sent
// again when the camera has repeated it.
void forget_old_parameters(CameraState& state) {
    const std::uint32_t arrived = state.params_time_ms;
    if (arrived != 0 && clock_ms() - arrived > kParametersFreshMs) {
        state.params_time_ms = 0;
    }
}

}  // namespace

void telemetry_set_sources(const FocusLimits* limits, CameraState* state) {
    sources = {limits, state};
}

void telemetry_set_destination(const char* host, std::int32_t port) {
    free(telemetry_destination.host);
    telemetry_destination.host = strdup(host);
    telemetry_destination.port = port;
}

ssize_t telemetry_send_report(const CameraState& state) {
    std::array<char, kTextReportCapacity> report;
    const std::size_t length = build_text_report(state, *sources.limits, report);
    return send_report(report.data(), length);
}

void* telemetry_thread(void* /*unused*/) {
    CameraState& state = *sources.state;
    forget_old_parameters(state);
    for (unsigned tick = 0;; ++tick) {
        const bool text_is_due = tick % kTextReportTicks == 0;
        // Whether or not a camera is there: the main application comes and goes by itself.
        if (text_is_due) {
            app_link_check_presence();
        }
        if (link_is_active()) {
            if (text_is_due) {
                telemetry_send_report(state);
            }
            if (tick % kBinaryReportTicks == 0) {
                send_binary_reports(state);
            }
        }
        usleep(kTickUs);
        forget_old_parameters(state);
    }
}
