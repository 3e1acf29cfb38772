#include "simulator/scripted_app_options.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

constexpr char kUsage[] =
    "Usage: scripted-main-application [options]\n"
    "A main application for the receiver: prints what its reports tell, sends what a script says.\n"
    "  -p, --port N       UDP port that the reports come to (5000)\n"
    "  -x, --script FILE  what to send and what to expect, see simulator/example-app.script\n"
    "  -s, --seconds N    end N seconds after the first report (with the script; without: Ctrl-C)\n"
    "  -W, --wait N       seconds to wait for the first report (60)\n"
    "  -h, --help         this text\n"
    "Exit status 0; 1 when an expectation was not met, the script was not finished, or no report\n"
    "or a malformed one came; 2 for wrong arguments.\n";

// A whole text that is a number of that range.
std::optional<double> number_in(const char* text, double least, double most) {
    char* end = nullptr;
    const double value = strtod(text, &end);
    const bool good = end != text && *end == '\0' && value >= least && value <= most;
    return good ? std::optional(value) : std::nullopt;
}

bool take_option(int letter, ScriptedAppOptions* options) {
    if (letter == 'x') {
        options->script = optarg;
        return true;
    }
    if (letter != 'p' && letter != 's' && letter != 'W') {
        return false;
    }
    const auto value = number_in(optarg, letter == 'p' ? 1 : 0, letter == 'p' ? 65535 : 1e6);
    if (!value) {
        fprintf(stderr, "scripted-main-application: '%s' is no value of -%c\n", optarg, letter);
        return false;
    }
    if (letter == 'p') {
        options->port = static_cast<std::uint16_t>(*value);
    } else {
        (letter == 's' ? options->seconds : options->wait) = *value;
    }
    return true;
}

}  // namespace

std::optional<ScriptedAppOptions> parse_scripted_app_options(int argc, char* argv[], int* status) {
    static constexpr option kLongOptions[] = {
        {"port", required_argument, nullptr, 'p'},    {"script", required_argument, nullptr, 'x'},
        {"seconds", required_argument, nullptr, 's'}, {"wait", required_argument, nullptr, 'W'},
        {"help", no_argument, nullptr, 'h'},          {},
    };
    ScriptedAppOptions options;
    int letter = 0;
    while ((letter = getopt_long(argc, argv, "p:x:s:W:h", kLongOptions, nullptr)) != -1) {
        if (!take_option(letter, &options)) {
            *status = letter == 'h' ? 0 : 2;
            fputs(kUsage, letter == 'h' ? stdout : stderr);
            return std::nullopt;
        }
    }
    return options;
}

std::optional<std::vector<AppStep>> load_app_script(const std::string& path) {
    if (path.empty()) {
        return std::vector<AppStep>();
    }
    std::ifstream file(path, std::ios::binary);
    std::string error = "cannot be read";
    std::optional<std::vector<AppStep>> steps;
    if (file) {
        steps = parse_app_script({std::istreambuf_iterator<char>(file), {}}, &error);
    }
    if (!steps) {
        fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
    }
    return steps;
}
