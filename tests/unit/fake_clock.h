// The real-time clock of a test executable, stopped where the test sets it. Included by the one
// source of that executable: it defines clock_gettime() for the whole program.
#pragma once

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

// Milliseconds since 1970; negative: the machine's own clock.
inline std::atomic<std::int64_t> fake_clock_ms{-1};

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const std::int64_t now = fake_clock_ms.load();
    if (clock != CLOCK_REALTIME || now < 0) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    }
    time->tv_sec = static_cast<time_t>(now / 1000);
    time->tv_nsec = static_cast<long>(now % 1000 * 1000000);
    return 0;
}
