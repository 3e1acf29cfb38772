#include "reader_path_bench.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "live_stream.h"
#include "video/frame_layout.h"
#include "video/usb_stream_demux.h"

namespace {

constexpr std::size_t kStreamSize = 128U << 20;  // beyond every cache, as a live stream is
constexpr std::size_t kTransferSize = 512;
constexpr std::size_t kReaderBufferSize = 50100;
constexpr double kGoal = 0.70;

const Bytes& stream() {
    static const Bytes bytes = live_stream(kStreamSize, Packets::kUnknown);
    return bytes;
}

// With messages in it, some 30 times as many as a camera sends beside so much video.
const Bytes& stream_of_messages() {
    static const Bytes bytes = live_stream(kStreamSize, Packets::kMessages);
    return bytes;
}

// One pass over the stream as the reader thread makes it: each transfer goes behind what the
// demultiplexer has left over.
void take_stream(const Bytes& bytes, std::uint8_t* buffer, std::size_t& fill) {
    for (std::size_t at = 0; at < bytes.size(); at += kTransferSize) {
        const std::size_t count = std::min(kTransferSize, bytes.size() - at);
        memcpy(buffer + fill, bytes.data() + at, count);
        fill += count;
        usb_stream_demux(buffer, &fill);
    }
}

void copy_stream(std::uint8_t* target) {
    memcpy(target, stream().data(), stream().size());
    benchmark::ClobberMemory();
}

// The reader path without its thinking: each byte into the buffer, and from there into one of the
// ring's slots. What the reader path cannot beat.
void copy_stream_twice(std::uint8_t* buffer, std::uint8_t* ring) {
    constexpr std::size_t kChunk = 51 * kTransferSize;  // the mean chunk's size
    const Bytes& bytes = stream();
    std::size_t slot = 0;
    for (std::size_t at = 0; at + kChunk <= bytes.size(); at += kChunk) {
        for (std::size_t fill = 0; fill < kChunk; fill += kTransferSize) {
            memcpy(buffer + fill, bytes.data() + at + fill, kTransferSize);
        }
        memcpy(ring + kRingHeaderSize + slot * kSlotSize + kSlotHeaderSize, buffer, kChunk);
        slot = (slot + 1) % kSlotCount;
    }
    benchmark::ClobberMemory();
}

void set_bytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(stream().size()));
}

void reader_path(benchmark::State& state) {
    const auto buffer = std::make_unique<std::uint8_t[]>(kReaderBufferSize);
    std::size_t fill = 0;
    for ([[maybe_unused]] auto pass : state) {
        take_stream(stream(), buffer.get(), fill);
    }
    set_bytes(state);
}
BENCHMARK(reader_path)->Unit(benchmark::kMillisecond);

void plain_copy(benchmark::State& state) {
    const auto target = std::make_unique<std::uint8_t[]>(stream().size());
    for ([[maybe_unused]] auto pass : state) {
        copy_stream(target.get());
    }
    set_bytes(state);
}
BENCHMARK(plain_copy)->Unit(benchmark::kMillisecond);

template <typename Work>
double seconds(const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

// In turn, so that a busy machine slows all of them; the best of each counts.
void compare_reader_path_with_copy() {
    constexpr int kPasses = 15;
    const auto buffer = std::make_unique<std::uint8_t[]>(kReaderBufferSize);
    const auto target = std::make_unique<std::uint8_t[]>(stream().size());
    const auto ring = std::make_unique<std::uint8_t[]>(kFrameBufferSize);
    std::size_t fill = 0;
    double best_reader = 1e9;
    double best_decoding = 1e9;
    double best_copy = 1e9;
    double best_copies = 1e9;
    for (int pass = 0; pass < kPasses; ++pass) {
        best_copy = std::min(best_copy, seconds([&] { copy_stream(target.get()); }));
        best_reader =
            std::min(best_reader, seconds([&] { take_stream(stream(), buffer.get(), fill); }));
        best_decoding = std::min(
            best_decoding, seconds([&] { take_stream(stream_of_messages(), buffer.get(), fill); }));
        best_copies =
            std::min(best_copies, seconds([&] { copy_stream_twice(buffer.get(), ring.get()); }));
        fill = 0;  // the bare copies have overwritten what was left
    }
    const double megabytes = static_cast<double>(stream().size()) / 1e6;
    printf("reader path %.0f MB/s, its two copies alone %.0f MB/s, memcpy %.0f MB/s\n",
           megabytes / best_reader, megabytes / best_copies, megabytes / best_copy);
    printf("reader path / memcpy = %.2f (goal %.2f)\n", best_copy / best_reader, kGoal);
    printf("with all packets decoded %.2f\n", best_copy / best_decoding);
    printf("its two copies alone / memcpy = %.2f\n", best_copy / best_copies);
}
