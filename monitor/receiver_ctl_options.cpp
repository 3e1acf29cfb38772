#include "monitor/receiver_ctl_options.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "monitor/first_line.h"
#include "monitor/receiver_ctl_commands.h"

namespace {

constexpr char kUsage[] =
    "Usage: receiver-ctl [options] WORDS...\n"
    "Shows and commands the camera through receiver-monitor.\n"
    "  -m, --monitor URL            where it is (http://127.0.0.1:8080)\n"
    "  -t, --token-file FILE        its first line is the monitor's token\n"
    "  -w, --wait[=SECONDS]         until telemetry shows what was commanded (5 seconds)\n"
    "      --yes                    for what takes something away\n"
    "      --json                   status as the monitor gives it\n"
    "  -i INTERFACE                 sniff: captures there, e.g. usbmon1 or lo\n"
    "      --plugin FILE            sniff: vantarel.lua\n"
    "  -h, --help                   this text\n"
    "Exit status: 0 sent, 1 refused or not reached or not seen, 2 wrong use.\n"
    "\n"
    "  status                       the values once\n"
    "  watch                        as they change\n"
    "  record-file start|stop       the monitor records the live video into a file\n"
    "  recordings                   its files\n"
    "  sniff FILE                   the packets of a capture; or -i INTERFACE\n";

void print_help() {
    fputs(kUsage, stdout);
    for (const CtlCommand& command : ctl_commands()) {
        const std::string usage = ctl_usage(command);
        printf(usage.size() <= 28 ? "  %-28s %s\n" : "  %s\n                               %s\n",
               usage.c_str(), command.help);
    }
    puts("Numbers:");
    for (const CtlNumber& number : ctl_numbers()) {
        printf("  %-10s %s\n", number.name, ctl_range(number).c_str());
    }
}

bool take_seconds(const std::string& text, double* seconds) {
    char* end = nullptr;
    *seconds = strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' && *seconds > 0 && *seconds < 86400;
}

enum class Taken { kNo, kYes, kWrong };

Taken take_flag(const std::string& word, CtlOptions* options) {
    constexpr char kWait[] = "--wait=";
    if (word == "--json") {
        options->json = true;
    } else if (word == "--yes") {
        options->yes = true;
    } else if (word == "--wait" || word == "-w") {
        options->wait = true;
    } else if (word.starts_with(kWait)) {
        options->wait = true;
        return take_seconds(word.substr(strlen(kWait)), &options->wait_seconds) ? Taken::kYes
                                                                                : Taken::kWrong;
    } else {
        return Taken::kNo;
    }
    return Taken::kYes;
}

Taken take_valued(const std::string& name, const std::string& value, CtlOptions* options) {
    if (name == "--monitor" || name == "-m") {
        options->monitor = value.substr(0, value.find_last_not_of('/') + 1);
        return value.starts_with("http://") || value.starts_with("https://") ? Taken::kYes
                                                                             : Taken::kWrong;
    }
    if (name == "--token-file" || name == "-t") {
        options->token = first_line_of(value);
        return options->token.empty() ? Taken::kWrong : Taken::kYes;
    }
    if (name == "-i") {
        options->interface = value;
    } else if (name == "--plugin") {
        options->plugin = value;
    } else {
        return Taken::kNo;
    }
    return Taken::kYes;
}

int refuse(const std::string& word) {
    fprintf(stderr, "receiver-ctl: '%s' is no option, or lacks its value, or has a wrong one\n",
            word.c_str());
    return 2;
}

}  // namespace

// Not getopt: "ev -0.3" has a number, and options may also stand behind the words.
std::optional<CtlOptions> parse_ctl_options(int argc, char* argv[], int* status) {
    CtlOptions options;
    *status = 2;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const bool is_option = !options.complete && word.size() > 1 && word[0] == '-' &&
                               strchr(".0123456789", word[1]) == nullptr;
        if (!is_option) {
            options.words.push_back(word);
            continue;
        }
        if (word == "--help" || word == "-h") {
            print_help();
            *status = 0;
            return std::nullopt;
        }
        if (word == "--complete") {
            options.complete = true;
            continue;
        }
        Taken taken = take_flag(word, &options);
        if (taken == Taken::kNo) {
            const std::size_t equals = word.find('=');
            if (word.starts_with("--") && equals != word.npos) {
                taken = take_valued(word.substr(0, equals), word.substr(equals + 1), &options);
            } else if (i + 1 < argc) {
                taken = take_valued(word, argv[i + 1], &options);
                ++i;
            }
        }
        if (taken != Taken::kYes) {
            refuse(word);
            return std::nullopt;
        }
    }
    if (options.words.empty() && !options.complete) {
        fputs("receiver-ctl: nothing to do. Try receiver-ctl --help.\n", stderr);
        return std::nullopt;
    }
    return options;
}
