// A main application that sends a command at a steady pace and keeps the times of the reports, and
// the look at the camera that tells which of its commands arrived, and when.
#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <mutex>
#include <set>
#include <thread>

#include "simulator/usb_pipes.h"
#include "tests/e2e/main_application.h"
#include "tests/soak/figures.h"

// Which commands are on their way, each told from the next by its value. Thread-safe.
class CommandWatch {
  public:
    // The pipes with a look at each packet on its way to the camera. The strangers - datagrams that
    // came over the bridge - are counted and kept from it: their sequence numbers are not the
    // receiver's. The watch must outlive them.
    UsbPipes watch(UsbPipes pipes, std::set<Bytes> strangers = {});

    // The next command's text, which counts as sent from then on.
    std::string next_command();

    std::size_t sent() const;
    std::size_t arrived() const;
    // Commands that a later one has overtaken; at the end, those that have not come.
    std::size_t lost() const;
    std::size_t lost_in_all() const;
    std::size_t strangers() const { return strangers_; }
    Latencies latencies;

  private:
    void look(const Bytes& packet);

    struct Pending {
        std::uint8_t code;
        Clock::time_point sent;
    };
    mutable std::mutex mutex_;
    std::deque<Pending> pending_;
    std::size_t sent_ = 0;
    std::size_t arrived_ = 0;
    std::size_t lost_ = 0;
    std::atomic<std::size_t> strangers_{0};
};

// The pauses between reports of one kind, in milliseconds.
struct ReportPauses {
    std::vector<double> texts;
    std::vector<double> statuses;
};

class ApplicationRun {
  public:
    // Waits for a report, to learn where commands go; throws where none comes.
    ApplicationRun(MainApplication& application, CommandWatch& watch, Milliseconds command_period);
    ~ApplicationRun() { stop(); }
    ApplicationRun(const ApplicationRun&) = delete;
    ApplicationRun& operator=(const ApplicationRun&) = delete;

    void stop();
    // The pauses that ended since the last call.
    ReportPauses take_pauses() { return {texts_.take(), statuses_.take()}; }

  private:
    void run();
    void receive_until(Clock::time_point end);

    MainApplication& application_;
    CommandWatch& watch_;
    const Milliseconds period_;
    Clock::time_point last_text_{};
    Clock::time_point last_status_{};
    Latencies texts_;
    Latencies statuses_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};
