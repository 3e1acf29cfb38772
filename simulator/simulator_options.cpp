#include "simulator/simulator_options.h"

#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "simulator/camera_stream.h"
#include "simulator/usb_host.h"

namespace {

constexpr char kUsage[] =
    "Usage: camera-simulator [options] [--run PROGRAM [ARGUMENTS...]]\n"
    "Plays a board and a camera to the receiver: prints how to start it, or runs it.\n"
    "       camera-simulator --usb [options]\n"
    "Plays the camera to a receiver on a real board, at a USB port of this machine.\n"
    "  -u, --usb                 the camera alone; not with --root, --enumerate or a program\n"
    "  -R, --root DIR            directory that stands for the board (a new one below /tmp)\n"
    "  -e, --enumerate KIND      full: as a Linux host does; short: only the configuration (full)\n"
    "  -4, --h264 FILE           H.264 byte stream to send as live video\n"
    "  -w, --raw FILE            bytes to send as they are\n"
    "  -l, --loop                begin again at the end of the file\n"
    "  -p, --pace PACE           realtime, max, or a number of Mbit/s\n"
    "                            (realtime with --h264, max with --raw)\n"
    "  -f, --fps N               pictures a second in real time (30)\n"
    "  -c, --chunk N             largest video chunk, 1 to 49477 bytes (48000)\n"
    "  -t, --transfer N          bytes of a USB transfer, 1 to 512 (512);\n"
    "                            with --usb 1 to 16384 (16384)\n"
    "  -S, --status on|off       whether the camera sends its messages (on; off with --raw)\n"
    "  -x, --script FILE         what is done to the camera's values and expected of them:\n"
    "                            SECONDS set|expect NAME VALUE, SECONDS print [NAME],\n"
    "                            SECONDS fault [CODE], SECONDS clear\n"
    "  -k, --packets-every N     fixed camera packets after every N chunks, 0 for none\n"
    "                            (10 with --status off, else 0)\n"
    "  -a, --after SECONDS:WHAT  disconnect, reconnect, reset, silence or garbage; repeatable;\n"
    "                            with --usb no disconnect and no reconnect\n"
    "  -o, --record FILE         every packet that the receiver sends, as a line of hex digits\n"
    "  -s, --seconds N           end after N seconds of playing\n"
    "  -W, --wait N              seconds to wait for the receiver's device (60; with --usb without "
    "end)\n"
    "  -r, --run                 what follows is the receiver and its arguments ('--' does too)\n"
    "  -h, --help                this text\n";

constexpr std::size_t kBoardTransfer = 512;

constexpr option kLongOptions[] = {
    {"usb", no_argument, nullptr, 'u'},
    {"root", required_argument, nullptr, 'R'},
    {"enumerate", required_argument, nullptr, 'e'},
    {"h264", required_argument, nullptr, '4'},
    {"raw", required_argument, nullptr, 'w'},
    {"loop", no_argument, nullptr, 'l'},
    {"pace", required_argument, nullptr, 'p'},
    {"fps", required_argument, nullptr, 'f'},
    {"chunk", required_argument, nullptr, 'c'},
    {"transfer", required_argument, nullptr, 't'},
    {"status", required_argument, nullptr, 'S'},
    {"script", required_argument, nullptr, 'x'},
    {"packets-every", required_argument, nullptr, 'k'},
    {"after", required_argument, nullptr, 'a'},
    {"record", required_argument, nullptr, 'o'},
    {"seconds", required_argument, nullptr, 's'},
    {"wait", required_argument, nullptr, 'W'},
    {"run", no_argument, nullptr, 'r'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

struct ActionName {
    const char* name;
    Action action;
};
constexpr ActionName kActionNames[] = {
    {"disconnect", Action::kDisconnect}, {"reconnect", Action::kReconnect},
    {"reset", Action::kReset},           {"silence", Action::kSilence},
    {"garbage", Action::kGarbage},
};

// A number of that range, and nothing behind it but what `rest` takes.
template <typename Number>
bool read_number(const char* text, double least, double most, Number* number,
                 const char** rest = nullptr) {
    char* end = nullptr;
    const double value = strtod(text, &end);
    const bool whole = rest != nullptr || *end == '\0';
    if (end == text || !whole || !(value >= least && value <= most)) {
        return false;
    }
    *number = static_cast<Number>(value);
    if (rest != nullptr) {
        *rest = end;
    }
    return true;
}

bool read_pace(const char* text, SimulatorOptions* options) {
    if (strcmp(text, "realtime") == 0) {
        options->pace = Pace::kRealtime;
    } else if (strcmp(text, "max") == 0) {
        options->pace = Pace::kMax;
    } else {
        options->pace = Pace::kMegabits;
        return read_number(text, 0.001, 100000, &options->megabits);
    }
    return true;
}

bool read_action(const char* text, SimulatorOptions* options) {
    double seconds = 0;
    const char* rest = nullptr;
    if (!read_number(text, 0, 1e6, &seconds, &rest) || *rest != ':') {
        return false;
    }
    for (const ActionName& each : kActionNames) {
        if (strcmp(each.name, rest + 1) == 0) {
            options->actions.push_back({seconds, each.action});
            return true;
        }
    }
    return false;
}

bool read_status(const char* text, SimulatorOptions* options) {
    options->status = strcmp(text, "on") == 0;
    return *options->status || strcmp(text, "off") == 0;
}

bool read_enumeration(const char* text, SimulatorOptions* options) {
    options->full_enumeration = strcmp(text, "full") == 0;
    return *options->full_enumeration || strcmp(text, "short") == 0;
}

bool take_option(int letter, const char* value, SimulatorOptions* options) {
    switch (letter) {
        case 'u':
            options->usb = true;
            return true;
        case 'R':
            options->root = value;
            return true;
        case 'e':
            return read_enumeration(value, options);
        case '4':
            options->h264 = value;
            return true;
        case 'w':
            options->raw = value;
            return true;
        case 'l':
            options->loop = true;
            return true;
        case 'p':
            return read_pace(value, options);
        case 'f':
            return read_number(value, 0.1, 1000, &options->fps);
        case 'c':
            return read_number(value, 1, kLargestPassingPayload, &options->chunk);
        case 't':
            return read_number(value, 1, kUsbHostTransfer, &options->transfer);
        case 'S':
            return read_status(value, options);
        case 'x':
            options->script = value;
            return true;
        case 'k':
            return read_number(value, 0, 1e6, &options->packets_every.emplace());
        case 'a':
            return read_action(value, options);
        case 'o':
            options->record = value;
            return true;
        case 's':
            return read_number(value, 0, 1e6, &options->seconds);
        case 'W':
            return read_number(value, 0, 1e6, &options->wait_seconds.emplace());
        default:
            return false;
    }
}

std::size_t largest_transfer(const SimulatorOptions& options) {
    return options.usb ? kUsbHostTransfer : kBoardTransfer;
}

bool pulls_the_plug(const TimedAction& timed) {
    return timed.action == Action::kDisconnect || timed.action == Action::kReconnect;
}

// What is wrong with the options together; nullptr: nothing.
const char* contradiction(const SimulatorOptions& options) {
    const struct {
        bool holds;
        const char* problem;
    } rules[] = {
        {!options.h264.empty() && !options.raw.empty(), "--h264 and --raw exclude each other"},
        {!options.raw.empty() && options.pace == Pace::kRealtime,
         "only video has a real time; give --raw a rate or max"},
        {!options.raw.empty() && options.status.value_or(false),
         "--raw is the whole stream: no --status on with it"},
        {options.transfer > largest_transfer(options),
         "a transfer has at most 512 bytes without --usb"},
        {options.usb && !options.program.empty(),
         "with --usb the receiver runs on its own board: no program here"},
        {options.usb && !options.root.empty(), "with --usb there is no simulated board: no --root"},
        {options.usb && options.full_enumeration.has_value(),
         "with --usb this machine's kernel enumerates: no --enumerate"},
        {options.usb && std::ranges::any_of(options.actions, pulls_the_plug),
         "with --usb only you can pull the plug: no disconnect or reconnect"},
    };
    const auto* const broken =
        std::ranges::find_if(rules, [](const auto& rule) { return rule.holds; });
    return broken == std::end(rules) ? nullptr : broken->problem;
}

}  // namespace

std::optional<SimulatorOptions> parse_simulator_options(int count, char** arguments, int* status) {
    SimulatorOptions options;
    *status = 2;
    for (;;) {
        const int letter = getopt_long(count, arguments, "+uR:e:4:w:lp:f:c:t:S:x:k:a:o:s:W:rh",
                                       kLongOptions, nullptr);
        if (letter == -1 || letter == 'r') {
            break;
        }
        if (letter == 'h') {
            fputs(kUsage, stdout);
            *status = 0;
            return std::nullopt;
        }
        if (!take_option(letter, optarg, &options)) {
            if (letter != '?') {
                fprintf(stderr, "camera-simulator: '%s' is no value of -%c\n", optarg, letter);
            }
            fputs("Try camera-simulator --help.\n", stderr);
            return std::nullopt;
        }
    }
    if (optind < count && strcmp(arguments[optind], "--") == 0) {
        ++optind;  // "--run -- PROGRAM"
    }
    options.program.assign(arguments + optind, arguments + count);
    if (const char* problem = contradiction(options)) {
        fprintf(stderr, "camera-simulator: %s\n", problem);
        return std::nullopt;
    }
    if (options.transfer == 0) {
        options.transfer = largest_transfer(options);
    }
    std::ranges::stable_sort(options.actions, {}, &TimedAction::seconds);
    return options;
}
