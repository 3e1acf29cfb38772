#include "client/telemetry_view.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

using Bytes = std::span<const std::uint8_t>;
using Items = std::vector<std::pair<std::string, std::string>>;

constexpr std::uint8_t kText = 7;
constexpr std::uint8_t kBinary = 6;
constexpr std::size_t kStatusSize = 37;
constexpr std::size_t kReservedStatusByte = 14;
constexpr std::size_t kParametersSize = 66;
constexpr std::size_t kParametersBegin = 2;
constexpr std::size_t kParametersEnd = 55;  // zeros behind it
constexpr char kParametersKey[] = "parameters";

// clang-format off
constexpr const char* kTextKeys[] = {
    "camera_detected", "camera_model", "camera_mode", "sd", "ssd", "shots_left", "rec_time_left",
    "rec_time", "voltage", "current", "battery_level", "shot_mode", "resolution", "framerate",
    "format", "ae", "aperture", "shutter", "shutter_set", "iso", "iso_set", "ev", "image_mode",
    "color_mode", "wb", "wb_temp", "ratio", "video_std", "antiflicker", "mf_min", "mf_max",
};

enum class Form { kByte, kWord, kSignedWord };
constexpr struct { std::size_t offset; Form form; const char* key; } kStatusItems[] = {
    { 2, Form::kByte,       "gimbal_unlocked" },
    { 3, Form::kSignedWord, "yaw"             },
    { 5, Form::kSignedWord, "pitch"           },
    { 7, Form::kSignedWord, "roll"            },
    { 9, Form::kByte,       "record_state"    },
    {10, Form::kByte,       "status_byte42"   },
    {11, Form::kByte,       "status_flags"    },
    {12, Form::kByte,       "focus_valid"     },
    {13, Form::kByte,       "focus_auto"      },
    {15, Form::kWord,       "focus_range"     },
    {17, Form::kWord,       "focus_position"  },
    {19, Form::kWord,       "focus_point_x"   },
    {21, Form::kWord,       "focus_point_y"   },
    {23, Form::kByte,       "focus_byte32"    },
    {24, Form::kByte,       "focus_byte42"    },
    {25, Form::kByte,       "settings_byte69" },
    {26, Form::kByte,       "gimbal_error"    },
    {27, Form::kByte,       "camera_flag"     },
    {28, Form::kByte,       "settings_byte100"},
    {29, Form::kSignedWord, "gimbal_limit2"   },
    {31, Form::kSignedWord, "gimbal_limit1"   },
    {33, Form::kSignedWord, "gimbal_limit4"   },
    {35, Form::kSignedWord, "gimbal_limit3"   },
};
// clang-format on

int number_at(Bytes bytes, std::size_t offset, Form form) {
    if (form == Form::kByte) {
        return bytes[offset];
    }
    const int word = bytes[offset] + 256 * bytes[offset + 1];
    return form == Form::kSignedWord && word >= 0x8000 ? word - 0x10000 : word;
}

std::string key_at(ReportKind kind, std::size_t index) {
    if (kind == ReportKind::kParameters) {
        return kParametersKey;
    }
    return kind == ReportKind::kText ? kTextKeys[index] : kStatusItems[index].key;
}

std::size_t key_count(ReportKind kind) {
    switch (kind) {
        case ReportKind::kText:
            return std::size(kTextKeys);
        case ReportKind::kStatus:
            return std::size(kStatusItems);
        case ReportKind::kParameters:
            return 1;
        default:
            return 0;
    }
}

// Each of these returns what is wrong with the datagram, or nothing.
std::string read_text(Bytes datagram, Items* items) {
    std::string_view rest(reinterpret_cast<const char*>(datagram.data()) + 1, datagram.size() - 1);
    for (const std::string_view key : kTextKeys) {
        const std::size_t end = rest.find(',');
        if (!rest.starts_with(key) || rest.substr(key.size(), 1) != "=" ||
            end == std::string_view::npos) {
            return "text report without \"" + std::string(key) + "=...,\" in its place";
        }
        const std::size_t value = key.size() + 1;
        items->emplace_back(key, rest.substr(value, end - value));
        rest.remove_prefix(end + 1);
    }
    return rest.empty() ? "" : "text report with more than its items";
}

std::string read_status(Bytes datagram, Items* items) {
    if (datagram.size() != kStatusSize) {
        return "status record of " + std::to_string(datagram.size()) + " bytes";
    }
    if (datagram[kReservedStatusByte] != 0) {
        return "status record with something in its reserved byte";
    }
    for (const auto& item : kStatusItems) {
        items->emplace_back(item.key, std::to_string(number_at(datagram, item.offset, item.form)));
    }
    return "";
}

std::string hex_text(Bytes bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

std::string read_parameters(Bytes datagram, Items* items) {
    if (datagram.size() != kParametersSize) {
        return "parameter block of " + std::to_string(datagram.size()) + " bytes";
    }
    const Bytes end = datagram.subspan(kParametersEnd);
    if (std::ranges::count(end, 0) != std::ssize(end)) {
        return "parameter block without its zeros";
    }
    items->emplace_back(kParametersKey, hex_text(datagram.subspan(
                                            kParametersBegin, kParametersEnd - kParametersBegin)));
    return "";
}

}  // namespace

ReportKind TelemetryView::read(Bytes datagram, std::vector<Item>* items) {
    if (!datagram.empty() && datagram[0] == kText) {
        error_ = read_text(datagram, items);
        return ReportKind::kText;
    }
    if (datagram.size() >= 2 && datagram[0] == kBinary && datagram[1] <= 1) {
        const bool status = datagram[1] == 0;
        error_ = status ? read_status(datagram, items) : read_parameters(datagram, items);
        return status ? ReportKind::kStatus : ReportKind::kParameters;
    }
    error_ = "datagram of no known type";
    return ReportKind::kWrong;
}

ReportKind TelemetryView::take(Bytes datagram) {
    changes_.clear();
    std::vector<Item> items;
    const ReportKind read_as = read(datagram, &items);
    const ReportKind kind = error_.empty() ? read_as : ReportKind::kWrong;
    ++counts_[kind];
    if (kind == ReportKind::kWrong) {
        return kind;
    }
    for (auto& [key, value] : items) {
        const auto [place, is_new] = values_.try_emplace(key, value);
        if (!is_new && place->second != value) {
            changes_.push_back({key, place->second, value});
            place->second = value;
        }
    }
    return kind;
}

unsigned TelemetryView::count(ReportKind kind) const {
    const auto found = counts_.find(kind);
    return found == counts_.end() ? 0 : found->second;
}

std::optional<std::string> TelemetryView::value(const std::string& key) const {
    const auto found = values_.find(key);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> TelemetryView::items(ReportKind kind) const {
    std::vector<std::string> result;
    for (std::size_t i = 0; i < key_count(kind); ++i) {
        const std::string key = key_at(kind, i);
        if (const auto known = value(key)) {
            result.push_back(key + "=" + *known);
        }
    }
    return result;
}

bool TelemetryView::knows(const std::string& key) {
    for (const ReportKind kind :
         {ReportKind::kText, ReportKind::kStatus, ReportKind::kParameters}) {
        for (std::size_t i = 0; i < key_count(kind); ++i) {
            if (key_at(kind, i) == key) {
                return true;
            }
        }
    }
    return false;
}
