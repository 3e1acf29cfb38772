#include "decode_bench.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "allocation_count.h"
#include "protocol/telemetry_decode.h"
#include "tests/cases/telemetry_messages.h"

namespace {

using Messages = std::vector<TelemetryMessage>;
using Decode = decltype(telemetry_decode);

constexpr double kGoal = 1.0;

// How often the camera sends each kind, every second. None of them calls for a command.
// clang-format off
const struct {
    const Messages* kind;
    int             per_second;
} kMix[] = {
    {&kGimbalAttitudeMessages, 20},
    {&kCameraStatusMessages,   10},
    {&kCameraSettingsMessages,  5},
    {&kBatteryMessages,         1},
    {&kFocusMessages,           5},
    {&kParameterBlockMessages,  5},
};
// clang-format on

// One second's packets: of each kind in turn those that say something.
const std::vector<std::vector<std::uint8_t>>& second_of_packets() {
    static const auto packets = [] {
        std::vector<std::vector<std::uint8_t>> all;
        for (const auto& [kind, per_second] : kMix) {
            Messages telling = *kind;
            std::erase_if(telling, [](const auto& message) { return message.fields.empty(); });
            for (int i = 0; i < per_second; ++i) {
                all.push_back(telling[static_cast<std::size_t>(i) % telling.size()].packet);
            }
        }
        return all;
    }();
    return packets;
}

void decode_second(Decode* decode) {
    for (const auto& packet : second_of_packets()) {
        decode(nullptr, packet.data(), packet.size());
    }
    benchmark::ClobberMemory();
}

void decode_many(benchmark::State& state, Decode* decode) {
    for ([[maybe_unused]] auto pass : state) {
        decode_second(decode);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(second_of_packets().size()));
}
BENCHMARK_CAPTURE(decode_many, verified, telemetry_decode_verified);
BENCHMARK_CAPTURE(decode_many, with_sums, telemetry_decode);

// In millions; the best of many short runs.
double messages_per_second(Decode* decode) {
    constexpr int kRuns = 50;
    constexpr int kSecondsInARun = 200;
    double best = 0;
    for (int run = 0; run < kRuns; ++run) {
        const auto start = std::chrono::steady_clock::now();
        for (int second = 0; second < kSecondsInARun; ++second) {
            decode_second(decode);
        }
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        const auto messages = static_cast<double>(kSecondsInARun * second_of_packets().size());
        best = std::max(best, messages / taken.count() / 1e6);
    }
    return best;
}

}  // namespace

void measure_decoder() {
    decode_second(telemetry_decode);  // builds the packets
    const unsigned long before = allocation_count;
    const double verified = messages_per_second(telemetry_decode_verified);
    const double with_sums = messages_per_second(telemetry_decode);
    const unsigned long allocations = allocation_count - before;
    printf("decoder %.2f million messages/s, %.2f with their sums (goal %.2f), %lu allocations\n",
           verified, with_sums, kGoal, allocations);
}
