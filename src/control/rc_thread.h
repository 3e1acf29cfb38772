// The remote control: another process's sticks, switches and buttons, read from shared memory every
// 20 ms and turned into commands.
#pragma once

#include <atomic>
#include <cstdint>

// How the sticks move the gimbal. Written by the main application's receive thread.
inline constexpr std::int32_t kMovementUnset = -1;  // the thread does nothing
inline constexpr std::int32_t kMovementRelative = 0;
inline constexpr std::int32_t kMovementAbsolute = 1;
extern std::atomic<std::int32_t> gimbal_movement_mode;

// Added to the digital zoom level every 20 ms while it is not 0. Written by the main application's
// receive thread and by the remote control.
extern std::atomic<std::int32_t> rc_digital_zoom_step;

// Opens the channel block and starts the thread. 0. Start-up thread.
int rc_thread_start();

// Thread body; never returns.
void* rc_thread(void* unused);
