#include "control/rc_settings.h"

std::atomic<std::int32_t> gimbal_movement_mode{kMovementUnset};
std::atomic<std::int32_t> rc_digital_zoom_step;
