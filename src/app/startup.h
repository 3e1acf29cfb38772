// From the command line to the running receiver.
#pragma once

// The fixed start-up sequence, then the supervision. Never returns: every end is an exit with
// status 1, 2 or 3 (app/process_end.h).
[[noreturn]] void receiver_run(int argc, char* argv[]);
