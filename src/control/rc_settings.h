// What the main application tells the remote control: two words, written by its receive thread and
// read by the remote-control thread in every cycle.
#pragma once

#include <atomic>
#include <cstdint>

// How the sticks move the gimbal.
inline constexpr std::int32_t kMovementUnset = -1;  // the remote control does nothing
inline constexpr std::int32_t kMovementRelative = 0;
inline constexpr std::int32_t kMovementAbsolute = 1;
extern std::atomic<std::int32_t> gimbal_movement_mode;

// Added to the digital zoom level every 20 ms while it is not 0. The remote control sets it, too.
extern std::atomic<std::int32_t> rc_digital_zoom_step;
