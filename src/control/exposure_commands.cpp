#include "control/exposure_commands.h"
