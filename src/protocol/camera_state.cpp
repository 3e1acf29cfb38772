#include "protocol/camera_state.h"

constinit CameraState camera_state{};
