// What passes between camera, receiver and main application, from a capture: tshark with the plugin
// of tools/wireshark reads it, and each packet becomes a line.
#pragma once

#include <string>

struct SniffOptions {
    std::string file;
    std::string interface;  // in the file's place
    std::string plugin;     // empty: the one that is installed
};

// The exit status: 0 when all is read, 1 where tshark fails, after its own message.
int sniff(const SniffOptions& options);

// The lines of one frame, as tshark -T ek has it; empty where there is no packet in it. Reentrant.
std::string sniffed_lines(const std::string& json);
