// What the scripted main application sends and what it expects to be told, by the second:
//
//   # seconds since the first report
//   0.5  {"cmd":"iso","param":"400"}       sent with the '!' of a command in front
//   0.5  expect iso_set 400                 told within 3 seconds from then, or the script fails
//   4    expect yaw 850..950 2.5            a number of that range, within 2.5 seconds
//   4    expect camera_model "DJI Osmo (X3)"
//   6    hex 05 02 01 00                    sent as it is
//
// A line waits for those before it: one that comes late moves those behind it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct AppStep {
    double seconds;
    int line;                            // in the file, from 1
    std::vector<std::uint8_t> datagram;  // to be sent; empty: an expectation
    std::string text;                    // what is sent, as it was written
    std::string key;
    std::string value;
    double within;
};

// nullopt, with the line and the reason in *error: a line is none of the above, is earlier than the
// one before it, or expects something that no report tells. Reentrant.
std::optional<std::vector<AppStep>> parse_app_script(const std::string& script, std::string* error);

// "LEAST..MOST" is met by the numbers from the one to the other, any other text by itself alone.
// Reentrant.
bool meets_expectation(const std::string& wanted, const std::string& told);

// A script on its way. Not thread-safe.
class AppScriptRun {
  public:
    explicit AppScriptRun(std::vector<AppStep> steps) : steps_(std::move(steps)) {}

    enum class Outcome { kNothingDue, kSend, kMet, kMissed, kDone };
    struct Event {
        Outcome outcome;
        const AppStep* step;  // null where nothing is due or all is done
        double waited;        // seconds that an expectation took
    };
    // What is due next at that many seconds, the values being as told so far. A step is given once;
    // after a missed expectation the script is done.
    using Value = std::function<std::optional<std::string>(const std::string& key)>;
    Event next(double now, const Value& value);

    bool done() const { return at_ == steps_.size(); }
    unsigned met() const { return met_; }

  private:
    std::vector<AppStep> steps_;
    std::size_t at_ = 0;
    unsigned met_ = 0;
    std::optional<double> begun_;  // when the expectation that is waited for became due
};
