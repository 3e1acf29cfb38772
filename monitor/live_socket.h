// One viewer's WebSocket: a thread of its own sends what changed and the pictures, the server's
// thread takes what the page sends.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "monitor/monitor_parts.h"
#include "monitor/video_fanout.h"

struct cJSON;
struct mg_connection;

class LiveSocket {
  public:
    LiveSocket(MonitorParts& parts, mg_connection* connection);
    // Waits for the thread, which may be within a write.
    ~LiveSocket();
    LiveSocket(const LiveSocket&) = delete;
    LiveSocket& operator=(const LiveSocket&) = delete;

    // A text message of the page.
    void take(std::string_view message);

  private:
    void stop_zoom();
    void live();
    void send_until_closed();
    bool send_changes();
    bool send_picture(const AccessUnit& unit);
    bool send_text(const std::string& text);
    // What came behind one that did not leave whole would be taken for its rest: then the
    // connection ends.
    bool send_message(int opcode, const char* bytes, std::size_t size);
    std::string take_sticks(const cJSON* sticks);

    MonitorParts& parts_;
    mg_connection* const connection_;
    const std::shared_ptr<VideoViewer> viewer_;
    std::uint64_t state_seen_ = 0;
    std::uint64_t lines_seen_ = 0;
    std::shared_ptr<const VideoFormat> format_sent_;
    std::atomic<std::chrono::steady_clock::time_point> last_write_{};
    std::thread thread_;
};
