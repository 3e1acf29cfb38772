// What a process has taken of the processor. Reentrant.
#pragma once

#include <sys/types.h>

#include <optional>

// Seconds of user and system time so far; nullopt where there is no such process.
std::optional<double> cpu_seconds(pid_t pid);
