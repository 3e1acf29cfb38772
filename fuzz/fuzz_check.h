// What a fuzz target expects of the receiver. A target goes over by a trap, so that the fuzzer
// keeps the input; the reason goes straight to descriptor 2, as standard error is a recorder
// (log.h).
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <cstdlib>

#define FUZZ_CHECK(condition)                                                               \
    do {                                                                                    \
        if (!(condition)) {                                                                 \
            dprintf(STDERR_FILENO, "%s:%d: expected %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                        \
        }                                                                                   \
    } while (false)
