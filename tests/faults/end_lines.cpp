#include "tests/faults/end_lines.h"

#include <sstream>

namespace {

// The lines with which the process says why it ends, and the status that goes with each. The first
// that fits counts: a sanitizer's and an assertion's line stand before the signal's.
struct End {
    const char* text;
    int status;
    bool whole_line;
};
// clang-format off
constexpr End kEnds[] = {
    {"ERROR: AddressSanitizer",         -1, false},
    {"ERROR: LeakSanitizer",            -1, false},
    {"runtime error",                   -1, false},
    {"terminate called",                 1, false},
    {"Assertion",                        1, false},
    {"signal ",                          1, false},
    {"Board not supported",              1, true},
    {"Failed to init telemetry buffer",  2, true},
    {"Failed",                           1, true},
    {"Gadget init failed",               1, false},
    {"USB receiver exit",                1, true},
    {"Camera connection timeout",        2, true},
    {"Telemetry receiving timeout",      2, true},
    {"UDP read failed",                  3, true},
};
// clang-format on

constexpr char kProgram[] = "camera-usb-receiver: ";

}  // namespace

std::string end_line(const std::string& output, int status) {
    for (const End& end : kEnds) {
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            const bool fits =
                end.whole_line ? line == end.text : line.find(end.text) != std::string::npos;
            if (fits && (end.status == status || end.status < 0)) {
                const std::size_t name = line.find(kProgram);
                return name == std::string::npos ? line : line.substr(name + sizeof kProgram - 1);
            }
        }
    }
    return "without a word";
}
