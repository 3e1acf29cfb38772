// The allocations of the whole process. A program that links allocation_count.cpp has its allocator
// count them, those of operator new and of the C library itself included.
#pragma once

#include <atomic>

extern std::atomic<unsigned long> allocation_count;
