// One life of a receiver under all that it is there for: video, telemetry, commands, sticks. From
// its start, as its supervisor would start it, to one of its ends. Thread-bound.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "simulator/simulated_camera.h"
#include "tests/e2e/main_application.h"
#include "tests/e2e/receiver_process.h"
#include "tests/e2e/remote_control.h"
#include "tests/soak/application_run.h"
#include "tests/soak/sample_table.h"
#include "tests/soak/video_run.h"

// A hand that never rests: the pan stick to and fro.
class StickRun {
  public:
    StickRun();
    ~StickRun();
    StickRun(const StickRun&) = delete;
    StickRun& operator=(const StickRun&) = delete;

  private:
    RemoteControl remote_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

class SoakSession {
  public:
    // Returns with everything under way. With `replugged`, the plug is pulled and put back before
    // the first data. Throws where the receiver does not come so far.
    SoakSession(const std::vector<Bytes>& chunks, bool replugged);

    // What the process holds, and what has happened since the last call. Throws where it has ended.
    Sample sample();

    // The main application goes silent until the receiver has lost it, and comes back.
    void interrupt_application();

    // Ends the process in the way of that number, of which there are kEndings, and waits for it.
    // Throws where it ends with another status than that end has. The way's name.
    static constexpr unsigned kEndings = 5;
    const char* end(unsigned number);

    // What was still found lost at the end.
    std::size_t commands_lost() const { return commands_.lost_in_all(); }
    std::size_t parts_lost() const { return video_->lost(); }

  private:
    void start(bool replugged);
    void begin_commands();

    SimulatedBoard board_;
    MainApplication application_;
    CommandWatch commands_;
    ReceiverProcess receiver_;
    SimulatedCamera camera_;
    std::unique_ptr<VideoRun> video_;
    std::unique_ptr<ApplicationRun> application_run_;
    std::unique_ptr<StickRun> sticks_;

    // As of the last sample.
    std::size_t parts_ = 0;
    std::size_t parts_lost_ = 0;
    std::size_t commands_sent_ = 0;
    std::size_t commands_lost_ = 0;
    unsigned stick_packets_ = 0;
};
