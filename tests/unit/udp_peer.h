// A UDP socket at the other end of the receiver's, for tests.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

inline sockaddr_in ipv4_address(const char* host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_aton(host, &address.sin_addr);
    return address;
}

// The port that a socket is bound to; 0 where it is bound to none.
inline std::uint16_t bound_port(int socket) {
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    return ntohs(address.sin_port);
}

class UdpPeer {
  public:
    // On a port that the kernel chooses, or on a fixed one.
    explicit UdpPeer(const char* host = "127.0.0.1", std::uint16_t port = 0)
        : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
        const sockaddr_in address = ipv4_address(host, port);
        bound_ = bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    }
    ~UdpPeer() { close(socket_); }
    UdpPeer(const UdpPeer&) = delete;
    UdpPeer& operator=(const UdpPeer&) = delete;

    bool is_bound() const { return bound_; }
    std::uint16_t port() const { return bound_port(socket_); }

    bool send(const Bytes& bytes, std::uint16_t port, const char* host = "127.0.0.1") const {
        const sockaddr_in to = ipv4_address(host, port);
        return sendto(socket_, bytes.data(), bytes.size(), 0,
                      reinterpret_cast<const sockaddr*>(&to),
                      sizeof(to)) == static_cast<ssize_t>(bytes.size());
    }

    // The next datagram; nullopt when none comes within the time.
    std::optional<Bytes> receive(int timeout_ms = 5000) {
        pollfd readable = {socket_, POLLIN, 0};
        if (poll(&readable, 1, timeout_ms) != 1) {
            return std::nullopt;
        }
        Bytes bytes(65536);
        socklen_t length = sizeof(last_source);
        const ssize_t count = recvfrom(socket_, bytes.data(), bytes.size(), 0,
                                       reinterpret_cast<sockaddr*>(&last_source), &length);
        if (count < 0) {
            return std::nullopt;
        }
        bytes.resize(static_cast<std::size_t>(count));
        return bytes;
    }

    sockaddr_in last_source{};  // of the last datagram received

  private:
    int socket_;
    bool bound_ = false;
};

// `count` bytes that differ from their neighbours.
inline Bytes numbered_bytes(std::size_t count) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i % 251 + 1);
    }
    return bytes;
}
