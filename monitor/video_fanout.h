// Hands the access units to many viewers, each with a bounded queue of its own. One that is slow
// loses what waits for it, up to the next key frame, and slows nobody: the writer never waits.
// All functions are thread-safe.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

struct VideoFormat {
    std::string codec;
    int width = 0;  // 0: not known yet
    int height = 0;
    bool operator==(const VideoFormat&) const = default;
};

// byte:  0      1 .. 8               9 ..
//        flags  microseconds (le)    Annex B       flags: bit 0 key frame
struct AccessUnit {
    static constexpr std::size_t kHeaderSize = 9;

    AccessUnit(std::span<const std::uint8_t> annex_b, bool key_frame, std::uint64_t time_us,
               std::shared_ptr<const VideoFormat> video);

    std::span<const std::uint8_t> annex_b() const {
        return std::span(message).subspan(kHeaderSize);
    }

    bool key;
    std::uint64_t microseconds;
    std::shared_ptr<const VideoFormat> format;
    std::vector<std::uint8_t> message;
    std::vector<std::uint8_t> sets;  // a key frame's parameter sets
};
using AccessUnitPtr = std::shared_ptr<const AccessUnit>;

class VideoViewer {
  public:
    // The next unit; null when none has come within the time, and when it is closed and none waits.
    AccessUnitPtr next(std::chrono::milliseconds wait);
    void close();
    bool closed() const;
    // Units that it was too slow for.
    std::size_t dropped() const;

  private:
    friend class VideoFanout;
    // The sets are those of the last key frame so far.
    VideoViewer(bool holds_stored_frames, std::vector<std::uint8_t> sets)
        : holds_stored_frames_(holds_stored_frames), sets_(std::move(sets)) {}
    void put(const AccessUnitPtr& unit);
    void interrupt();
    bool take_over(const AccessUnitPtr& unit);
    void queue(const AccessUnitPtr& unit);

    // Ahead of the camera's first picture the receiver puts a key frame of its own: one whose
    // parameter sets the next picture replaces. A stream must not begin with these, nor a file. So
    // a key frame with other sets than those before it waits for the picture behind it.
    const bool holds_stored_frames_;
    AccessUnitPtr held_;
    std::vector<std::uint8_t> sets_;  // of the last key frame, the one that is held included

    mutable std::mutex mutex_;
    std::condition_variable came_;
    std::deque<AccessUnitPtr> queue_;
    std::size_t queued_bytes_ = 0;
    bool waits_for_key_ = true;
    bool is_slow_ = false;  // and waits for that reason
    bool closed_ = false;
    std::size_t dropped_ = 0;
};

class VideoFanout {
  public:
    enum class Begin { kAtOnce, kNextKeyFrame };
    // kAtOnce: with what there is since the last key frame, to have a picture immediately.
    // kNextKeyFrame: of the camera's; the receiver's own, which goes ahead of them, is left out.
    std::shared_ptr<VideoViewer> join(Begin begin);
    void leave(const std::shared_ptr<VideoViewer>& viewer);

    void put(const AccessUnitPtr& unit);
    // The units from here on do not follow those before: newcomers wait for the next key frame.
    void interrupt();
    void close_all();

    std::size_t viewers() const;
    // Units that viewers were too slow for, those who left included.
    std::size_t dropped() const;

  private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<VideoViewer>> viewers_;
    std::vector<AccessUnitPtr> since_key_;
    std::size_t since_key_bytes_ = 0;
    std::vector<std::uint8_t> sets_;  // of the last key frame
    std::size_t dropped_by_the_gone_ = 0;
    bool closed_ = false;
};
