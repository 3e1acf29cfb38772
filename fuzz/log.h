// What the receiver prints, kept for the target instead of being written: a fuzzer prints millions
// of lines, and some oracles compare them.
#pragma once

#include <string>

// From here on stderr is the recorder. The sanitizers and FUZZ_CHECK write to descriptor 2 itself.
void record_log();

// The lines since the last call. Beyond a megabyte the rest is dropped.
std::string take_log();
