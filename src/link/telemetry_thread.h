// The thread that reports to the main application and watches for its presence.
#pragma once

#include <sys/types.h>

#include <cstdint>

struct CameraState;
struct FocusLimits;

// Where the reports go. Set before the thread starts, only read afterwards; nothing is sent while
// the host is null or the port 0.
struct TelemetryDestination {
    char* host;         // the record's own copy
    std::int32_t port;  // the low 16 bits count
};

extern TelemetryDestination telemetry_destination;

// What the reports tell of; the records outlive the thread. Start-up thread, before the thread and
// the first report.
void telemetry_set_sources(const FocusLimits* limits, CameraState* state);

// Start-up thread.
void telemetry_set_destination(const char* host, std::int32_t port);

// Builds and sends the text report. Result of sendto(), or the text's length where there is no
// destination. Telemetry thread.
ssize_t telemetry_send_report(const CameraState& state);

// Thread body; never returns. Ticks every 100 ms: the presence check every tenth tick, and while
// the link is active the text report every tenth and the binary ones every second tick.
void* telemetry_thread(void* unused);
