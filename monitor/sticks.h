// The gimbal's sticks, in the channel block that the receiver reads. They go back to rest by
// themselves soon after the last word of the hand on them: a page that is gone leaves no gimbal
// turning. All functions are thread-safe.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

struct StickPosition {
    double pan = 0;  // -1 to 1
    double tilt = 0;
    double dutch = 0;
    bool operator==(const StickPosition&) const = default;
};

class Sticks {
  public:
    explicit Sticks(std::chrono::milliseconds held_for = std::chrono::milliseconds(500));
    // To rest.
    ~Sticks();
    Sticks(const Sticks&) = delete;
    Sticks& operator=(const Sticks&) = delete;

    // Whoever is no more may have left them turned.
    void put_to_rest();
    // Empty, or why not: out of range, or there is no receiver's channel block. The last hand has
    // them; it is only compared.
    std::string set(const StickPosition& position, const void* hand);
    // To rest, where this hand has them.
    void release(const void* hand);

  private:
    void watch();
    void rest();

    const std::chrono::milliseconds held_for_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<std::chrono::steady_clock::time_point> rest_at_;  // while they are held
    const void* hand_ = nullptr;
    bool stop_ = false;
    std::thread thread_;
};
