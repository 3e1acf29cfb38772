// UDP port 6000 to the camera: every datagram is one packet on the bulk IN endpoint, unchanged.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

// Opens the socket on all interfaces and starts its receive thread. 0, the negative result of
// bind(), or the result of pthread_create(). Start-up thread.
int udp_bridge_open(std::uint16_t port);

// Sends to port 6000 of the last sender. Result of sendto().
ssize_t udp_bridge_reply(const std::uint8_t* buffer, std::size_t length);
