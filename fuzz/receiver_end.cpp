#include "fuzz/receiver_end.h"

#include "app/process_end.h"

// In place of app/process_end.cpp.

void end_process(ExitStatus status) {
    throw ReceiverEnd{"status " + std::to_string(status)};
}

void assertion_failed(const char* expression, const char* /*file*/, unsigned /*line*/,
                      const char* /*function*/) {
    throw ReceiverEnd{expression};
}
