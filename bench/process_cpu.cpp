#include "process_cpu.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <random>
#include <thread>

#include "cpu_time.h"
#include "link_under_test.h"
#include "simulator/camera_stream.h"
#include "simulator/status_messages.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr unsigned kPicturesPerSecond = 30;
constexpr std::size_t kBytesPerPicture = 30'000'000 / 8 / kPicturesPerSecond;
constexpr std::size_t kChunk = 40000;
constexpr unsigned kRounds = 2;  // by turns, so that both meet the same machine
constexpr double kGoal = 1.3;

// A second of video in envelopes, a picture each. What the bytes are costs nothing: they are
// copied.
std::vector<Bytes> pictures() {
    std::minstd_rand random(1);
    std::vector<Bytes> all(kPicturesPerSecond);
    for (Bytes& picture : all) {
        for (std::size_t left = kBytesPerPicture; left > 0;) {
            Bytes chunk(std::min(left, kChunk));
            for (std::uint8_t& byte : chunk) {
                byte = static_cast<std::uint8_t>(random() >> 8);
            }
            const Bytes envelope = video_envelope(chunk);
            picture.insert(picture.end(), envelope.begin(), envelope.end());
            left -= chunk.size();
        }
    }
    return all;
}

// CPU seconds that the program took for so many seconds of stream in real time.
std::optional<double> measure(Program program, unsigned seconds) {
    const std::unique_ptr<LinkUnderTest> link = start_link(program);
    if (!link) {
        return std::nullopt;
    }
    static const std::vector<Bytes> video = pictures();
    const CameraModel camera;
    MessageSchedule messages;
    const auto before = cpu_seconds(link->process->pid());
    const auto start = Clock::now();
    for (unsigned picture = 0; picture < seconds * kPicturesPerSecond; ++picture) {
        const auto due = std::chrono::milliseconds(picture * 1000 / kPicturesPerSecond);
        std::this_thread::sleep_until(start + due);
        Bytes stream = video[picture % kPicturesPerSecond];
        if (const Bytes packets = messages.due(camera, due); !packets.empty()) {
            const Bytes envelope = control_envelope(packets);
            stream.insert(stream.end(), envelope.begin(), envelope.end());
        }
        if (!link->board.bulk_out(stream)) {
            fprintf(stderr, "The %s no longer takes the stream:\n%s", name_of(program),
                    link->process->output().c_str());
            return std::nullopt;
        }
    }
    const auto after = cpu_seconds(link->process->pid());
    return before && after ? std::optional(*after - *before) : std::nullopt;
}

}  // namespace

bool compare_process_cpu(unsigned seconds) {
    double receiver = 0;
    double bare = 0;
    for (unsigned round = 0; round < kRounds; ++round) {
        const auto receiver_round = measure(Program::kReceiver, seconds / kRounds);
        const auto bare_round = measure(Program::kBareLink, seconds / kRounds);
        if (!receiver_round || !bare_round) {
            return false;
        }
        receiver += *receiver_round;
        bare += *bare_round;
    }
    printf("CPU time for %u s of 1080p30 at 30 Mbit/s with all status messages\n", seconds);
    printf("  receiver %.2f s, bare link %.2f s, ratio %.2f (goal <= %.1f)\n", receiver, bare,
           receiver / bare, kGoal);
    return true;
}
