#include "monitor/monitor_options.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <string_view>

#include "monitor/first_line.h"
#include "monitor/request_guard.h"

namespace {

constexpr char kUsage[] =
    "Usage: receiver-monitor [options]\n"
    "Shows the camera in a browser, and commands it from there.\n"
    "  -l, --listen ADDRESS:PORT    IPv4, where the page is (127.0.0.1:8080; port 0: any free);\n"
    "                               beyond this machine only with --token-file\n"
    "  -t, --token-file FILE        its first line, 16 to 256 characters, is asked of everybody\n"
    "  -r, --receiver HOST[:PORT]   IPv4 address of the receiver (127.0.0.1), and where its\n"
    "                               commands go (to where its reports come from)\n"
    "  -p, --telemetry-port N       UDP port that its reports come to (5000)\n"
    "  -d, --page DIR               the page's files\n"
    "  -o, --recordings DIR         a directory, where recordings go (none are made)\n"
    "  -R, --run-directory DIR      where the receiver leaves the picture's size (/run/vantarel)\n"
    "      --mqtt-host HOST         telemetry goes to this MQTT broker, too (to none), with\n"
    "      --mqtt-port N            its port (1883)\n"
    "      --mqtt-topic TOPIC       what it is published below (camera)\n"
    "      --mqtt-user NAME, --mqtt-password-file FILE\n"
    "  -h, --help                   this text\n";

constexpr option kLongOptions[] = {
    {"listen", required_argument, nullptr, 'l'},
    {"token-file", required_argument, nullptr, 't'},
    {"receiver", required_argument, nullptr, 'r'},
    {"telemetry-port", required_argument, nullptr, 'p'},
    {"page", required_argument, nullptr, 'd'},
    {"recordings", required_argument, nullptr, 'o'},
    {"run-directory", required_argument, nullptr, 'R'},
    {"mqtt-host", required_argument, nullptr, kMqttHost},
    {"mqtt-port", required_argument, nullptr, kMqttPort},
    {"mqtt-topic", required_argument, nullptr, kMqttTopic},
    {"mqtt-user", required_argument, nullptr, kMqttUser},
    {"mqtt-password-file", required_argument, nullptr, kMqttPasswordFile},
    {"help", no_argument, nullptr, 'h'},
    {},
};

constexpr std::size_t kShortestToken = 16;

bool parse_port(std::string_view text, unsigned least, std::uint16_t* port) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least ||
        value > 65535) {
        return false;
    }
    *port = static_cast<std::uint16_t>(value);
    return true;
}

bool is_ipv4(const std::string& text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool is_loopback(const std::string& address) {
    return address.starts_with("127.");
}

bool take_listen(std::string_view text, MonitorOptions* options) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos ||
        !parse_port(text.substr(colon + 1), 0, &options->listen_port)) {
        return false;
    }
    std::string address(text.substr(0, colon));
    if (address == "localhost") {
        address = "127.0.0.1";
    }
    options->listen_address = address;
    return is_ipv4(address);  // Debian's web server library knows no other
}

bool take_receiver(std::string_view text, MonitorOptions* options) {
    const std::size_t colon = text.find(':');
    options->receiver_host = text.substr(0, colon);
    if (options->receiver_host == "localhost") {
        options->receiver_host = "127.0.0.1";
    }
    return is_ipv4(options->receiver_host) &&
           (colon == std::string_view::npos ||
            parse_port(text.substr(colon + 1), 1, &options->receiver_port));
}

bool take_token_file(const char* path, MonitorOptions* options) {
    options->token = first_line_of(path);
    return options->token.size() >= kShortestToken && options->token.size() <= kLongestToken;
}

bool take_option(int letter, MonitorOptions* options) {
    switch (letter) {
        case 'l':
            return take_listen(optarg, options);
        case 't':
            return take_token_file(optarg, options);
        case 'r':
            return take_receiver(optarg, options);
        case 'p':
            return parse_port(optarg, 1, &options->telemetry_port);
        case 'd':
            options->page = optarg;
            return true;
        case 'o':
            options->recordings = optarg;
            return true;
        case 'R':
            options->run_directory = optarg;
            return true;
        default:
            return take_mqtt_option(letter, optarg == nullptr ? "" : optarg, &options->mqtt);
    }
}

const char* name_of_option(int letter) {
    const option* each = kLongOptions;
    while (each->val != letter && each->name != nullptr) {
        ++each;
    }
    return each->name;
}

}  // namespace

std::optional<MonitorOptions> parse_monitor_options(int argc, char* argv[], int* status) {
    MonitorOptions options;
    *status = 2;
    optind = 0;  // glibc begins anew: a test parses more than once
    for (int letter;
         (letter = getopt_long(argc, argv, "l:t:r:p:d:o:R:h", kLongOptions, nullptr)) != -1;) {
        if (letter == 'h') {
            fputs(kUsage, stdout);
            *status = 0;
            return std::nullopt;
        }
        if (!take_option(letter, &options)) {
            if (letter != '?') {
                fprintf(stderr, "receiver-monitor: '%s' is no value of --%s%s\n", optarg,
                        name_of_option(letter),
                        letter == 't' ? ": its first line is not 16 to 256 characters" : "");
            }
            fputs("Try receiver-monitor --help.\n", stderr);
            return std::nullopt;
        }
    }
    if (optind != argc) {
        fprintf(stderr, "receiver-monitor: '%s' is no option\n", argv[optind]);
        return std::nullopt;
    }
    if (!is_loopback(options.listen_address) && options.token.empty()) {
        fprintf(stderr,
                "receiver-monitor: beyond this machine it listens with --token-file only\n");
        return std::nullopt;
    }
    std::error_code ignored;
    if (!options.recordings.empty() &&
        !std::filesystem::is_directory(options.recordings, ignored)) {
        fprintf(stderr, "receiver-monitor: --recordings: '%s' is no directory\n",
                options.recordings.c_str());
        return std::nullopt;
    }
    return options;
}
