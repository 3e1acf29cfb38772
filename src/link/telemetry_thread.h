// The thread that reports to the main application and watches for its presence.
#pragma once

#include <cstdint>

// Where the reports go. Set before the thread starts, only read afterwards; nothing is sent while
// the host is null or the port 0.
struct TelemetryDestination {
    char* host;         // the record's own copy
    std::int32_t port;  // the low 16 bits count
};

extern TelemetryDestination telemetry_destination;

// Start-up thread.
void telemetry_set_destination(const char* host, std::int32_t port);

// Thread body; never returns. Ticks every 100 ms and checks the presence every tenth tick.
void* telemetry_thread(void* unused);
