// Last step of every command operation: a packet of the table (packet_table.h), sealed and on its
// way. Thread-safe.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "protocol/camera_packet.h"
#include "usb/camera_send.h"

// Takes the template or a patched copy of it. The packet is sealed, and so takes a sequence number,
// whether or not a camera is there to get it. Result of camera_send().
template <std::size_t N>
int send_packet(std::array<std::uint8_t, N> packet) {
    camera_packet_seal(packet.data(), packet.size());
    return static_cast<int>(camera_send(packet.data(), packet.size()));
}

// Templates sent as they stand, in this order and without a pause. Result of the last.
template <const auto&... Packets>
int send_packets() {
    int result = 0;
    ((result = send_packet(Packets)), ...);
    return result;
}
