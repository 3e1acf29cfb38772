#include "control/device_commands.h"
