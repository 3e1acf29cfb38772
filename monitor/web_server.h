// The monitor's HTTP and WebSocket side: page, state, commands, video, metrics.
#pragma once

#include <cstdint>
#include <string>

#include "monitor/monitor_parts.h"
#include "monitor/page_files.h"

struct mg_connection;
struct mg_context;

struct WebServerOptions {
    std::string address = "127.0.0.1";
    std::uint16_t port = 8080;  // 0: any free one
    std::string token;          // empty: none is asked for
    std::string page;           // directory of the page's files
};

class WebServer {
  public:
    WebServer(MonitorParts parts, WebServerOptions options);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    // False where the port is taken.
    bool start();
    // The viewers' sources must have let them go before: it waits for their threads.
    void stop();
    std::uint16_t port() const;

    // One request, on a thread of the server's: what was answered.
    int answer(mg_connection* connection);
    // Whether the request may go on; if not it is answered.
    bool admit(mg_connection* connection) const;
    MonitorParts& parts() { return parts_; }

  private:
    int answer_page(mg_connection* connection, const std::string& path) const;

    MonitorParts parts_;
    const WebServerOptions options_;
    const PageFiles page_;
    mg_context* context_ = nullptr;
};
