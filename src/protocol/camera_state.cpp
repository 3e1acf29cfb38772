#include "protocol/camera_state.h"

CameraState camera_state;
