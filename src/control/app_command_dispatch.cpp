#include "control/app_command_dispatch.h"
