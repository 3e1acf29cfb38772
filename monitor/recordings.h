// The directory of the recordings: names, a list, and the files for whoever fetches them. Only
// files of the names that are given here are seen. Reentrant.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Recording {
    std::string name;
    std::uint64_t bytes;
};

// Of this moment, one that the directory does not have.
std::string new_recording_name(const std::string& directory);
bool is_recording_name(const std::string& name);
// By name, so in the order of their beginnings.
std::vector<Recording> list_recordings(const std::string& directory);
// To be read from the start, with its size; -1 where there is no such file, and for other names.
int open_recording(const std::string& directory, const std::string& name, std::uint64_t* bytes);
