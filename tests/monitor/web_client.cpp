#include "tests/monitor/web_client.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

int status_of(const std::string& answer) {
    return answer.starts_with("HTTP/1.1 ") ? atoi(answer.c_str() + 9) : 0;
}

std::chrono::milliseconds rest_until(Clock::time_point until) {
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()),
                    std::chrono::milliseconds(0));
}

}  // namespace

WebConnection::WebConnection(std::uint16_t port) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        close(fd_);
        fd_ = -1;
    }
}

WebConnection::~WebConnection() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool WebConnection::send(const std::string& bytes) const {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::string WebConnection::receive(std::chrono::milliseconds timeout) const {
    pollfd readable = {fd_, POLLIN, 0};
    std::string bytes(65536, '\0');
    if (fd_ < 0 || poll(&readable, 1, static_cast<int>(timeout.count())) != 1) {
        return "";
    }
    const ssize_t count = recv(fd_, bytes.data(), bytes.size(), 0);
    bytes.resize(static_cast<std::size_t>(count > 0 ? count : 0));
    return bytes;
}

bool WebConnection::ends(std::chrono::milliseconds timeout) const {
    const auto until = Clock::now() + timeout;
    pollfd readable = {fd_, POLLIN, 0};
    std::string bytes(65536, '\0');
    while (poll(&readable, 1, static_cast<int>(rest_until(until).count())) == 1) {
        if (recv(fd_, bytes.data(), bytes.size(), 0) <= 0) {
            return true;
        }
    }
    return false;
}

void WebConnection::vanish() const {
    sock_filter drop = {BPF_RET | BPF_K, 0, 0, 0};
    const sock_fprog program = {1, &drop};
    if (setsockopt(fd_, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
        abort();
    }
}

WebAnswer web_request(std::uint16_t port, const std::string& first_line, const std::string& headers,
                      const std::string& body) {
    const WebConnection connection(port);
    connection.send(first_line + " HTTP/1.1\r\n" + headers + "\r\n" + body);
    std::string all;
    for (std::string more; !(more = connection.receive(20s)).empty();) {
        all += more;
    }
    const std::size_t end = all.find("\r\n\r\n");
    if (end == std::string::npos) {
        return {};
    }
    return {status_of(all), all.substr(0, end + 2), all.substr(end + 4)};
}

WebAnswer web_get(std::uint16_t port, const std::string& path) {
    return web_request(port, "GET " + path);
}

WebAnswer web_post(std::uint16_t port, const std::string& path, const std::string& body,
                   const std::string& headers) {
    return web_request(port, "POST " + path,
                       headers + "Content-Length: " + std::to_string(body.size()) + "\r\n", body);
}

LiveClient::LiveClient(std::uint16_t port, const std::string& path, const std::string& headers)
    : connection_(port) {
    connection_.send("GET " + path + " HTTP/1.1\r\n" + headers +
                     "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                     "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
    const auto until = Clock::now() + 20s;
    while (buffer_.find("\r\n\r\n") == std::string::npos && fill(buffer_.size() + 1, until)) {
    }
    status_ = status_of(buffer_);
    buffer_.erase(0, buffer_.find("\r\n\r\n") + 4);
}

bool LiveClient::fill(std::size_t size, Clock::time_point until) {
    while (buffer_.size() < size) {
        const std::string more = connection_.receive(rest_until(until));
        if (more.empty()) {
            return false;
        }
        buffer_ += more;
    }
    return true;
}

// byte:  0              1                 ..      ..     .. (a client's mask: four zeros)
//        FIN, opcode    MASK, length      longer length  mask, payload
bool LiveClient::send_text(const std::string& text) const {
    std::string frame = "\x81";
    if (text.size() < 126) {
        frame += static_cast<char>(0x80 | text.size());
    } else {
        frame += '\xFF';  // a length of eight bytes
        for (int shift = 56; shift >= 0; shift -= 8) {
            frame += static_cast<char>(text.size() >> shift & 0xFF);
        }
    }
    return connection_.send(frame + std::string(4, '\0') + text);
}

std::optional<LiveClient::Message> LiveClient::next(std::chrono::milliseconds timeout) {
    const auto until = Clock::now() + timeout;
    const auto byte = [&](std::size_t i) {
        return static_cast<std::size_t>(static_cast<unsigned char>(buffer_[i]));
    };
    if (!fill(2, until)) {
        return std::nullopt;
    }
    std::size_t length = byte(1) & 0x7F;
    const std::size_t more = length == 126 ? 2 : length == 127 ? 8 : 0;
    if (!fill(2 + more, until)) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < more; ++i) {
        length = (i == 0 ? 0 : length << 8) | byte(2 + i);
    }
    if (!fill(2 + more + length, until)) {
        return std::nullopt;
    }
    Message message{(byte(0) & 0x0F) == 1, buffer_.substr(2 + more, length)};
    buffer_.erase(0, 2 + more + length);
    return message;
}

std::optional<std::string> LiveClient::next_picture(std::chrono::milliseconds timeout) {
    const auto until = Clock::now() + timeout;
    while (auto message = next(rest_until(until))) {
        if (!message->is_text) {
            return message->bytes;
        }
    }
    return std::nullopt;
}

bool LiveClient::says(const std::string& text, std::chrono::milliseconds timeout) {
    const auto until = Clock::now() + timeout;
    while (const auto message = next(rest_until(until))) {
        if (message->is_text && message->bytes.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}
