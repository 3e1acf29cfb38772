// Follows the receiver's video ring on a thread of its own, which waits for nobody, and hands the
// pictures to whoever watches.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "monitor/access_units.h"
#include "monitor/video_fanout.h"

class RingReader;

struct VideoFigures {
    std::uint64_t parts = 0;
    std::uint64_t missed_parts = 0;  // overwritten before they could be taken
    std::uint64_t units = 0;
    std::uint64_t key_units = 0;
    std::uint64_t dropped_units = 0;  // cut by a missed part, or behind one
    std::uint64_t bytes = 0;
    std::uint64_t last_interval_us = 0;  // between the last two pictures
    bool ring_forbidden = false;         // to this user: the ring is the receiver's alone
    VideoFormat format;
};

class VideoHub {
  public:
    // The function is called with each picture, by the hub's thread.
    explicit VideoHub(std::string run_directory, std::function<void()> on_picture = {});
    ~VideoHub();
    VideoHub(const VideoHub&) = delete;
    VideoHub& operator=(const VideoHub&) = delete;

    void start();
    // Ends the thread and lets every viewer go.
    void stop();

    VideoFanout& fanout() { return fanout_; }
    VideoFigures figures() const;  // thread-safe

    // One part by its number, which tells whether some are missing before it: for the thread, and
    // for tests without one.
    void take_part(std::uint16_t sequence, std::span<const std::uint8_t> bytes);

  private:
    struct Follower;

    void follow();
    void follow_for_a_turn(Follower* follower);
    bool look_for_parts(RingReader& ring);
    void take_unit(const AccessUnits::Unit& unit);
    void end_picture(bool in_any_case);
    void lose();
    std::shared_ptr<const VideoFormat> read_format(const std::string& codec) const;

    const std::string run_directory_;
    const std::function<void()> on_picture_;
    VideoFanout fanout_;
    AccessUnits units_;
    std::shared_ptr<const VideoFormat> format_ = std::make_shared<VideoFormat>();
    bool has_sequence_ = false;
    std::uint16_t next_sequence_ = 0;
    std::uint64_t last_unit_us_ = 0;

    mutable std::mutex figures_mutex_;
    VideoFigures figures_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};
