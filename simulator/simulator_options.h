// Command line of camera-simulator.
#pragma once

#include <optional>
#include <string>
#include <vector>

enum class Pace { kRealtime, kMegabits, kMax };

enum class Action { kDisconnect, kReconnect, kReset, kSilence, kGarbage };

struct TimedAction {
    double seconds;  // after the first byte could be sent
    Action action;
};

struct SimulatorOptions {
    bool usb = false;  // a real port instead of a simulated board
    std::string root;  // empty: a new directory
    std::string h264;  // the one or the other file, or none: the link alone
    std::string raw;
    std::string script;                    // empty: none
    std::string record;                    // empty: not recorded
    std::vector<std::string> program;      // with its arguments; empty: started by somebody else
    std::vector<TimedAction> actions;      // earliest first
    std::optional<bool> full_enumeration;  // a simulated host's; full when not given
    bool loop = false;
    std::optional<Pace> pace;  // as suits the file when not given
    double megabits = 0;
    double fps = 30;
    std::size_t chunk = 48000;
    std::size_t transfer = 0;               // after parsing: as given, or as large as the host's go
    std::optional<bool> status;             // whether the camera sends its messages; off with --raw
    std::optional<unsigned> packets_every;  // 10 where the camera sends nothing else, else 0
    double seconds = 0;                     // 0: until the work is done
    std::optional<double> wait_seconds;     // not given: 60, or with usb without end

    bool sends_status() const { return status.value_or(raw.empty()); }
};

// nullopt after the message on standard error, with the status to exit with in *status; for --help
// that is 0 and the text goes to standard output.
std::optional<SimulatorOptions> parse_simulator_options(int count, char** arguments, int* status);
