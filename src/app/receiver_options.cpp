#include "app/receiver_options.h"

#include <getopt.h>
#include <stdio.h>

#include "app/process_end.h"
#include "protocol/number_conversion.h"

ReceiverOptions receiver_options;

namespace {

// clang-format off
constexpr option kLongOptions[] = {
    {"dst-host", required_argument, nullptr, 'd'},
    {"dst-port", required_argument, nullptr, 's'},
    {"verbose",  no_argument,       nullptr, 'v'},
    {"help",     no_argument,       nullptr, '?'},
    {nullptr,    0,                 nullptr, 0},
};

constexpr const char* kUsage[] = {
    "DJI Osmo Pro/RAW Wired USB receiver",
    "Usage:",
    "-d | --dst-host=<destination_host>",
    "-s | --dst-port=<destination_port>",
    "-v | --verbose",
    "-? | --help - show this help",
};
// clang-format on

[[noreturn]] void refuse_with_usage() {
    for (const char* line : kUsage) {
        fprintf(stderr, "%s\n", line);
    }
    end_process(kExitRefused);
}

void set_host(const char* host) {
    // A dotted address fits whole; what is cut is none, and must not run into the port.
    snprintf(receiver_options.dst_host, sizeof(receiver_options.dst_host), "%s", host);
}

void set_defaults() {
    receiver_options = {};
    set_host("127.0.0.1");
    receiver_options.dst_port = 5000;
}

}  // namespace

void receiver_options_parse(int argc, char* const argv[]) {
    set_defaults();
    int character = 0;
    while ((character = getopt_long(argc, argv, "d:s:v?", kLongOptions, nullptr)) != -1) {
        switch (character) {
            case 'd':
                set_host(optarg);
                break;
            case 's':
                // A text that is no number is 0, which is refused below; the low 32 bits count.
                receiver_options.dst_port = parse_int32(optarg);
                break;
            case 'v':
                receiver_options.verbose = 1;
                break;
            case '?':  // asked for, or what getopt_long() makes of an unknown option
                refuse_with_usage();
            default:
                break;
        }
    }
    if (receiver_options.dst_port == 0) {
        fprintf(stderr, "Destination host or port not set\n");
        end_process(kExitRefused);
    }
}
