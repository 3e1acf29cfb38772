#include "control/focus_commands.h"
