// The monitor's UDP channel, with a test at the receiver's end.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "monitor/receiver_link.h"

using Datagram = std::vector<std::uint8_t>;
using Datagrams = std::vector<Datagram>;

constexpr std::uint16_t kTelemetryPort = 5000;

// Sends reports and gets commands, as the receiver does, at a port of its own.
class FakeReceiver {
  public:
    // At another address it is like one of another machine. Port 0: any that is free.
    explicit FakeReceiver(const std::string& address = "127.0.0.1", std::uint16_t port = 0);
    ~FakeReceiver();
    FakeReceiver(const FakeReceiver&) = delete;
    FakeReceiver& operator=(const FakeReceiver&) = delete;

    void report(const Datagram& datagram, std::uint16_t port = kTelemetryPort) const;
    void report(const std::string& text, std::uint16_t port = kTelemetryPort) const;
    // The next one; empty where none comes within three seconds.
    Datagram receive() const;
    const sockaddr_in& address() const { return address_; }

  private:
    int fd_;
    sockaddr_in address_{};
};

class ReceiverLinkTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(link.start()); }
    // Within ten seconds.
    static bool comes_true(const std::function<bool()>& condition);
    bool becomes(const Presence& presence) const;
    // An example of the page of the protocol.
    static std::string report_of(const std::string& name);

    TelemetryStore store;
    ReceiverLink link{store, {kTelemetryPort, "", 0}};
    std::unique_ptr<FakeReceiver> receiver = std::make_unique<FakeReceiver>();
};
