// The remote control's shared memory.
#pragma once

#include "control/rc_raw_block.h"

// Opens "/shared_rc_raw", or creates it where the remote-control receiver has not yet, and gives it
// the block's size. The mapping stays for the life of the process; null where it cannot be had, and
// then nothing of the attempt stays open. Remote-control thread, and the start-up thread before it.
RcRawBlock* rc_shm_open();
