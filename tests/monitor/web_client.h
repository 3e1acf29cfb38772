// A browser's end of the connection, byte by byte, so that a test can also do what no browser does.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

class WebConnection {
  public:
    explicit WebConnection(std::uint16_t port);
    ~WebConnection();
    WebConnection(const WebConnection&) = delete;
    WebConnection& operator=(const WebConnection&) = delete;

    bool send(const std::string& bytes) const;
    // What has come, at least one byte; empty at the end of the connection and of the time.
    std::string receive(std::chrono::milliseconds timeout) const;
    // Whether the other side ends it in time; what comes before is passed over.
    bool ends(std::chrono::milliseconds timeout) const;
    // As if its network were gone: nothing that comes from now on is acknowledged.
    void vanish() const;

  private:
    int fd_;
};

struct WebAnswer {
    int status = 0;  // 0: none came
    std::string headers;
    std::string body;
};

// Sends the head with these header lines, and the body; reads until the connection is closed.
WebAnswer web_request(std::uint16_t port, const std::string& first_line,
                      const std::string& headers = "Host: 127.0.0.1\r\n",
                      const std::string& body = "");
WebAnswer web_get(std::uint16_t port, const std::string& path);
WebAnswer web_post(std::uint16_t port, const std::string& path, const std::string& body,
                   const std::string& headers = "Host: 127.0.0.1\r\n");

class LiveClient {
  public:
    struct Message {
        bool is_text;
        std::string bytes;
    };

    explicit LiveClient(std::uint16_t port, const std::string& path = "/live",
                        const std::string& headers = "Host: 127.0.0.1\r\n");
    // 101 where the connection stands.
    int status() const { return status_; }

    bool send_text(const std::string& text) const;
    // As they are.
    bool send_bytes(const std::string& bytes) const { return connection_.send(bytes); }
    bool ends(std::chrono::milliseconds timeout) const { return connection_.ends(timeout); }
    void vanish() const { connection_.vanish(); }
    std::optional<Message> next(std::chrono::milliseconds timeout);
    // The next picture, the texts before it passed over.
    std::optional<std::string> next_picture(std::chrono::milliseconds timeout);
    // Whether a text message that contains this comes in time.
    bool says(const std::string& text, std::chrono::milliseconds timeout);

  private:
    bool fill(std::size_t size, std::chrono::steady_clock::time_point until);

    WebConnection connection_;
    int status_ = 0;
    std::string buffer_;
};
