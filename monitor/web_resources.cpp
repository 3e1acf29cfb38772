#include "monitor/web_resources.h"

#include <cJSON.h>
#include <civetweb.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "monitor/connection_end.h"
#include "monitor/http_reply.h"

namespace {

constexpr std::size_t kLargestBody = 65536;
constexpr char kTooLarge[] = "a body has at most 65536 bytes";
constexpr std::size_t kDownloadPiece = 262144;
// How long a stream without pictures waits before it asks whether its client is still there.
constexpr auto kSilenceOfStream = std::chrono::seconds(2);
constexpr char kRecordings[] = "/recordings/";
constexpr char kJson[] = "application/json";

void answer_health(mg_connection* connection, MonitorParts& /*parts*/) {
    reply(connection, 200, "text/plain; charset=utf-8", "ok\n");
}

void answer_state(mg_connection* connection, MonitorParts& parts) {
    std::uint64_t all = 0;
    reply(connection, 200, kJson, "{" + parts.store.changes(&all) + "}\n");
}

// False where the body is too large. One that does not come to its end is none.
bool read_body(mg_connection* connection, std::string* body) {
    const long long told = mg_get_request_info(connection)->content_length;
    if (told > static_cast<long long>(kLargestBody)) {
        return false;
    }
    const std::size_t size = told < 0 ? kLargestBody + 1 : static_cast<std::size_t>(told);
    body->resize(size);
    const int count = size == 0 ? 0 : mg_read(connection, body->data(), size);
    body->resize(static_cast<std::size_t>(std::max(count, 0)));
    if (told >= 0 && body->size() < size) {
        body->clear();
    }
    return body->size() <= kLargestBody;
}

void answer_command(mg_connection* connection, MonitorParts& parts) {
    std::string body;
    if (!read_body(connection, &body)) {
        reply_refusal(connection, 413, kTooLarge);
        return;
    }
    const CheckedCommand command = check_command(body);
    const std::string refusal = parts.commands.send(command, nullptr);
    if (refusal.empty()) {
        reply(connection, 200, kJson, "{\"sent\":" + command.json + "}\n");
    } else {
        reply_refusal(connection, command.refusal.empty() ? 503 : 400, refusal);
    }
}

// {"record":"start"} or {"record":"stop"}
void answer_record(mg_connection* connection, MonitorParts& parts) {
    std::string body;
    if (!read_body(connection, &body)) {
        reply_refusal(connection, 413, kTooLarge);
        return;
    }
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(
        cJSON_ParseWithLength(body.data(), body.size()), &cJSON_Delete);
    const char* word = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(json.get(), "record"));
    const std::string refusal = parts.recorder.control(word == nullptr ? "" : word);
    if (refusal.empty()) {
        reply(connection, 200, kJson, "{\"sent\":{\"record\":" + json_text(word) + "}}\n");
    } else {
        reply_refusal(connection, 400, refusal);
    }
}

void answer_recordings(mg_connection* connection, MonitorParts& parts) {
    std::string list;
    for (const Recording& recording : parts.recorder.finished()) {
        list += (list.empty() ? "{\"name\":" : ",{\"name\":") + json_text(recording.name) +
                ",\"bytes\":" + std::to_string(recording.bytes) + "}";
    }
    reply(connection, 200, kJson, "[" + list + "]\n");
}

void answer_recording(mg_connection* connection, MonitorParts& parts) {
    const std::string path = mg_get_request_info(connection)->local_uri;
    const std::string name = path.substr(path.rfind('/') + 1);
    std::vector<char> piece(kDownloadPiece);
    std::uint64_t rest = 0;
    const int fd = path == kRecordings + name ? parts.recorder.open(name, &rest) : -1;
    if (fd < 0) {
        reply_refusal(connection, 404, "there is no such recording");
        return;
    }
    begin_download(connection, "video/mp4", name, rest);
    while (rest > 0 && !asks_for_head(connection)) {
        const ssize_t count =
            read(fd, piece.data(),
                 static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), rest)));
        if (count <= 0 || !write_all(connection, piece.data(), static_cast<std::size_t>(count))) {
            break;
        }
        rest -= static_cast<std::uint64_t>(count);
    }
    close(fd);
}

// From the next key frame, so that a player that decodes at the pace of the pictures is not behind
// from the start.
void answer_video(mg_connection* connection, MonitorParts& parts) {
    begin_stream(connection, "video/h264");
    if (asks_for_head(connection)) {
        return;
    }
    limit_silence(connection, parts.longest_silence);
    const auto viewer = parts.video.fanout().join(VideoFanout::Begin::kNextKeyFrame);
    // A byte stream may have zeros between two units of it. Only who writes learns that a client
    // has left.
    static constexpr std::uint8_t kZero[] = {0};
    while (!viewer->closed()) {
        const AccessUnitPtr unit = viewer->next(kSilenceOfStream);
        const std::span<const std::uint8_t> bytes = unit ? unit->annex_b() : std::span(kZero);
        if (!write_all(connection, bytes.data(), bytes.size())) {
            break;
        }
    }
    parts.video.fanout().leave(viewer);
}

void add_metric(std::string* text, const char* name, const char* type, const char* help,
                std::uint64_t value) {
    *text += std::string("# HELP receiver_monitor_") + name + " " + help +
             "\n# TYPE receiver_monitor_" + name + " " + type + "\nreceiver_monitor_" + name + " " +
             std::to_string(value) + "\n";
}

void answer_metrics(mg_connection* connection, MonitorParts& parts) {
    const VideoFigures video = parts.video.figures();
    const VideoFanout& fanout = parts.video.fanout();
    const Presence presence = parts.store.presence();
    const auto reports = [&](ReportKind kind) { return parts.store.reports(kind); };
    std::string text;
    // clang-format off
    add_metric(&text, "receiver_present",       "gauge",   "1 while the receiver reports or holds its port.", presence.receiver == "present" ? 1 : 0);
    add_metric(&text, "camera_present",         "gauge",   "1 while the camera sends.",            presence.camera == "present" ? 1 : 0);
    add_metric(&text, "video_parts_total",      "counter", "Parts taken out of the ring.",         video.parts);
    add_metric(&text, "missed_parts_total",     "counter", "Parts overwritten before they were taken.", video.missed_parts);
    add_metric(&text, "pictures_total",         "counter", "Pictures handed on.",                  video.units);
    add_metric(&text, "key_pictures_total",     "counter", "Key frames among them.",               video.key_units);
    add_metric(&text, "dropped_pictures_total", "counter", "Pictures cut by a missed part, or behind one.", video.dropped_units);
    add_metric(&text, "video_bytes_total",      "counter", "Bytes of video handed on.",            video.bytes);
    add_metric(&text, "picture_interval_microseconds", "gauge", "Time between the last two pictures.", video.last_interval_us);
    add_metric(&text, "viewers",                "gauge",   "Viewers of the video.",                fanout.viewers());
    add_metric(&text, "viewer_dropped_pictures_total", "counter", "Pictures that viewers were too slow for.", fanout.dropped());
    add_metric(&text, "text_reports_total",     "counter", "Text reports of the receiver.",        reports(ReportKind::kText));
    add_metric(&text, "status_records_total",   "counter", "Status records of the receiver.",      reports(ReportKind::kStatus));
    add_metric(&text, "malformed_reports_total", "counter", "Datagrams that were no report.",      reports(ReportKind::kWrong));
    // clang-format on
    reply(connection, 200, "text/plain; version=0.0.4; charset=utf-8", text);
}

// clang-format off
constexpr WebResource kResources[] = {
    {"/healthz",        "GET",  true,  answer_health    },
    {"/api/state",      "GET",  false, answer_state     },
    {"/api/command",    "POST", false, answer_command   },
    {"/api/record",     "POST", false, answer_record    },
    {"/api/recordings", "GET",  false, answer_recordings},
    {kRecordings,       "GET",  false, answer_recording },
    {"/video.h264",     "GET",  false, answer_video     },
    {"/metrics",        "GET",  false, answer_metrics   },
};
// clang-format on

}  // namespace

const WebResource* find_web_resource(const std::string& path) {
    for (const WebResource& resource : kResources) {
        const std::string_view known = resource.path;
        if (path == known || (known.ends_with('/') && path.starts_with(known))) {
            return &resource;
        }
    }
    return nullptr;
}
