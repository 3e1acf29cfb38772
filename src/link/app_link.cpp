#include "link/app_link.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include "app/millisecond_clock.h"
#include "app/process_end.h"

AppLink app_link;

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

// Written before the receive thread starts.
std::uint32_t presence_timeout_ms = 1000;

struct Datagram {
    std::uint16_t length;
    const char* peer_host;
    std::uint16_t peer_port;
};

// One blocking receive. The sender goes into the record, and beside it to the caller: the presence
// check may clear the record's words at any moment.
Datagram receive_datagram() {
    if (app_link.clear_before_receive) {
        memset(app_link.rx_buffer, 0, app_link.rx_buffer_size);
    }
    sockaddr_in source{};
    socklen_t source_length = app_link.address_length;
    const ssize_t length = recvfrom(app_link.socket, app_link.rx_buffer, app_link.rx_buffer_size, 0,
                                    reinterpret_cast<sockaddr*>(&source), &source_length);
    // An empty datagram counts as a failure too: there is no message without a first byte.
    if (length <= 0) {
        fprintf(stderr, "UDP read failed\n");
        end_process(kExitSocketLost);
    }
    app_link.address_host.store(source.sin_addr.s_addr, kRelaxed);
    app_link.address_port.store(source.sin_port, kRelaxed);
    app_link.bytes_received.fetch_add(static_cast<std::uint32_t>(length), kRelaxed);
    const Datagram datagram = {static_cast<std::uint16_t>(length), inet_ntoa(source.sin_addr),
                               ntohs(source.sin_port)};
    app_link.peer_host.store(datagram.peer_host, kRelaxed);
    app_link.peer_port.store(datagram.peer_port, kRelaxed);
    return datagram;
}

// A peer is found once, whatever address its next datagrams come from, until it is lost again.
void note_presence(const Datagram& datagram) {
    if (app_link.last_receive_ms.load(kRelaxed) == 0) {
        if (app_link.on_peer_found) {
            app_link.on_peer_found();
        }
        if (app_link.on_peer_connected) {
            app_link.on_peer_connected(datagram.peer_host, datagram.peer_port);
        }
    }
    app_link.last_receive_ms.store(clock_ms(), kRelaxed);
}

void* receive_thread(void* /*unused*/) {
    for (;;) {
        const Datagram datagram = receive_datagram();
        note_presence(datagram);
        if (app_link.on_datagram) {
            app_link.on_datagram(app_link.rx_buffer, datagram.length, datagram.peer_host,
                                 datagram.peer_port);
        }
    }
}

}  // namespace

void app_link_set_buffer(std::uint8_t* buffer, std::uint16_t size) {
    app_link.rx_buffer = buffer;
    app_link.rx_buffer_size = size;
}

void app_link_set_connected_callback(AppLinkPeerCallback callback) {
    app_link.on_peer_connected = callback;
}

void app_link_set_found_callback(AppLinkPlainCallback callback) {
    app_link.on_peer_found = callback;
}

void app_link_set_lost_callback(AppLinkPlainCallback callback) {
    app_link.on_peer_lost = callback;
}

void app_link_set_datagram_callback(AppLinkDatagramCallback callback) {
    app_link.on_datagram = callback;
}

int app_link_open(std::uint16_t local_port, std::uint32_t timeout_ms, bool clear) {
    presence_timeout_ms = timeout_ms;
    app_link.clear_before_receive = clear;
    app_link.bytes_received.store(0, kRelaxed);
    app_link.bytes_sent.store(0, kRelaxed);
    app_link.address_length = sizeof(sockaddr_in);

    app_link.socket = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    const int flags = fcntl(app_link.socket, F_GETFL);
    fcntl(app_link.socket, F_SETFL, flags & ~O_NONBLOCK);
    // Off, not on: no second process may take a share of the main application's commands.
    const int reuse_port = 0;
    setsockopt(app_link.socket, SOL_SOCKET, SO_REUSEPORT, &reuse_port, sizeof(reuse_port));

    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    local.sin_port = htons(local_port);
    if (bind(app_link.socket, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) < 0) {
        return -1;
    }
    // A system that has no thread left has no use for the channel, but keeps the video.
    pthread_create(&app_link.receive_thread, nullptr, receive_thread, nullptr);
    return 0;
}

ssize_t app_link_send_to(const std::uint8_t* buffer, std::size_t length, const char* host,
                         std::uint16_t port) {
    app_link.address_port.store(htons(port), kRelaxed);
    in_addr parsed{};
    if (inet_aton(host, &parsed)) {
        app_link.address_host.store(parsed.s_addr, kRelaxed);
    } else {
        parsed.s_addr = app_link.address_host.load(kRelaxed);
    }
    // Sent to what was just worked out: a datagram that arrives meanwhile rewrites the record.
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_addr = parsed;
    destination.sin_port = htons(port);
    app_link.bytes_sent.fetch_add(static_cast<std::uint32_t>(length), kRelaxed);
    return sendto(app_link.socket, buffer, length, 0,
                  reinterpret_cast<const sockaddr*>(&destination), app_link.address_length);
}

ssize_t app_link_reply(const std::uint8_t* buffer, std::size_t length) {
    const char* peer_host = app_link.peer_host.load(kRelaxed);
    const std::uint16_t peer_port = app_link.peer_port.load(kRelaxed);
    if (peer_port == 0 || peer_host == nullptr) {
        return -1;
    }
    return app_link_send_to(buffer, length, peer_host, peer_port);
}

void app_link_check_presence() {
    // The time of the datagram first: one that arrives in between is then no age below zero, which
    // the unsigned comparison would take for a very old one.
    const std::uint32_t last_receive_ms = app_link.last_receive_ms.load(kRelaxed);
    const std::uint32_t now = clock_ms();
    if (last_receive_ms == 0 || now - last_receive_ms <= presence_timeout_ms) {
        return;
    }
    if (app_link.on_peer_lost) {
        app_link.on_peer_lost();
        app_link.peer_host.store(nullptr, kRelaxed);
        app_link.peer_port.store(0, kRelaxed);
    }
    app_link.last_receive_ms.store(0, kRelaxed);
}
