// The UDP channel to the receiver: takes its reports into the store on a thread of its own, keeps
// this main application present with a datagram each half second, and sends commands.
//
// A receiver that has ended has no port, and its system answers a datagram with an error. One whose
// camera is gone still holds its port, until it ends some seconds later: it sends no report any
// more, or, where the camera fell silent, the same ones again and again while the video stands
// still. So a lost camera is told from a lost receiver.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include "monitor/telemetry_store.h"

struct ReceiverLinkOptions {
    std::uint16_t telemetry_port = 5000;
    std::string receiver_host;        // empty: this machine's loopback
    std::uint16_t receiver_port = 0;  // 0: where the reports come from
};

class ReceiverLink {
  public:
    ReceiverLink(TelemetryStore& store, ReceiverLinkOptions options);
    ~ReceiverLink();
    ReceiverLink(const ReceiverLink&) = delete;
    ReceiverLink& operator=(const ReceiverLink&) = delete;

    // False, with errno, where the port is taken.
    bool start();
    void stop();

    // A picture has come. Thread-safe.
    void saw_picture();

    // Thread-safe. False while no receiver is known, or its port is closed.
    bool send(std::span<const std::uint8_t> datagram);

  private:
    using Clock = std::chrono::steady_clock;

    void live();
    void take_turn();
    void receive();
    void take_errors();
    void keep_present();
    void find_unreachable();
    Presence presence_at(Clock::time_point now) const;
    bool stands_still(Clock::time_point now) const;
    bool is_the_receiver(const sockaddr_in& from) const;

    TelemetryStore& store_;
    const ReceiverLinkOptions options_;
    int fd_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;

    std::atomic<Clock::time_point> last_picture_{};  // of the present receiver

    std::mutex sending_mutex_;  // what came back for a datagram is taken for the right one
    std::optional<sockaddr_in> destination_;

    // The thread's own.
    std::optional<Clock::time_point> last_report_;
    Clock::time_point next_presence_;
    bool unreachable_ = false;  // a datagram did not arrive, since the last report
};
