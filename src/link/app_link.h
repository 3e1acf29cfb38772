// The UDP channel to the main application, and whether the main application is there.
//
// One socket on a port that the kernel chooses. Telemetry leaves from it; the main application
// answers to where that came from, so its commands arrive on the same socket.
#pragma once

#include <netinet/in.h>
#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

using AppLinkPeerCallback = void (*)(const char* peer_host, std::uint16_t peer_port);
using AppLinkPlainCallback = void (*)();
using AppLinkDatagramCallback = void (*)(const std::uint8_t* buffer, std::uint16_t length,
                                         const char* peer_host, std::uint16_t peer_port);

// One process-wide record. The receive thread writes what it learns of the peer, the telemetry
// thread reads it and forgets a peer that fell silent; single words without a lock, so that a
// reader may see the new port with the old host for the length of one datagram.
struct AppLink {
    std::uint8_t* rx_buffer;       // the caller's
    std::uint16_t rx_buffer_size;  // also the largest datagram read; the rest is cut off
    std::uint8_t clear_before_receive;
    int socket;
    std::uint32_t address_length;
    // Source of the last receive, and destination of the last send: one address for both. A send
    // whose host is no dotted address keeps the address that stands here.
    std::atomic<std::uint32_t> address_host;  // network byte order
    std::atomic<std::uint16_t> address_port;  // network byte order
    std::atomic<std::uint32_t> bytes_received;
    // Dotted; static storage of inet_ntoa(), which each thread has its own of: the text behind it
    // is for the receive thread.
    std::atomic<const char*> peer_host;
    std::atomic<std::uint16_t> peer_port;        // host byte order
    std::atomic<std::uint32_t> last_receive_ms;  // clock_ms() of the last datagram; 0: no peer
    std::atomic<std::uint32_t> bytes_sent;
    pthread_t receive_thread;
    AppLinkPeerCallback on_peer_connected;
    AppLinkPlainCallback on_peer_lost;
    AppLinkPlainCallback on_peer_found;
    AppLinkDatagramCallback on_datagram;
};

extern AppLink app_link;

// Set up in this order, before the channel is opened. Start-up thread.
void app_link_set_buffer(std::uint8_t* buffer, std::uint16_t size);
void app_link_set_connected_callback(AppLinkPeerCallback callback);
void app_link_set_found_callback(AppLinkPlainCallback callback);
void app_link_set_lost_callback(AppLinkPlainCallback callback);
void app_link_set_datagram_callback(AppLinkDatagramCallback callback);

// Binds the socket (port 0: any) and starts the receive thread. 0 or -1. With `clear`, the buffer
// is zeroed before each receive, so that a datagram shorter than it ends in NUL bytes. Start-up
// thread. A failed or empty receive ends the process with status 3.
int app_link_open(std::uint16_t local_port, std::uint32_t timeout_ms, bool clear);

// Result of sendto(). Telemetry thread.
ssize_t app_link_send_to(const std::uint8_t* buffer, std::size_t length, const char* host,
                         std::uint16_t port);

// Sends to the last sender; -1 where there is none. Receive thread.
ssize_t app_link_reply(const std::uint8_t* buffer, std::size_t length);

// Reports the peer lost when its last datagram is longer ago than the time-out. Telemetry thread.
void app_link_check_presence();
