#include "control/setting_steps.h"
