#include "control/rc_thread.h"
