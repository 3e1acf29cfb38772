#include "tests/board/full_rate_stream.h"

#include <algorithm>
#include <stdexcept>

#include "simulator/camera_stream.h"

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t kPartSize = 40000;  // the ring's 200 slots hold seconds of it
constexpr std::chrono::milliseconds kBetweenLooks{20};

}  // namespace

Bytes numbered_part(std::uint32_t number) {
    Bytes part(kPartSize);
    for (std::size_t i = 0; i < part.size(); ++i) {
        part[i] = static_cast<std::uint8_t>(i < 4 ? number >> 8 * i : i * 7 + number);
    }
    return part;
}

FullRateStream::FullRateStream(UsbHost& host)
    : host_(host), thread_([this] {
          while (!stop_ && host_.bulk_out(video_envelope(numbered_part(sent_)))) {
              ++sent_;
          }
          host_.bulk_out(video_envelope(filler_chunk()));
      }) {}

void FullRateStream::stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

NumberedParts::NumberedParts() {
    if (!ring_.open()) {
        throw std::runtime_error("there is no ring");
    }
}

void NumberedParts::take() {
    ring_.take([this](std::uint16_t, std::span<const std::uint8_t> bytes) {
        if (!primed_) {  // the receiver's own key frame comes first
            primed_ = true;
        } else if (std::ranges::equal(bytes, numbered_part(parts_))) {
            ++parts_;
        } else {
            damaged_ = true;
        }
    });
}

std::uint32_t NumberedParts::wait_for(std::uint32_t parts, std::chrono::milliseconds timeout) {
    const auto end = Clock::now() + timeout;
    for (take(); parts_ < parts && Clock::now() < end; take()) {
        std::this_thread::sleep_for(kBetweenLooks);
    }
    return parts_;
}

std::uint32_t NumberedParts::follow_until(Clock::time_point end) {
    while (Clock::now() < end) {
        take();
        std::this_thread::sleep_for(kBetweenLooks);
    }
    return parts_;
}
