// What is known of camera and receiver, for any number of viewers: the last values and, by a
// running number, which of them changed since a viewer looked last. A viewer that is slow finds the
// latest values only, so that nothing queues up for it. All functions are thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "client/telemetry_view.h"

// Presence as the viewers are told: "waiting" before the first report.
struct Presence {
    std::string receiver = "waiting";  // waiting, present, lost
    std::string camera = "waiting";    // waiting, present, lost
    bool operator==(const Presence&) const = default;
};

class TelemetryStore {
  public:
    using Clock = std::chrono::steady_clock;

    // One datagram of the receiver. False where it is malformed, which the log tells once until
    // the next good one: who sends them without end must not push all else out of it.
    bool take_report(std::span<const std::uint8_t> datagram);
    // Says "receiver lost" and the like in the log as it changes.
    void set_presence(const Presence& presence);
    // Values of the monitor's own; a number, a text, true or false as JSON.
    void set_number(const std::string& key, std::uint64_t number);
    void set_bool(const std::string& key, bool value);
    void set_text(const std::string& key, const std::string& text);
    // The mode of the sticks that was chosen of the receiver that is present. No report tells it;
    // another receiver does not know of it.
    void set_movement(const std::string& mode);
    void forget_movement();
    void add_line(const std::string& text);

    // The members, as JSON, of what changed behind *seen, which is then brought up to date: 0 asks
    // for all. Empty where nothing changed.
    std::string changes(std::uint64_t* seen) const;
    // The same for the log, as the elements of a list; no more than its last 200 lines are kept.
    std::string lines(std::uint64_t* seen) const;

    // Of the reports; empty where it is not known.
    std::string value(const std::string& key) const;
    // Any, as JSON; empty where it is not known.
    std::string json(const std::string& key) const;
    Presence presence() const;
    // When a report last told something else than the one before it.
    Clock::time_point last_change() const;
    unsigned reports(ReportKind kind) const;

  private:
    struct Value {
        std::string json;
        std::uint64_t changed;
    };

    void put(const std::string& key, std::string json);
    void put_line(const std::string& text);

    mutable std::mutex mutex_;
    TelemetryView view_;
    Presence presence_;
    bool told_malformed_ = false;
    Clock::time_point last_change_;
    std::map<std::string, Value> values_;
    std::uint64_t version_ = 0;
    std::vector<std::string> lines_;  // the last ones, as JSON
    std::uint64_t line_count_ = 0;
};

// The text in quotation marks, with what JSON wants escaped. What is no UTF-8 becomes U+FFFD, for
// a browser ends a connection over it. Reentrant.
std::string json_text(const std::string& text);
