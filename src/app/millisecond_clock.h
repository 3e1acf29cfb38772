// The millisecond clock behind every timeout. Thread-safe.
//
// It is the real-time clock, in 32 bits that wrap every 49.7 days: times are told apart by
// subtraction only. A step of the wall clock is seen by all of them.
#pragma once

#include <time.h>

#include <cstdint>

inline std::uint32_t clock_ms() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint32_t>(now.tv_sec) * 1000U +
           static_cast<std::uint32_t>(now.tv_nsec / 1000000);
}
