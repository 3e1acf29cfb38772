// The places of the system that a target's receiver code uses, apart from the real ones and from
// those of every other fuzzer: a directory of this process for the files (by the simulator's path
// mapping), memory without a name for shared memory, and no shell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Makes the directory and sets the mapping up; ends the process where the mapping does not work.
void use_own_places();

// A file of the receiver's by its absolute name.
std::string read_own_file(const char* path);
void write_own_file(const char* path, const std::vector<std::uint8_t>& content);
void remove_own_file(const char* path);

// The memory of the shared object that was opened under that name.
std::uint8_t* own_shared_memory(const char* name, std::size_t size);

// The shell commands since the last call.
std::vector<std::string> take_commands();
