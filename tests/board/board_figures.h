// What a process and the kernel hold at a moment, for tests that look whether it grows.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct Figure {
    std::string name;  // heads its column
    long value;
};
using Figures = std::vector<Figure>;

// Of a process: descriptors, threads, memory in kB.
Figures process_figures(pid_t process);
// Of the kernel, with what it merely caches dropped first; memory in kB.
Figures kernel_figures();

// A table, one row a cycle.
void print_figures(const std::vector<Figures>& cycles);
long figure(const Figures& figures, const std::string& name);
