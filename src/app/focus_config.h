// The manual-focus limits and their file on the boot partition.
#pragma once

#include <atomic>
#include <cstdint>

// In percents of the camera's focus range, taken as written; both 0: no limits. The main
// application's receive thread replaces them, the telemetry and remote-control threads read them:
// two words without a lock.
struct FocusLimits {
    std::atomic<std::int32_t> mf_min;
    std::atomic<std::int32_t> mf_max;
};

// 0, or 1 when the file could not be read; the limits are then 0. Start-up thread.
int focus_config_load();

FocusLimits* focus_config_get();

// Writes the limits to the boot partition, which is remounted for it. Main application's receive
// thread.
void focus_config_save();
