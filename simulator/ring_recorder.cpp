// video-ring-recorder: writes the live video from the receiver's ring to a file, and says once a
// second what goes by. It is the smallest main application.

#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "client/ring_reader.h"

namespace {

volatile sig_atomic_t stopped = 0;

void stop(int) {
    stopped = 1;
}

constexpr char kUsage[] =
    "Usage: video-ring-recorder --output FILE [options]\n"
    "  -o, --output FILE         where the H.264 byte stream goes\n"
    "  -r, --run-directory DIR   where the receiver leaves the resolution (/run/vantarel)\n"
    "  -s, --seconds N           end after N seconds (0: at Ctrl-C)\n"
    "  -i, --idle N              end when no part has come for N seconds after the first\n"
    "  -p, --with-priming        keep the receiver's stored first frame, which is not live video\n"
    "  -?, --help                show this help\n";

struct Options {
    std::string output;
    std::string run_directory = "/run/vantarel";
    double seconds = 0;
    double idle = 0;
    bool with_priming = false;
};

bool parse(int argc, char* argv[], Options* options) {
    static const option kOptions[] = {
        {"output", required_argument, nullptr, 'o'},
        {"run-directory", required_argument, nullptr, 'r'},
        {"seconds", required_argument, nullptr, 's'},
        {"idle", required_argument, nullptr, 'i'},
        {"with-priming", no_argument, nullptr, 'p'},
        {"help", no_argument, nullptr, '?'},
        {nullptr, 0, nullptr, 0},
    };
    for (int c; (c = getopt_long(argc, argv, "o:r:s:i:p?", kOptions, nullptr)) != -1;) {
        switch (c) {
            case 'o':
                options->output = optarg;
                break;
            case 'r':
                options->run_directory = optarg;
                break;
            case 's':
                options->seconds = std::atof(optarg);
                break;
            case 'i':
                options->idle = std::atof(optarg);
                break;
            case 'p':
                options->with_priming = true;
                break;
            default:
                return false;
        }
    }
    return !options->output.empty();
}

std::string resolution(const std::string& directory) {
    std::string width;
    std::string height;
    std::ifstream(directory + "/video_width") >> width;
    std::ifstream(directory + "/video_height") >> height;
    return width.empty() || height.empty() ? "no picture yet" : width + "x" + height;
}

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point then) {
    return std::chrono::duration<double>(Clock::now() - then).count();
}

}  // namespace

int main(int argc, char* argv[]) {
    Options options;
    if (!parse(argc, argv, &options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
    if (!file) {
        std::fprintf(stderr, "%s: cannot be written\n", options.output.c_str());
        return 1;
    }
    signal(SIGINT, stop);
    signal(SIGTERM, stop);

    RingReader ring;
    std::size_t parts = 0;
    std::size_t bytes = 0;
    std::size_t parts_before = 0;
    std::size_t bytes_before = 0;
    const Clock::time_point start = Clock::now();
    Clock::time_point last_part = start;
    Clock::time_point last_line = start;
    while (stopped == 0 && file) {
        if (ring.open()) {
            ring.take([&](std::uint16_t, std::span<const std::uint8_t> part) {
                last_part = Clock::now();
                ++parts;
                if (parts > 1 || options.with_priming) {
                    bytes += part.size();
                    file.write(reinterpret_cast<const char*>(part.data()),
                               static_cast<std::streamsize>(part.size()));
                }
            });
        }
        if (seconds_since(last_line) >= 1) {
            std::printf("video    | %4zu parts/s  %8.1f KB/s  %10zu bytes in all  %s\n",
                        parts - parts_before,
                        static_cast<double>(bytes - bytes_before) / seconds_since(last_line) / 1000,
                        bytes, resolution(options.run_directory).c_str());
            std::fflush(stdout);
            parts_before = parts;
            bytes_before = bytes;
            last_line = Clock::now();
        }
        if (options.seconds > 0 && seconds_since(start) >= options.seconds) {
            break;
        }
        if (options.idle > 0 && parts > 0 && seconds_since(last_part) >= options.idle) {
            break;
        }
        usleep(2000);
    }
    std::printf("video    | %zu parts, %zu bytes, %zu missed, %s\n", parts, bytes, ring.missed(),
                resolution(options.run_directory).c_str());
    file.close();
    return file && ring.missed() == 0 ? 0 : 1;
}
