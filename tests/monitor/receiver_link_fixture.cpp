#include "tests/monitor/receiver_link_fixture.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/protocol_page.h"

using namespace std::chrono_literals;

FakeReceiver::FakeReceiver(const std::string& address, std::uint16_t port)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &address_.sin_addr);
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address_), sizeof address_), 0);
    socklen_t length = sizeof address_;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&address_), &length);
}

FakeReceiver::~FakeReceiver() {
    close(fd_);
}

void FakeReceiver::report(const Datagram& datagram, std::uint16_t port) const {
    sockaddr_in to = address_;
    to.sin_port = htons(port);
    sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
           sizeof to);
}

void FakeReceiver::report(const std::string& text, std::uint16_t port) const {
    Datagram datagram = {0x07};
    datagram.insert(datagram.end(), text.begin(), text.end());
    report(datagram, port);
}

Datagram FakeReceiver::receive() const {
    pollfd readable = {fd_, POLLIN, 0};
    Datagram datagram(2048);
    const ssize_t count =
        poll(&readable, 1, 3000) == 1 ? recv(fd_, datagram.data(), datagram.size(), 0) : 0;
    datagram.resize(static_cast<std::size_t>(count));
    return datagram;
}

bool ReceiverLinkTest::comes_true(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        usleep(10000);
    }
    return true;
}

bool ReceiverLinkTest::becomes(const Presence& presence) const {
    return comes_true([&] { return store.presence() == presence; });
}

std::string ReceiverLinkTest::report_of(const std::string& name) {
    std::string text = page_block("<!-- report: " + name + " -->");
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    return text;
}
