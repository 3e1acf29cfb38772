// The ways out of the process. Thread-safe, and safe in a signal handler.
#pragma once

// Exit statuses. The process is meant to run for ever: there is no status for success.
enum ExitStatus {
    kExitRefused = 1,     // refusal at start-up, a signal, the end of the USB link
    kExitTimeout = 2,     // the camera fell silent, or shared memory could not be had
    kExitSocketLost = 3,  // the main application's socket failed
};

// Ends the process at once from whichever thread saw the reason. Several threads may get here in
// the same moment, and one of them may hold a stdio lock, so nothing is run at exit; nothing needs
// to be: all output is unbuffered and the kernel takes back the rest.
[[noreturn]] void end_process(ExitStatus status);

// What a failed assert() does, for assertions whose text is fixed: prints
// "PROGRAM: FILE:LINE: FUNCTION: Assertion `EXPRESSION' failed." and aborts.
[[noreturn]] void assertion_failed(const char* expression, const char* file, unsigned line,
                                   const char* function);
