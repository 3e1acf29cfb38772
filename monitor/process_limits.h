// What the process may take of the machine. Called by main, before there are other threads.
#pragma once

void set_process_limits();
