// The two operations that the camera's messages call for, as calls that are only noted. Included by
// the one source of a test executable: it defines them for the whole program.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "control/capture_commands.h"
#include "control/device_commands.h"

inline std::vector<std::string> operations;
inline std::function<void()> during_stop;  // what happens while the camera is being stopped

int camera_power(const char* state) {
    operations.push_back(std::string("camera_power ") + state);
    return 1;
}

int camera_stop_shooting() {
    operations.emplace_back("camera_stop_shooting");
    if (during_stop) {
        during_stop();
    }
    return 1;
}
