// The command line.
#pragma once

#include <cstdint>

// Written once at start-up, before any other thread exists.
struct ReceiverOptions {
    char dst_host[20];      // dotted IPv4 address of the main application
    std::int32_t dst_port;  // its UDP port
    std::uint8_t verbose;
};

extern ReceiverOptions receiver_options;

// Sets the defaults, then takes the command line. Ends the process with status 1 for help, an
// unknown option, or a port of 0. A host that does not fit is cut.
void receiver_options_parse(int argc, char* const argv[]);
