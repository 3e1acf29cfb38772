// The side of the main application.
#pragma once

#include <cstdint>

// Starts the remote control, opens the channel and starts its threads. 0, or -1 when the socket
// cannot be had. Start-up thread.
int app_link_start(const char* dst_host, std::int32_t dst_port);
