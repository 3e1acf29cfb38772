// monitor-bench [SECONDS]: receiver-monitor's share of the processor, and the way of a picture from
// the ring to its viewers. It writes the ring itself, so that it is run with the real names to
// itself: tests/own-names.sh monitor-bench

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "cpu_time.h"
#include "tests/e2e/receiver_process.h"
#include "tests/monitor/h264_bytes.h"
#include "tests/monitor/web_client.h"
#include "video/frame_buffers.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr unsigned kPicturesPerSecond = 30;
constexpr std::size_t kPart = 40000;
constexpr std::size_t kPicturesBetweenKeys = 30;
constexpr char kMark[] = "sent at ";  // and the time behind it, in digits
constexpr std::size_t kDigits = 20;

std::uint64_t now_us() {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch())
            .count());
}

// A picture of about this size, with the time of its last part's writing in its last slice.
StreamBytes marked_picture(std::size_t size, bool key) {
    static std::minstd_rand random(1);
    size += random() % (size / 4);
    StreamBytes bytes = key ? key_picture(size) : picture(size);
    bytes.insert(bytes.end(), kMark, kMark + sizeof kMark - 1);
    bytes.resize(bytes.size() + kDigits, '0');
    return bytes;
}

void publish(StreamBytes bytes) {
    std::size_t at = 0;
    for (; bytes.size() - at > kPart; at += kPart) {
        frame_queue_part(bytes.data() + at, kPart);
    }
    char digits[kDigits + 1];
    snprintf(digits, sizeof digits, "%020llu", static_cast<unsigned long long>(now_us()));
    memcpy(bytes.data() + bytes.size() - kDigits, digits, kDigits);
    frame_queue_part(bytes.data() + at, bytes.size() - at);
}

struct Viewer {
    std::vector<double> delays_ms;
};

void view(std::uint16_t port, Viewer* result) {
    const auto begin = static_cast<double>(now_us());
    LiveClient live(port);
    while (const auto bytes = live.next_picture(1500ms)) {
        const double now = static_cast<double>(now_us());
        const std::size_t at = bytes->size() - kDigits;
        if (bytes->compare(at - (sizeof kMark - 1), sizeof kMark - 1, kMark) == 0) {
            // A newcomer gets older ones first.
            if (const double sent = std::stod(bytes->substr(at)); sent >= begin) {
                result->delays_ms.push_back((now - sent) / 1000);
            }
        }
    }
}

double quantile(std::vector<double> values, double part) {
    std::ranges::sort(values);
    return values.empty()
               ? 0
               : values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

// Share of one core over the time that the work takes.
template <typename Work>
double share_of_core(pid_t pid, Work work) {
    const auto begin = Clock::now();
    const double before = cpu_seconds(pid).value_or(0);
    work();
    const double after = cpu_seconds(pid).value_or(0);
    return 100 * (after - before) / std::chrono::duration<double>(Clock::now() - begin).count();
}

void measure(ReceiverProcess& monitor, std::uint16_t port, std::size_t viewers, unsigned megabits,
             unsigned seconds) {
    std::vector<Viewer> results(viewers);
    std::vector<std::thread> threads;
    for (Viewer& result : results) {
        threads.emplace_back(view, port, &result);
    }
    std::this_thread::sleep_for(500ms);
    const unsigned pictures = seconds * kPicturesPerSecond;
    const std::size_t size = megabits * 1'000'000 / 8 / kPicturesPerSecond * 8 / 9;
    const double share = share_of_core(monitor.pid(), [&] {
        const auto begin = Clock::now();
        for (unsigned i = 0; i < pictures; ++i) {
            std::this_thread::sleep_until(begin + i * 1'000'000us / kPicturesPerSecond);
            publish(marked_picture(size, i % kPicturesBetweenKeys == 0));
        }
    });
    std::vector<double> all;
    std::vector<double> medians;
    std::size_t fewest = pictures;
    for (std::size_t i = 0; i < viewers; ++i) {
        threads[i].join();
        all.insert(all.end(), results[i].delays_ms.begin(), results[i].delays_ms.end());
        medians.push_back(quantile(results[i].delays_ms, 0.5));
        fewest = std::min(fewest, results[i].delays_ms.size());
    }
    printf("%2zu viewers, %2u Mbit/s: %.1f %% of a core; each saw at least %zu of %u pictures\n",
           viewers, megabits, share, fewest, pictures);
    if (viewers > 0) {
        printf(
            "   ring to viewer: median %.2f ms, 99 %% %.2f ms, most %.2f ms; the viewers' "
            "medians %.2f to %.2f ms\n",
            quantile(all, 0.5), quantile(all, 0.99), quantile(all, 1), quantile(medians, 0),
            quantile(medians, 1));
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    const long seconds = argc > 1 ? strtol(argv[1], nullptr, 10) : 20;
    if (seconds < 2 || seconds > 3600) {
        fprintf(stderr, "Usage: monitor-bench [SECONDS]\n");
        return 2;
    }
    if (frame_buffers_init() != 0) {
        perror("shared memory");
        return 1;
    }
    try {
        ReceiverProcess monitor({"--listen", "127.0.0.1:0"}, {}, MONITOR_PROGRAM);
        std::this_thread::sleep_for(1s);
        const std::string address = monitor.standard_output();
        const auto port =
            static_cast<std::uint16_t>(atoi(address.c_str() + address.rfind(':') + 1));
        printf("nobody, no video: %.1f %% of a core\n", share_of_core(monitor.pid(), [&] {
                   std::this_thread::sleep_for(std::chrono::seconds(seconds));
               }));
        const auto whole = static_cast<unsigned>(seconds);
        measure(monitor, port, 0, 30, whole);
        measure(monitor, port, 1, 30, whole);
        measure(monitor, port, 50, 4, whole);
    } catch (const std::exception& error) {
        fprintf(stderr, "monitor-bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
