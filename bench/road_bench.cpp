// road-bench [SECONDS]: the whole receiver against the least that a program on its place could do,
// both on the simulated board: the way of a command, and CPU time over so many seconds (60) of
// video. Not for a machine where a receiver is at work.

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "command_latency.h"
#include "process_cpu.h"

int main(int argc, char* argv[]) {
    const long seconds = argc > 1 ? strtol(argv[1], nullptr, 10) : 60;
    if (seconds < 2 || seconds > 3600) {
        fprintf(stderr, "Usage: road-bench [SECONDS]\n");
        return 2;
    }
    try {
        return compare_command_latency() && compare_process_cpu(static_cast<unsigned>(seconds)) ? 0
                                                                                                : 1;
    } catch (const std::exception& failure) {
        fprintf(stderr, "road-bench: %s\n", failure.what());
        return 1;
    }
}
