#include "monitor/live_socket.h"

#include <cJSON.h>
#include <civetweb.h>

#include <exception>

#include "monitor/connection_end.h"

namespace {

// How late a value may be on the page while there is no video.
constexpr auto kLongestWait = std::chrono::milliseconds(50);
// Only who writes learns that a viewer has left without a word; and the page takes silence for a
// monitor that is out of reach.
constexpr auto kLongestSilence = std::chrono::seconds(1);

}  // namespace

LiveSocket::LiveSocket(MonitorParts& parts, mg_connection* connection)
    : parts_(parts),
      connection_(connection),
      viewer_(parts.video.fanout().join(VideoFanout::Begin::kAtOnce)) {
    limit_silence(connection_, parts_.longest_silence);
    try {
        thread_ = std::thread([this] { live(); });
    } catch (...) {
        parts_.video.fanout().leave(viewer_);
        throw;
    }
}

LiveSocket::~LiveSocket() {
    parts_.sticks.release(this);
    stop_zoom();
    parts_.video.fanout().leave(viewer_);
    thread_.join();
}

void LiveSocket::stop_zoom() {
    if (parts_.zoom.release(this)) {
        try {
            parts_.store.add_line("zoom stopped: who zoomed has left");
        } catch (const std::exception&) {
            // There is no memory for it; the zoom has stopped.
        }
    }
}

void LiveSocket::live() {
    try {
        send_until_closed();
    } catch (const std::exception&) {
        // There is no memory for it. The viewer may come again.
    }
    end_connection(connection_);  // the server's thread goes on, and closes it
}

void LiveSocket::send_until_closed() {
    while (!viewer_->closed()) {
        const AccessUnitPtr unit = viewer_->next(kLongestWait);
        if (!send_changes() || (unit && !send_picture(*unit))) {
            return;
        }
        if (std::chrono::steady_clock::now() - last_write_.load() > kLongestSilence &&
            !send_text("{\"state\":{}}")) {
            return;
        }
    }
}

bool LiveSocket::send_changes() {
    const std::string state = parts_.store.changes(&state_seen_);
    const std::string lines = parts_.store.lines(&lines_seen_);
    return (state.empty() || send_text("{\"state\":{" + state + "}}")) &&
           (lines.empty() || send_text("{\"lines\":[" + lines + "]}"));
}

bool LiveSocket::send_picture(const AccessUnit& unit) {
    if (unit.format != format_sent_) {
        format_sent_ = unit.format;
        if (!send_text("{\"video\":{\"codec\":" + json_text(unit.format->codec) +
                       ",\"width\":" + std::to_string(unit.format->width) +
                       ",\"height\":" + std::to_string(unit.format->height) + "}}")) {
            return false;
        }
    }
    return send_message(MG_WEBSOCKET_OPCODE_BINARY,
                        reinterpret_cast<const char*>(unit.message.data()), unit.message.size());
}

bool LiveSocket::send_text(const std::string& text) {
    return send_message(MG_WEBSOCKET_OPCODE_TEXT, text.data(), text.size());
}

bool LiveSocket::send_message(int opcode, const char* bytes, std::size_t size) {
    last_write_ = std::chrono::steady_clock::now();
    if (mg_websocket_write(connection_, opcode, bytes, size) == static_cast<int>(size)) {
        return true;
    }
    end_connection(connection_);
    return false;
}

void LiveSocket::take(std::string_view message) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(
        cJSON_ParseWithLength(message.data(), message.size()), &cJSON_Delete);
    std::string refusal = "neither command, sticks nor record";
    const char* of = nullptr;
    if (const cJSON* command = cJSON_GetObjectItemCaseSensitive(json.get(), "command")) {
        of = "command";
        const CheckedCommand checked = check_command(command);
        refusal = parts_.commands.send(checked, this);
        if (refusal.empty()) {
            send_text("{\"sent\":" + checked.json + "}");
        }
    } else if (const cJSON* sticks = cJSON_GetObjectItemCaseSensitive(json.get(), "sticks")) {
        of = "sticks";
        refusal = take_sticks(sticks);
    } else if (const cJSON* record = cJSON_GetObjectItemCaseSensitive(json.get(), "record")) {
        of = "record";
        const char* text = cJSON_GetStringValue(record);
        const std::string word = text == nullptr ? "" : text;
        refusal = parts_.recorder.control(word);
        if (refusal.empty()) {
            send_text("{\"sent\":{\"record\":" + json_text(word) + "}}");
        }
    }
    if (!refusal.empty()) {
        send_text("{\"refused\":" + json_text(refusal) +
                  (of == nullptr ? "}" : ",\"of\":" + json_text(of) + "}"));
    }
}

std::string LiveSocket::take_sticks(const cJSON* sticks) {
    const auto channel = [&](const char* name) {
        return cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(sticks, name));
    };
    return parts_.sticks.set({channel("pan"), channel("tilt"), channel("dutch")}, this);
}
