#include "monitor/video_hub.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <chrono>
#include <new>

#include "client/ring_reader.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr useconds_t kPauseUs = 1000;
constexpr useconds_t kIdlePauseUs = 10000;
constexpr auto kIdleAfter = std::chrono::seconds(1);
constexpr int kLargestSide = 16384;
// A receiver or a camera that is kept from its work may stop within a picture for as long.
constexpr auto kPictureIsWholeAfter = std::chrono::milliseconds(100);
constexpr auto kPictureIsWholeInAnyCaseAfter = std::chrono::milliseconds(1000);
// A receiver that was started anew may have made a new ring under the old one's name.
constexpr auto kLookForNewRingEvery = std::chrono::milliseconds(500);

std::uint64_t now_us() {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch())
            .count());
}

// 0 where there is none, or one that is no picture's. This thread waits for no file.
int size_in(const std::string& path) {
    std::array<char, 16> text{};
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const ssize_t count = fd < 0 ? 0 : read(fd, text.data(), text.size());
    if (fd >= 0) {
        close(fd);
    }
    int number = 0;
    std::from_chars(text.data(), text.data() + (count > 0 ? count : 0), number);
    return number > 0 && number <= kLargestSide ? number : 0;
}

}  // namespace

struct VideoHub::Follower {
    std::unique_ptr<RingReader> ring;
    std::uint64_t missed_in_old_rings = 0;
    Clock::time_point last_part = Clock::now();
    Clock::time_point last_look = last_part;
};

VideoHub::VideoHub(std::string run_directory, std::function<void()> on_picture)
    : run_directory_(std::move(run_directory)),
      on_picture_(std::move(on_picture)),
      units_([this](const AccessUnits::Unit& unit) { take_unit(unit); }) {}

VideoHub::~VideoHub() {
    stop();
}

void VideoHub::start() {
    thread_ = std::thread([this] { follow(); });
}

void VideoHub::stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    fanout_.close_all();
}

void VideoHub::follow() {
    Follower follower;
    while (!stop_) {
        try {
            follow_for_a_turn(&follower);
        } catch (const std::bad_alloc&) {
            // There is no memory for a look at the ring. What is there is there at the next, too.
        }
        usleep(Clock::now() - follower.last_part > kIdleAfter ? kIdlePauseUs : kPauseUs);
    }
}

void VideoHub::follow_for_a_turn(Follower* follower) {
    if (!follower->ring) {
        follower->ring = std::make_unique<RingReader>();
    }
    RingReader& ring = *follower->ring;
    const bool came = look_for_parts(ring);
    const Clock::time_point now = Clock::now();
    if (came) {
        follower->last_part = now;
        const std::lock_guard lock(figures_mutex_);
        figures_.missed_parts = follower->missed_in_old_rings + ring.missed();
        return;
    }
    if (now - follower->last_part <= kPictureIsWholeAfter) {
        return;
    }
    end_picture(now - follower->last_part > kPictureIsWholeInAnyCaseAfter);
    if (now - follower->last_look > kLookForNewRingEvery) {
        follower->last_look = now;
        if (ring.replaced()) {
            follower->missed_in_old_rings += ring.missed();
            follower->ring.reset();
        }
    }
}

// Whether there were any.
bool VideoHub::look_for_parts(RingReader& ring) {
    bool came = false;
    const bool there = ring.open();
    const bool forbidden = !there && ring.forbidden();
    if (there) {
        try {
            ring.take([&](std::uint16_t sequence, std::span<const std::uint8_t> bytes) {
                came = true;
                take_part(sequence, bytes);
            });
        } catch (const std::bad_alloc&) {
            lose();
        }
    }
    const std::lock_guard lock(figures_mutex_);
    figures_.ring_forbidden = forbidden;
    return came;
}

void VideoHub::end_picture(bool in_any_case) {
    try {
        units_.pause();
        if (in_any_case) {
            units_.long_pause();
        }
    } catch (const std::bad_alloc&) {
        lose();
    }
}

void VideoHub::lose() {
    units_.lose();
    fanout_.interrupt();
}

void VideoHub::take_part(std::uint16_t sequence, std::span<const std::uint8_t> bytes) {
    if (has_sequence_ && sequence != next_sequence_) {
        lose();
    }
    has_sequence_ = true;
    next_sequence_ = static_cast<std::uint16_t>(sequence + 1);
    try {
        units_.take(bytes);
    } catch (const std::bad_alloc&) {
        lose();  // the picture; the next ones find room again
    }
    const std::lock_guard lock(figures_mutex_);
    ++figures_.parts;
    figures_.dropped_units = units_.dropped();
}

void VideoHub::take_unit(const AccessUnits::Unit& unit) {
    if (unit.key) {
        format_ = read_format(unit.codec);
    }
    const std::uint64_t now = now_us();
    fanout_.put(std::make_shared<AccessUnit>(unit.bytes, unit.key, now, format_));
    if (on_picture_) {
        on_picture_();
    }
    const std::lock_guard lock(figures_mutex_);
    ++figures_.units;
    figures_.key_units += unit.key ? 1 : 0;
    figures_.bytes += unit.bytes.size();
    figures_.last_interval_us = last_unit_us_ == 0 ? 0 : now - last_unit_us_;
    figures_.format = *format_;
    last_unit_us_ = now;
}

// The receiver writes the size before it publishes the first part of that size.
std::shared_ptr<const VideoFormat> VideoHub::read_format(const std::string& codec) const {
    VideoFormat format{codec, size_in(run_directory_ + "/video_width"),
                       size_in(run_directory_ + "/video_height")};
    return format == *format_ ? format_ : std::make_shared<VideoFormat>(std::move(format));
}

VideoFigures VideoHub::figures() const {
    const std::lock_guard lock(figures_mutex_);
    return figures_;
}
