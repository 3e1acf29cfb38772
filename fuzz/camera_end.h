// The camera's end of the link: camera_send() and the pauses between packets, replaced. Every
// packet that leaves is checked: its size, both sums, its sequence number, and that it is of a
// command that the receiver has.
#pragma once

#include <cstdint>
#include <vector>

// The packets since the last call, whole.
std::vector<std::vector<std::uint8_t>> take_sent();
