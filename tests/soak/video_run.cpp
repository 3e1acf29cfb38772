#include "tests/soak/video_run.h"

#include <algorithm>
#include <utility>

#include "client/ring_reader.h"

namespace {

constexpr auto kRingLook = std::chrono::microseconds(500);
constexpr auto kLastPartsWithin = std::chrono::seconds(3);

}  // namespace

VideoRun::VideoRun(SimulatedCamera& camera, std::vector<Bytes> chunks, Milliseconds chunk_period)
    : camera_(camera),
      chunks_(std::move(chunks)),
      period_(chunk_period),
      feeder_([this] { feed(); }),
      follower_([this] { follow(); }) {}

VideoRun::~VideoRun() {
    abandon();
}

void VideoRun::feed() {
    const auto begun = Clock::now();
    while (!stop_feeding_) {
        const std::size_t number = sent_;
        Bytes envelopes = video_envelope(chunks_[number % chunks_.size()]);
        // The receiver takes an envelope when a byte behind it has come.
        const Bytes filler = video_envelope(filler_chunk());
        envelopes.insert(envelopes.end(), filler.begin(), filler.end());
        sent_at_[number % kTimesKept] = Clock::now();
        if (!camera_.send(envelopes)) {
            return;  // the link is gone
        }
        ++sent_;
        std::this_thread::sleep_until(begun + (number + 1) * period_);
    }
}

void VideoRun::take_part(std::span<const std::uint8_t> part) {
    if (!std::exchange(began_, true)) {
        return;
    }
    const std::size_t number = arrived_;
    if (!std::ranges::equal(part, chunks_[number % chunks_.size()])) {
        ++lost_;
    }
    latencies.add(milliseconds_between(sent_at_[number % kTimesKept], Clock::now()));
    ++arrived_;
}

void VideoRun::follow() {
    RingReader ring;
    while (!stop_following_) {
        if (ring.open()) {
            ring.take(
                [this](std::uint16_t, std::span<const std::uint8_t> part) { take_part(part); });
        }
        std::this_thread::sleep_for(kRingLook);
    }
    lost_ += ring.missed();
}

void VideoRun::finish() {
    stop_feeding_ = true;
    feeder_.join();
    const auto end = Clock::now() + kLastPartsWithin;
    while (arrived_ < sent_ && Clock::now() < end) {
        std::this_thread::sleep_for(kRingLook);
    }
    abandon();
    if (arrived_ < sent_) {
        lost_ += sent_ - arrived_;
    }
}

void VideoRun::abandon() {
    stop_feeding_ = true;
    stop_following_ = true;
    for (std::thread* thread : {&feeder_, &follower_}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
}
