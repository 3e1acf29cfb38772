// Datagrams at a fixed rate to a port of this machine, from a socket and a thread of their own.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "tests/e2e/udp_peer.h"

class DatagramFlood {
  public:
    // Sends the datagrams in turn, from the beginning again after the last, until stop().
    DatagramFlood(std::uint16_t port, double per_second, std::vector<Bytes> datagrams);
    ~DatagramFlood() { stop(); }
    DatagramFlood(const DatagramFlood&) = delete;
    DatagramFlood& operator=(const DatagramFlood&) = delete;

    void stop();
    std::size_t sent() const { return sent_; }
    // How many the kernel took per second, until now or until the stop.
    double rate() const;

  private:
    void run();

    const std::uint16_t port_;
    const double per_second_;
    const std::vector<Bytes> datagrams_;
    const UdpPeer peer_;
    const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point ended_{};
    std::atomic<std::size_t> sent_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// What anyone on a network may send: bytes of every kind and length but none, pieces of the text
// protocol, and what only looks like a message. None of it moves the camera. The same in each run.
std::vector<Bytes> garbage_datagrams(std::size_t count);
