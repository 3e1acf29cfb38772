#include "control/gimbal_commands.h"
