#include "link/udp_bridge.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/socket.h>

#include <atomic>

#include "usb/camera_send.h"

namespace {

constexpr std::uint16_t kReplyPort = 6000;

// Opened once, never closed. The bridge thread writes the sender's address; a reply from another
// thread may go to the sender before the last.
struct UdpBridge {
    int socket;
    std::atomic<std::uint32_t> address_host;  // network byte order; all zero before a sender
    pthread_t receive_thread;
    std::uint8_t buffer[10000];  // a longer datagram is cut to this
};

UdpBridge udp_bridge;

void* bridge_thread(void* /*unused*/) {
    for (;;) {
        sockaddr_in source{};
        socklen_t source_length = sizeof(source);
        const ssize_t length =
            recvfrom(udp_bridge.socket, udp_bridge.buffer, sizeof(udp_bridge.buffer), 0,
                     reinterpret_cast<sockaddr*>(&source), &source_length);
        if (length < 0) {
            // The bridge is a tool's way in: its failure is no reason to end the process.
            fprintf(stderr, "UDP read failed\n");
            continue;
        }
        udp_bridge.address_host.store(source.sin_addr.s_addr, std::memory_order_relaxed);
        if (length > 0) {
            camera_send(udp_bridge.buffer, static_cast<std::size_t>(length));
        }
    }
}

}  // namespace

int udp_bridge_open(std::uint16_t port) {
    udp_bridge.socket = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    const int flags = fcntl(udp_bridge.socket, F_GETFL);
    fcntl(udp_bridge.socket, F_SETFL, flags & ~O_NONBLOCK);

    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    local.sin_port = htons(port);
    const int bound =
        bind(udp_bridge.socket, reinterpret_cast<const sockaddr*>(&local), sizeof(local));
    if (bound < 0) {
        return bound;
    }
    return pthread_create(&udp_bridge.receive_thread, nullptr, bridge_thread, nullptr);
}

ssize_t udp_bridge_reply(const std::uint8_t* buffer, std::size_t length) {
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_addr.s_addr = udp_bridge.address_host.load(std::memory_order_relaxed);
    destination.sin_port = htons(kReplyPort);
    return sendto(udp_bridge.socket, buffer, length, 0,
                  reinterpret_cast<const sockaddr*>(&destination), sizeof(destination));
}
