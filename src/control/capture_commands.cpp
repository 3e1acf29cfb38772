#include "control/capture_commands.h"
