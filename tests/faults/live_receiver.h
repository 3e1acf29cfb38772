// The release program at its daily work, with a fault planned: a simulated board, a camera that
// streams and obeys, and a main application that gives commands, changes the focus limits and uses
// the bridge. In a process of its own (isolated_jobs.h).
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "client/ring_reader.h"
#include "simulator/simulated_board.h"
#include "simulator/simulated_camera.h"
#include "tests/e2e/main_application.h"
#include "tests/e2e/receiver_process.h"
#include "tests/e2e/remote_control.h"
#include "tests/faults/fault_record.h"

// Of what a receiver at work is seen to do.
struct Signs {
    bool video = false;        // parts come into the ring
    bool reports = false;      // text reports reach the main application
    bool commands = false;     // the camera is told what the main application says
    bool bridge = false;       // and what comes in on port 6000
    bool saved = false;        // the focus limits are in the file
    bool remote = false;       // a button of the remote control reaches the camera
    bool supervision = false;  // the main thread looks how long the camera has been silent
    bool operator==(const Signs&) const = default;
    // What is missing: "no reports, no commands"; empty for none.
    std::string missing() const;
};

class LiveReceiver {
  public:
    explicit LiveReceiver(const FaultPlan& plan = {});
    ~LiveReceiver();
    LiveReceiver(const LiveReceiver&) = delete;
    LiveReceiver& operator=(const LiveReceiver&) = delete;

    // The board before the receiver's start.
    SimulatedBoard& board() { return board_; }
    FaultRecord& record() { return *record_; }
    const std::string& output() const { return output_; }

    // For a boot partition that was mounted since.
    void write_old_focus_file() const;
    // The program; with a redirection as the shell has it.
    void start(const std::string& redirection = "");
    // Waits until it has printed that.
    bool wait_for(const std::string& line) const;
    // Whether it works, or how it has ended, seen from the fault on, else from this call on:
    //   carries on
    //   carries on, no reports
    //   ends 2: Camera connection timeout
    // For a fault that never came: "not reached".
    std::string outcome(bool wait_for_fault = true);
    // The same without a fault: whether it works from now on.
    std::string outcome_from_now() { return outcome(false); }
    // Waits for the end alone: the exit status, or minus the signal.
    std::optional<int> wait_exit();
    // The camera sends nothing, or goes on.
    void silence_camera(bool silent);
    // What the focus file holds: "old", "new", "empty", or its text.
    std::string focus_file() const;

  private:
    using Clock = std::chrono::steady_clock;

    void play_host();
    void stream();
    void ask();
    bool find_channels();
    void look();
    void look_anew();
    std::string file_text() const;
    std::string focus_file_remark() const;

    SimulatedBoard board_;
    FaultRecord* record_ = nullptr;
    MainApplication app_;
    RingReader ring_;
    bool ring_open_ = false;
    std::optional<ReceiverProcess> process_;
    std::optional<SimulatedCamera> camera_;  // the host's thread makes it, before streaming_
    std::atomic<bool> streaming_{false};
    std::atomic<bool> silent_{false};
    std::atomic<bool> stop_{false};
    std::thread host_;
    Clock::time_point next_ask_;
    int round_ = 0;
    unsigned commands_before_ = 0;
    unsigned refused_before_ = 0;
    unsigned presses_before_ = 0;
    int supervisions_before_ = 0;
    std::optional<RemoteControl> channels_;
    double press_ = 1.0;
    unsigned parts_ = 0;
    Signs signs_;
    std::string output_;
};
