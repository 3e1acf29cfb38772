#include "tests/e2e/main_application.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

MainApplication::MainApplication() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    receiver_.sin_family = AF_INET;
    receiver_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const sockaddr_in any_port = receiver_;
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&any_port), sizeof(any_port)) != 0) {
        throw std::runtime_error("cannot bind a port for the reports");
    }
}

MainApplication::~MainApplication() {
    close(fd_);
}

std::vector<std::string> MainApplication::arguments() const {
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &length);
    return {"--dst-port", std::to_string(ntohs(local.sin_port))};
}

std::optional<Bytes> MainApplication::receive(milliseconds timeout) {
    pollfd readable = {fd_, POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(timeout.count())) != 1) {
        return std::nullopt;
    }
    Bytes datagram(65536);
    socklen_t length = sizeof(receiver_);
    const ssize_t count = recvfrom(fd_, datagram.data(), datagram.size(), 0,
                                   reinterpret_cast<sockaddr*>(&receiver_), &length);
    if (count < 0) {
        return std::nullopt;
    }
    datagram.resize(static_cast<std::size_t>(count));
    return datagram;
}

std::optional<Bytes> MainApplication::receive(const Bytes& beginning, milliseconds timeout) {
    const auto end = Clock::now() + timeout;
    for (auto left = timeout; left > milliseconds(0);
         left = std::chrono::ceil<milliseconds>(end - Clock::now())) {
        std::optional<Bytes> datagram = receive(left);
        if (datagram && datagram->size() >= beginning.size() &&
            std::equal(beginning.begin(), beginning.end(), datagram->begin())) {
            return datagram;
        }
    }
    return std::nullopt;
}

std::optional<std::string> MainApplication::report(milliseconds timeout) {
    const std::optional<Bytes> datagram = receive({0x07}, timeout);
    if (!datagram) {
        return std::nullopt;
    }
    return std::string(datagram->begin() + 1, datagram->end());
}

std::string MainApplication::wait_for_item(const std::string& key, const std::string& value,
                                           milliseconds timeout) {
    std::string seen = "no report";
    const auto end = Clock::now() + timeout;
    while (seen != value && Clock::now() < end) {
        if (const auto text = report(std::chrono::ceil<milliseconds>(end - Clock::now()))) {
            const auto items = report_items(*text);
            const auto item = items.find(key);
            seen = item != items.end() ? item->second : "not in the report";
        }
    }
    return seen;
}

void MainApplication::send_to(std::uint16_t port) {
    receiver_.sin_port = htons(port);
}

bool MainApplication::send(const Bytes& datagram) const {
    return sendto(fd_, datagram.data(), datagram.size(), 0,
                  reinterpret_cast<const sockaddr*>(&receiver_),
                  sizeof(receiver_)) == static_cast<ssize_t>(datagram.size());
}

bool MainApplication::command(const std::string& json) const {
    Bytes datagram = {'!'};
    datagram.insert(datagram.end(), json.begin(), json.end());
    return send(datagram);
}

std::map<std::string, std::string> report_items(const std::string& report) {
    std::map<std::string, std::string> items;
    std::istringstream text(report);
    for (std::string item; std::getline(text, item, ',');) {
        const std::size_t equals = item.find('=');
        items[item.substr(0, equals)] = equals == std::string::npos ? "" : item.substr(equals + 1);
    }
    return items;
}
