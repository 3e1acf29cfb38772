// What the main application sends: JSON commands and the binary zoom message.
//
//   '!' and a JSON object of texts: "cmd", "name", "param", "value", "value2", "value3"
//   05 01 step(le16)                digital zoom by this step every 20 ms, 0 stops
//   05 02 direction(le16)           optical zoom in, out, stop
//
// The formats: docs/protocol.md, "Commands".
#pragma once

#include <cstdint>

// Carries out one datagram, or nothing where it says nothing; never answers. Signature of the
// channel's datagram callback. Main application's receive thread.
void app_command_dispatch(const std::uint8_t* buffer, std::uint16_t length, const char* host,
                          std::uint16_t port);
