#include "app/process_end.h"

#include <assert.h>
#include <unistd.h>

void end_process(ExitStatus status) {
    _exit(status);
}

void assertion_failed(const char* expression, const char* file, unsigned line,
                      const char* function) {
    __assert_fail(expression, file, line, function);
}
