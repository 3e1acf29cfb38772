#include "monitor/telemetry_store.h"

#include <cstdio>
#include <ctime>

namespace {

constexpr std::size_t kLines = 200;
constexpr char kMovement[] = "movement";
constexpr char kNoMovement[] = "\"\"";

// They move all the time; a log of them would hide everything else.
constexpr const char* kNotLogged[] = {"yaw",     "pitch",          "roll",          "rec_time",
                                      "voltage", "current",        "rec_time_left", "sd",
                                      "ssd",     "focus_position", "focus_byte32",  "parameters"};

bool is_logged(const std::string& key) {
    for (const char* quiet : kNotLogged) {
        if (key == quiet) {
            return false;
        }
    }
    return true;
}

std::string time_of_day() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[16];
    return {text, std::strftime(text, sizeof text, "%H:%M:%S", &local)};
}

// How many bytes of the text are one character, or 0 where they are no UTF-8.
std::size_t utf8_length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    if (length > 2) {
        const unsigned second = byte(1);
        if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
            (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) {
            return 0;
        }
    }
    return length;
}

}  // namespace

std::string json_text(const std::string& text) {
    std::string json = "\"";
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t length = utf8_length(rest);
        const char c = rest.front();
        if (length == 0) {
            json += "\\ufffd";
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
            json += escaped;
        } else {
            if (c == '"' || c == '\\') {
                json += '\\';
            }
            json += rest.substr(0, length);
        }
        rest.remove_prefix(length == 0 ? 1 : length);
    }
    return json + '"';
}

bool TelemetryStore::take_report(std::span<const std::uint8_t> datagram) {
    const std::lock_guard lock(mutex_);
    const ReportKind kind = view_.take(datagram);
    if (kind == ReportKind::kWrong) {
        if (!told_malformed_) {
            put_line("malformed report: " + view_.error());
        }
        told_malformed_ = true;
        return false;
    }
    told_malformed_ = false;
    for (const std::string& item : view_.items(kind)) {
        const std::size_t equals = item.find('=');
        put(item.substr(0, equals), json_text(item.substr(equals + 1)));
    }
    if (!view_.changes().empty()) {
        last_change_ = Clock::now();
    }
    for (const TelemetryChange& change : view_.changes()) {
        if (is_logged(change.key)) {
            put_line(change.key + " " + (change.before.empty() ? "\"\"" : change.before) + " -> " +
                     (change.after.empty() ? "\"\"" : change.after));
        }
    }
    return true;
}

void TelemetryStore::set_presence(const Presence& presence) {
    const std::lock_guard lock(mutex_);
    if (presence.receiver != presence_.receiver) {
        put_line("receiver " + presence.receiver);
    }
    if (presence.camera != presence_.camera) {
        put_line("camera " + presence.camera);
    }
    presence_ = presence;
    put("receiver", json_text(presence.receiver));
    put("camera", json_text(presence.camera));
    if (presence.receiver != "present") {
        put(kMovement, kNoMovement);
    }
}

void TelemetryStore::set_movement(const std::string& mode) {
    const std::lock_guard lock(mutex_);
    if (presence_.receiver == "present") {
        put(kMovement, json_text(mode));
    }
}

void TelemetryStore::forget_movement() {
    const std::lock_guard lock(mutex_);
    put(kMovement, kNoMovement);
}

void TelemetryStore::set_number(const std::string& key, std::uint64_t number) {
    const std::lock_guard lock(mutex_);
    put(key, std::to_string(number));
}

void TelemetryStore::set_bool(const std::string& key, bool value) {
    const std::lock_guard lock(mutex_);
    put(key, value ? "true" : "false");
}

void TelemetryStore::set_text(const std::string& key, const std::string& text) {
    const std::lock_guard lock(mutex_);
    put(key, json_text(text));
}

void TelemetryStore::add_line(const std::string& text) {
    const std::lock_guard lock(mutex_);
    put_line(text);
}

void TelemetryStore::put(const std::string& key, std::string json) {
    const auto [place, is_new] = values_.try_emplace(key, Value{json, 0});
    if (is_new || place->second.json != json) {
        place->second = {std::move(json), ++version_};
    }
}

void TelemetryStore::put_line(const std::string& text) {
    lines_.push_back(json_text(time_of_day() + " " + text));
    ++line_count_;
    if (lines_.size() > kLines) {
        lines_.erase(lines_.begin());
    }
}

std::string TelemetryStore::changes(std::uint64_t* seen) const {
    const std::lock_guard lock(mutex_);
    std::string members;
    if (*seen == version_) {
        return members;
    }
    for (const auto& [key, value] : values_) {
        if (value.changed > *seen) {
            members += (members.empty() ? "\"" : ",\"") + key + "\":" + value.json;
        }
    }
    *seen = version_;
    return members;
}

std::string TelemetryStore::lines(std::uint64_t* seen) const {
    const std::lock_guard lock(mutex_);
    const std::uint64_t first = line_count_ - lines_.size();
    std::string elements;
    for (std::uint64_t i = *seen > first ? *seen : first; i < line_count_; ++i) {
        elements += (elements.empty() ? "" : ",") + lines_[static_cast<std::size_t>(i - first)];
    }
    *seen = line_count_;
    return elements;
}

std::string TelemetryStore::value(const std::string& key) const {
    const std::lock_guard lock(mutex_);
    return view_.value(key).value_or("");
}

std::string TelemetryStore::json(const std::string& key) const {
    const std::lock_guard lock(mutex_);
    const auto found = values_.find(key);
    return found == values_.end() ? "" : found->second.json;
}

Presence TelemetryStore::presence() const {
    const std::lock_guard lock(mutex_);
    return presence_;
}

TelemetryStore::Clock::time_point TelemetryStore::last_change() const {
    const std::lock_guard lock(mutex_);
    return last_change_;
}

unsigned TelemetryStore::reports(ReportKind kind) const {
    const std::lock_guard lock(mutex_);
    return view_.count(kind);
}
