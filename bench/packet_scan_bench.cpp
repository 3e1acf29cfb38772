#include "packet_scan_bench.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "live_stream.h"
#include "protocol/camera_packet_scan.h"

namespace {

constexpr std::size_t kPayloadSize = 49000;
constexpr double kGoal = 20.0;

// Every byte could start a packet, and none does.
Bytes start_bytes() {
    return Bytes(kPayloadSize, 0x55);
}

// As many bytes of sound packets; the last one may be cut off.
Bytes sound_packets() {
    Bytes packets = camera_packets(kPayloadSize, Packets::kUnknown);
    packets.resize(kPayloadSize);
    return packets;
}

void scan(const Bytes& payload) {
    camera_packet_scan(nullptr, payload.data(), static_cast<std::uint16_t>(payload.size()));
    benchmark::ClobberMemory();
}

void scan_many(benchmark::State& state, const Bytes& payload) {
    for ([[maybe_unused]] auto pass : state) {
        scan(payload);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(payload.size()));
}
BENCHMARK_CAPTURE(scan_many, sound_packets, sound_packets());
BENCHMARK_CAPTURE(scan_many, start_bytes, start_bytes());

double best_seconds(const Bytes& payload) {
    constexpr int kPasses = 200;
    double best = 1e9;
    for (int pass = 0; pass < kPasses; ++pass) {
        const auto start = std::chrono::steady_clock::now();
        scan(payload);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        best = std::min(best, taken.count());
    }
    return best;
}

}  // namespace

void compare_scans() {
    printf("scan of start bytes / scan of sound packets = %.2f (goal at most %.0f)\n",
           best_seconds(start_bytes()) / best_seconds(sound_packets()), kGoal);
}
