// The main application's ear, for tests that wait for what a report says: it takes every datagram,
// knows what the last ones said, and how steadily they came.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "tests/e2e/main_application.h"

// Datagrams of one kind, as they have come in.
struct Arrivals {
    using Clock = std::chrono::steady_clock;

    int count = 0;
    Clock::time_point last;
    std::chrono::duration<double> longest_pause{};

    void add();
};

class ReportListener {
  public:
    // Listens until the condition holds; false when the time is up.
    bool until(const std::function<bool()>& condition, std::chrono::milliseconds timeout);
    void listen(std::chrono::milliseconds time);

    // Until a report says so; each waits long enough for a command to take effect.
    bool until_item_is(const std::string& key, const std::string& value);
    bool until_recording_is(bool on);

    const std::string& item(const std::string& key) { return items_[key]; }
    const Arrivals& reports() const { return reports_; }
    const Arrivals& status_records() const { return status_records_; }
    const Arrivals& parameter_blocks() const { return parameter_blocks_; }

    MainApplication app;

  private:
    void note(const Bytes& datagram);

    Arrivals reports_;
    Arrivals status_records_;
    Arrivals parameter_blocks_;
    std::map<std::string, std::string> items_;
    std::uint8_t record_state_ = 0;
};
