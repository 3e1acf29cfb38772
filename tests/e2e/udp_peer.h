// A UDP socket on the loopback, for tests.
#pragma once

#include <cstdint>
#include <string>

#include "simulator/usb_bus.h"

// A UDP socket on 127.0.0.1 (or another loopback address) of its own.
class UdpPeer {
  public:
    explicit UdpPeer(const std::string& host = "127.0.0.1", std::uint16_t port = 0);
    ~UdpPeer();
    UdpPeer(const UdpPeer&) = delete;
    UdpPeer& operator=(const UdpPeer&) = delete;
    bool send(std::uint16_t port, const Bytes& datagram) const;

  private:
    int fd_;
};
