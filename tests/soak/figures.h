// Figures that a run collects while threads add to them. Reentrant, but for Latencies.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

using Clock = std::chrono::steady_clock;

inline double milliseconds_between(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// 0 of no values.
inline double percentile(std::vector<double> values, unsigned percent) {
    if (values.empty()) {
        return 0;
    }
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * percent / 100);
    std::ranges::nth_element(values, at);
    return *at;
}

// Milliseconds, as one thread adds them and another takes them away. Thread-safe.
class Latencies {
  public:
    void add(double milliseconds) {
        const std::lock_guard lock(mutex_);
        values_.push_back(milliseconds);
    }
    // What has been added since the last call.
    std::vector<double> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(values_, {});
    }

  private:
    std::mutex mutex_;
    std::vector<double> values_;
};
