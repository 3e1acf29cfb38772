// What a running process holds, as /proc tells it. Reentrant.
#pragma once

#include <sys/types.h>

struct ProcessFigures {
    // Kilobytes. Resident memory contains the shared ring, as far as it was touched; the anonymous
    // part of it and the data segment are the process's own.
    long resident = 0;
    long anonymous = 0;
    long proportional = 0;
    long data = 0;
    long descriptors = 0;
    long threads = 0;
};

// Throws where the process is gone.
ProcessFigures process_figures(pid_t pid);
