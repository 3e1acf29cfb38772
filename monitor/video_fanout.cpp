#include "monitor/video_fanout.h"

#include <algorithm>
#include <utility>

#include "monitor/access_units.h"

namespace {

// What may wait for one viewer: two seconds at 30 Mbit/s and 60 pictures a second.
constexpr std::size_t kLargestQueue = std::size_t{8} * 1024 * 1024;
constexpr std::size_t kLongestQueue = 120;
// A newcomer's queue must have room for what comes while it takes these.
constexpr std::size_t kLargestStart = kLargestQueue / 2;
constexpr std::size_t kLongestStart = kLongestQueue / 2;

}  // namespace

AccessUnit::AccessUnit(std::span<const std::uint8_t> annex_b, bool key_frame, std::uint64_t time_us,
                       std::shared_ptr<const VideoFormat> video)
    : key(key_frame), microseconds(time_us), format(std::move(video)) {
    message.reserve(kHeaderSize + annex_b.size());
    message.push_back(key_frame ? 1 : 0);
    for (unsigned shift = 0; shift < 64; shift += 8) {
        message.push_back(static_cast<std::uint8_t>(microseconds >> shift & 0xFF));
    }
    message.insert(message.end(), annex_b.begin(), annex_b.end());
    if (key) {
        sets = parameter_sets(annex_b);
    }
}

AccessUnitPtr VideoViewer::next(std::chrono::milliseconds wait) {
    std::unique_lock lock(mutex_);
    came_.wait_for(lock, wait, [this] { return closed_ || !queue_.empty(); });
    if (queue_.empty()) {
        return nullptr;
    }
    AccessUnitPtr unit = std::move(queue_.front());
    queue_.pop_front();
    queued_bytes_ -= unit->message.size();
    return unit;
}

void VideoViewer::put(const AccessUnitPtr& unit) {
    {
        const std::lock_guard lock(mutex_);
        if (closed_ || (holds_stored_frames_ && !take_over(unit))) {
            return;
        }
        queue(unit);
    }
    came_.notify_one();
}

// Decides about the one that is held. False where the unit is held in its place.
bool VideoViewer::take_over(const AccessUnitPtr& unit) {
    const AccessUnitPtr held = std::exchange(held_, nullptr);
    const bool other_sets = unit->key && unit->sets != sets_;
    if (other_sets) {
        sets_ = unit->sets;
    }
    if (held && other_sets) {
        return true;  // the held one was the stored one; this is the camera's first
    }
    if (held) {
        queue(held);
    }
    if (other_sets) {
        held_ = unit;
    }
    return !other_sets;
}

void VideoViewer::queue(const AccessUnitPtr& unit) {
    const bool full =
        queue_.size() >= kLongestQueue || queued_bytes_ + unit->message.size() > kLargestQueue;
    if (full && !queue_.empty()) {
        dropped_ += queue_.size();
        queue_.clear();
        queued_bytes_ = 0;
        is_slow_ = waits_for_key_ = true;
    }
    if (waits_for_key_ && !unit->key) {
        dropped_ += is_slow_ ? 1 : 0;
        return;
    }
    is_slow_ = false;
    waits_for_key_ = false;
    queue_.push_back(unit);
    queued_bytes_ += unit->message.size();
}

// What was held is followed by a key frame at best: nothing needs it.
void VideoViewer::interrupt() {
    const std::lock_guard lock(mutex_);
    if (held_) {
        held_.reset();
        sets_.clear();
    }
}

void VideoViewer::close() {
    {
        const std::lock_guard lock(mutex_);
        if (held_) {
            queue(std::exchange(held_, nullptr));
        }
        closed_ = true;
    }
    came_.notify_all();
}

bool VideoViewer::closed() const {
    const std::lock_guard lock(mutex_);
    return closed_;
}

std::size_t VideoViewer::dropped() const {
    const std::lock_guard lock(mutex_);
    return dropped_;
}

std::shared_ptr<VideoViewer> VideoFanout::join(Begin begin) {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<VideoViewer> viewer(new VideoViewer(begin == Begin::kNextKeyFrame, sets_));
    if (begin == Begin::kAtOnce) {
        for (const AccessUnitPtr& unit : since_key_) {
            viewer->put(unit);
        }
    }
    if (closed_) {
        viewer->close();
    }
    viewers_.push_back(viewer);
    return viewer;
}

void VideoFanout::leave(const std::shared_ptr<VideoViewer>& viewer) {
    viewer->close();
    const std::lock_guard lock(mutex_);
    if (std::erase(viewers_, viewer) != 0) {
        dropped_by_the_gone_ += viewer->dropped();
    }
}

void VideoFanout::put(const AccessUnitPtr& unit) {
    const std::lock_guard lock(mutex_);
    if (unit->key) {
        since_key_.clear();
        since_key_bytes_ = 0;
        sets_ = unit->sets;
    }
    // Empty and not a key: the group was interrupted, or grew too large to be a start.
    if (unit->key || !since_key_.empty()) {
        since_key_.push_back(unit);
        since_key_bytes_ += unit->message.size();
        if (since_key_bytes_ > kLargestStart || since_key_.size() > kLongestStart) {
            since_key_.clear();
        }
    }
    for (const auto& viewer : viewers_) {
        viewer->put(unit);
    }
}

void VideoFanout::interrupt() {
    const std::lock_guard lock(mutex_);
    since_key_.clear();
    for (const auto& viewer : viewers_) {
        viewer->interrupt();
    }
}

void VideoFanout::close_all() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    for (const auto& viewer : viewers_) {
        viewer->close();
    }
}

std::size_t VideoFanout::viewers() const {
    const std::lock_guard lock(mutex_);
    return viewers_.size();
}

std::size_t VideoFanout::dropped() const {
    const std::lock_guard lock(mutex_);
    std::size_t sum = dropped_by_the_gone_;
    for (const auto& viewer : viewers_) {
        sum += viewer->dropped();
    }
    return sum;
}
