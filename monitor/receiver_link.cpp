#include "monitor/receiver_link.h"

#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>

namespace {

constexpr int kTickMs = 50;
// Who sends without a pause must not keep the receiver from its datagrams.
constexpr int kDatagramsATurn = 64;
constexpr auto kPresencePause = std::chrono::milliseconds(500);
// A status record comes five times a second.
constexpr auto kSilence = std::chrono::milliseconds(1500);
// Angles and currents of a camera that sends are never the same for as long.
constexpr auto kStandstill = std::chrono::milliseconds(2000);
// A receiver ends when its camera was silent for five seconds. Where no error tells of it, the
// receiver is on another machine and that may be off.
constexpr auto kLongSilence = std::chrono::milliseconds(7000);

const sockaddr* generic(const sockaddr_in& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

// Nobody holds the port, or no way leads there.
bool is_unreachable(unsigned error) {
    return error == ECONNREFUSED || error == EHOSTUNREACH || error == ENETUNREACH ||
           error == EHOSTDOWN;
}

// What came back for a datagram before; asked once, it is forgotten.
int take_error(int socket) {
    int error = 0;
    socklen_t length = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

}  // namespace

ReceiverLink::ReceiverLink(TelemetryStore& store, ReceiverLinkOptions options)
    : store_(store), options_(std::move(options)) {
    if (options_.receiver_port != 0) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(options_.receiver_port);
        inet_pton(AF_INET, options_.receiver_host.c_str(), &to.sin_addr);
        destination_ = to;
    }
}

ReceiverLink::~ReceiverLink() {
    stop();
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool ReceiverLink::start() {
    fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(options_.telemetry_port);
    const bool is_here =
        options_.receiver_host.empty() || options_.receiver_host.starts_with("127.");
    local.sin_addr.s_addr = htonl(is_here ? INADDR_LOOPBACK : INADDR_ANY);
    const int on = 1;
    if (fd_ < 0 || setsockopt(fd_, IPPROTO_IP, IP_RECVERR, &on, sizeof on) != 0 ||
        bind(fd_, generic(local), sizeof local) != 0) {
        return false;
    }
    store_.set_presence({});
    thread_ = std::thread([this] { live(); });
    return true;
}

void ReceiverLink::stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

// The system tells of a datagram that did not arrive when the next one is sent, which it then does
// not send: that one may be meant for a receiver that has come since, and is sent again. On one
// machine the system knows of each at once.
bool ReceiverLink::send(std::span<const std::uint8_t> datagram) {
    const std::lock_guard lock(sending_mutex_);
    // A datagram of no bytes would end the receiver.
    if (!destination_ || datagram.empty()) {
        return false;
    }
    const auto send_once = [&] {
        take_error(fd_);
        return sendto(fd_, datagram.data(), datagram.size(), MSG_NOSIGNAL, generic(*destination_),
                      sizeof *destination_) == static_cast<ssize_t>(datagram.size());
    };
    if (!send_once() && !(is_unreachable(static_cast<unsigned>(errno)) && send_once())) {
        return false;
    }
    errno = take_error(fd_);
    return errno == 0;
}

void ReceiverLink::saw_picture() {
    last_picture_ = Clock::now();
}

void ReceiverLink::live() {
    while (!stop_) {
        try {
            take_turn();
        } catch (const std::exception&) {
            // There is no memory for a report; the next one tells the same.
        }
    }
}

void ReceiverLink::take_turn() {
    pollfd readable = {fd_, POLLIN, 0};
    if (poll(&readable, 1, kTickMs) > 0) {
        if ((readable.revents & POLLERR) != 0) {
            take_errors();
        }
        receive();
    }
    keep_present();
    const Presence presence = presence_at(Clock::now());
    if (presence.receiver == "lost") {
        last_picture_ = Clock::time_point();
    }
    store_.set_presence(presence);
}

void ReceiverLink::receive() {
    std::array<std::uint8_t, 2048> buffer;
    for (int i = 0; i < kDatagramsATurn; ++i) {
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t count = recvfrom(fd_, buffer.data(), buffer.size(), 0,
                                       reinterpret_cast<sockaddr*>(&from), &length);
        if (count < 0) {
            return;  // nothing more, or an error, of which the next turn hears
        }
        if (!is_the_receiver(from)) {
            continue;
        }
        // What is no report does not lead the commands to its sender.
        if (!store_.take_report({buffer.data(), static_cast<std::size_t>(count)})) {
            continue;
        }
        if (options_.receiver_port == 0) {
            const std::lock_guard lock(sending_mutex_);
            destination_ = from;
        }
        last_report_ = Clock::now();
        unreachable_ = false;
    }
}

// Errors wait in a queue of their own, and poll() returns at once until it is empty: also where
// send() was told of them. With one taken from it the next one is told to send(), too.
void ReceiverLink::take_errors() {
    const std::lock_guard lock(sending_mutex_);
    for (int i = 0; i < kDatagramsATurn; ++i) {
        alignas(cmsghdr) std::array<char, 256> details{};
        msghdr message{};
        message.msg_control = details.data();
        message.msg_controllen = details.size();
        if (recvmsg(fd_, &message, MSG_ERRQUEUE) < 0) {
            return;
        }
        for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
             part = CMSG_NXTHDR(&message, part)) {
            if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_RECVERR) {
                sock_extended_err error{};
                memcpy(&error, CMSG_DATA(part), sizeof error);
                if (is_unreachable(error.ee_errno)) {
                    find_unreachable();
                }
            }
        }
    }
}

bool ReceiverLink::is_the_receiver(const sockaddr_in& from) const {
    in_addr wanted{};
    if (options_.receiver_host.empty()) {
        return ntohl(from.sin_addr.s_addr) >> 24 == 127;
    }
    return inet_pton(AF_INET, options_.receiver_host.c_str(), &wanted) == 1 &&
           wanted.s_addr == from.sin_addr.s_addr;
}

// The receiver takes a second without a datagram for a main application that is gone. It ignores
// this one.
void ReceiverLink::keep_present() {
    const Clock::time_point now = Clock::now();
    if (now < next_presence_) {
        return;
    }
    next_presence_ = now + kPresencePause;
    static constexpr std::uint8_t kNothing[] = {0x00};
    errno = 0;
    if (!send(kNothing) && is_unreachable(static_cast<unsigned>(errno))) {
        find_unreachable();
    }
}

// The one that reports next may be another one, however soon that is.
void ReceiverLink::find_unreachable() {
    unreachable_ = true;
    store_.forget_movement();
}

// Without video that is no sign: a camera that does nothing may have nothing else to say.
bool ReceiverLink::stands_still(Clock::time_point now) const {
    const Clock::time_point picture = last_picture_;
    return picture != Clock::time_point() && now - picture > kStandstill &&
           now - store_.last_change() > kStandstill;
}

Presence ReceiverLink::presence_at(Clock::time_point now) const {
    if (!last_report_) {
        return {};
    }
    const auto silence = now - *last_report_;
    if (silence > kLongSilence || (unreachable_ && silence > kSilence / 2)) {
        return {"lost", "lost"};
    }
    if (silence > kSilence || stands_still(now)) {
        return {"present", "lost"};
    }
    const std::string detected = store_.value("camera_detected");
    return {"present", detected == "1" ? "present" : "waiting"};
}
