// The main application's end of the UDP channel, for tests.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/camera_stream.h"

class MainApplication {
  public:
    MainApplication();
    ~MainApplication();
    MainApplication(const MainApplication&) = delete;
    MainApplication& operator=(const MainApplication&) = delete;

    // Arguments that send the receiver's reports here.
    std::vector<std::string> arguments() const;

    // The next datagram of any kind; what it came from is where commands go from then on.
    std::optional<Bytes> receive(std::chrono::milliseconds timeout);
    // The next one that begins so, e.g. {0x06, 0x00}; others are passed over.
    std::optional<Bytes> receive(const Bytes& beginning, std::chrono::milliseconds timeout);
    // The next text report as it came, without its type byte.
    std::optional<std::string> report(std::chrono::milliseconds timeout);
    // Waits for a report in which the item has the value; the last value seen where it has not.
    std::string wait_for_item(const std::string& key, const std::string& value,
                              std::chrono::milliseconds timeout);

    // Where commands go before the first report has told.
    void send_to(std::uint16_t port);
    bool send(const Bytes& datagram) const;
    bool command(const std::string& json) const;  // '!' is put in front

  private:
    int fd_;
    sockaddr_in receiver_{};
};

// The items of a text report.
std::map<std::string, std::string> report_items(const std::string& report);
