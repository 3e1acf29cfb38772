// What happened on other threads, in order, for a test that waits for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

template <typename Event>
class EventList {
  public:
    void add(Event event) {
        const std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
        changed_.notify_all();
    }

    // All events once there are at least `count`; fewer when that takes ten seconds.
    std::vector<Event> wait_for(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(10), [&] { return events_.size() >= count; });
        return events_;
    }

    void clear() {
        const std::lock_guard lock(mutex_);
        events_.clear();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Event> events_;
};
