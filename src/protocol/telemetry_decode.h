// Folds the camera's status messages into the camera state.
#pragma once

#include <cstddef>
#include <cstdint>

struct CameraState;

// Takes one packet, checks it once more, and updates the state. USB reader thread.
void telemetry_decode(CameraState* state, const std::uint8_t* packet, std::size_t length);
