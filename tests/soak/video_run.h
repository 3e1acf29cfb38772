// A clip in endless repetition through the receiver, and what of it comes out of the ring: one
// thread sends, another follows the ring and compares each part with what was sent.
//
// The ring must be empty at the start. Its first part is the stored key frame, which is passed
// over.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

#include "simulator/simulated_camera.h"
#include "tests/soak/figures.h"

class VideoRun {
  public:
    VideoRun(SimulatedCamera& camera, std::vector<Bytes> chunks, Milliseconds chunk_period);
    ~VideoRun();
    VideoRun(const VideoRun&) = delete;
    VideoRun& operator=(const VideoRun&) = delete;

    // Sends no more, and waits until what was sent has come. What has not by then is lost.
    void finish();
    // Sends no more; what is under way may stay there.
    void abandon();

    std::size_t sent() const { return sent_; }
    std::size_t arrived() const { return arrived_; }
    // Parts overwritten unread, other than what was sent at that place, or missing at the finish.
    std::size_t lost() const { return lost_; }
    // From the first byte on the bus to the part's bytes in the reader's hands.
    Latencies latencies;

  private:
    void feed();
    void follow();
    void take_part(std::span<const std::uint8_t> part);

    // More than the ring has slots.
    static constexpr std::size_t kTimesKept = 1024;

    SimulatedCamera& camera_;
    const std::vector<Bytes> chunks_;
    const Milliseconds period_;
    std::array<std::atomic<Clock::time_point>, kTimesKept> sent_at_{};
    std::atomic<std::size_t> sent_{0};
    std::atomic<std::size_t> arrived_{0};
    std::atomic<std::size_t> lost_{0};
    bool began_ = false;  // the follower's
    std::atomic<bool> stop_feeding_{false};
    std::atomic<bool> stop_following_{false};
    std::thread feeder_;
    std::thread follower_;
};
