#include "control/image_commands.h"
