#include "link/telemetry_thread.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "link/app_link.h"

TelemetryDestination telemetry_destination;

namespace {

constexpr useconds_t kTickUs = 100000;
constexpr unsigned kPresenceCheckTicks = 10;

}  // namespace

void telemetry_set_destination(const char* host, std::int32_t port) {
    free(telemetry_destination.host);
    telemetry_destination.host = strdup(host);
    telemetry_destination.port = port;
}

void* telemetry_thread(void* /*unused*/) {
    for (unsigned tick = 0;; ++tick) {
        // Whether or not a camera is there: the main application comes and goes by itself.
        if (tick % kPresenceCheckTicks == 0) {
            app_link_check_presence();
        }
        usleep(kTickUs);
    }
}
