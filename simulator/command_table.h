// Every packet that the camera understands, a row each, and what it does to the camera. Reentrant.
#pragma once

#include <cstdint>
#include <span>

#include "simulator/camera_model.h"

// Who sends it to whom (02 the application, 09 another in its name; 01 the camera, 04 the
// gimbal, 07 and 09 other units), type, set, id, and the length of the whole packet. Commands that
// only their payload tells apart have its fifth byte too.
struct CameraCommand {
    static constexpr std::int16_t kAny = -1;

    const char* name;
    std::uint8_t sender, receiver, type, set, id;
    std::uint8_t length;
    std::int16_t fifth;  // byte 15, or kAny
    // The packet has that length, and bytes are counted from its start. False where a byte is not
    // what the command always has there; the model may be changed all the same.
    bool (*effect)(CameraModel&, std::span<const std::uint8_t> packet);
    bool wakes = false;  // heeded also by a camera that is not awake
};
std::span<const CameraCommand> camera_command_table();
