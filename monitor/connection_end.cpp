#include "monitor/connection_end.h"

#include <arpa/inet.h>
#include <civetweb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstring>

namespace {

// The server serves 160 connections at a time and lets 256 wait, and the system gives the lowest
// number that is free.
constexpr int kDescriptors = 1024;

// The library keeps the descriptor to itself; the client's address and port are its alone.
bool leads_to(int fd, const mg_request_info& client) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    char address[INET_ADDRSTRLEN] = {};
    return getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) == 0 &&
           peer.sin_family == AF_INET && ntohs(peer.sin_port) == client.remote_port &&
           inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address) != nullptr &&
           strcmp(address, client.remote_addr) == 0;
}

template <typename Function>
void for_descriptors_of(const mg_connection* connection, Function function) {
    const mg_request_info& client = *mg_get_request_info(connection);
    for (int fd = 0; fd < kDescriptors; ++fd) {
        if (leads_to(fd, client)) {
            function(fd);
        }
    }
}

}  // namespace

void end_connection(const mg_connection* connection) {
    for_descriptors_of(connection, [](int fd) { shutdown(fd, SHUT_RDWR); });
}

void limit_silence(const mg_connection* connection, std::chrono::milliseconds longest) {
    const auto ms = static_cast<unsigned>(longest.count());
    for_descriptors_of(
        connection, [&](int fd) { setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &ms, sizeof ms); });
}
