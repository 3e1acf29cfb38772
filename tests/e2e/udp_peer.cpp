#include "tests/e2e/udp_peer.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace {

sockaddr_in address(const std::string& host, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    inet_aton(host.c_str(), &result.sin_addr);
    return result;
}

}  // namespace

UdpPeer::UdpPeer(const std::string& host, std::uint16_t port)
    : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
    const sockaddr_in local = address(host, port);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        throw std::runtime_error("cannot bind " + host);
    }
}

UdpPeer::~UdpPeer() {
    close(fd_);
}

bool UdpPeer::send(std::uint16_t port, const Bytes& datagram) const {
    const sockaddr_in to = address("127.0.0.1", port);
    return sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                  sizeof to) == static_cast<ssize_t>(datagram.size());
}
