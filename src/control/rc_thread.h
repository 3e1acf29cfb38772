// The remote control: another process's sticks, switches and buttons, read from shared memory every
// 20 ms and turned into commands.
#pragma once

// Opens the channel block and starts the thread. 0. Start-up thread.
int rc_thread_start();

// Thread body; never returns.
void* rc_thread(void* unused);
