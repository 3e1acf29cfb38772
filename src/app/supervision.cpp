#include "app/supervision.h"

#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

#include "app/millisecond_clock.h"
#include "app/process_end.h"
#include "usb/gadget.h"

namespace {

constexpr std::int32_t kSilenceLimitMs = 5000;
constexpr useconds_t kSupervisionPauseUs = 1000000;
constexpr useconds_t kWatchdogPauseUs = 500000;

// Written by the watchdog, read by the telemetry thread; a value of the pass before does no harm.
std::atomic<bool> link_active;

// Signed: data that came after the clock was read, or a clock set back, is no silence.
std::int32_t camera_silence_ms() {
    const std::uint32_t now = clock_ms();
    return static_cast<std::int32_t>(now - gadget_last_rx_ms());
}

}  // namespace

bool link_is_active() {
    return link_active.load(std::memory_order_relaxed);
}

void supervise() {
    for (;;) {
        const std::int32_t delta = camera_silence_ms();
        fprintf(stderr, "delta %d\n", delta);
        if (delta > kSilenceLimitMs) {
            fprintf(stderr, "Camera connection timeout\n");
            end_process(kExitTimeout);
        }
        usleep(kSupervisionPauseUs);
    }
}

void* usb_watchdog_thread(void* /*unused*/) {
    for (;;) {
        const bool active = gadget_is_receiving();
        link_active.store(active, std::memory_order_relaxed);
        // While data flows the reader has the device to itself.
        if (!active && gadget_poll() == 0) {
            break;
        }
        if (camera_silence_ms() > kSilenceLimitMs) {
            fprintf(stderr, "Telemetry receiving timeout\n");
            end_process(kExitTimeout);
        }
        usleep(kWatchdogPauseUs);
    }
    gadget_exit();
    fprintf(stderr, "USB receiver exit\n");
    end_process(kExitRefused);
}
