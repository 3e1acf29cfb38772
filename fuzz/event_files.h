// A gadgetfs whose every answer the fuzzer decides: the calls of the device layer, wrapped.
//
// Its descriptors are numbers that the kernel does not give out. Who uses one that is closed, or
// closes it twice, is found; so is a control request that is answered twice or not at all, or with
// more bytes than the host asked for.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fuzz/input.h"

// A device at power-on: every file closed.
void event_files_reset();

// From here on the calls fail now and then, as the input has it; null: they do not.
void event_files_fail_by(Input* input);

// What the next read of the control file returns. Null: it fails.
void event_files_send(const Bytes* events);

// How many files are open.
std::size_t event_files_open();

// Whether that descriptor is an open file's.
bool event_file_is_open(int fd);

// The requests that were read are all answered.
void event_files_check_answered();
