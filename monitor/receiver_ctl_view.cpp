#include "monitor/receiver_ctl_view.h"

#include <algorithm>
#include <cstdlib>

#include "monitor/receiver_ctl_commands.h"
#include "monitor/receiver_ctl_text.h"

namespace {

// clang-format off
constexpr struct {
    const char* group;
    const char* label;
    const char* key;    // as ctl_told has it
    const char* words;  // for its numbers, or null
    const char* unit;
} kCells[] = {
    {"link",     "receiver",  "receiver",          nullptr, ""},
    {"link",     "camera",    "camera",            nullptr, ""},
    {"link",     "viewers",   "viewers",           nullptr, ""},
    {"camera",   "",          "camera_model",      nullptr, ""},
    {"camera",   "mode",      "camera_mode",       nullptr, ""},
    {"camera",   "battery",   "battery_level",     nullptr, " %"},
    {"camera",   "voltage",   "voltage",           nullptr, ""},
    {"camera",   "current",   "current",           nullptr, ""},
    {"record",   "recording", "record_state&192",  "no=0|starting=1|yes=2|stopping=3", ""},
    {"record",   "time",      "rec_time",          nullptr, ""},
    {"record",   "photo",     "record_state&8",    "no=0|taken=1", ""},
    {"record",   "busy",      "status_flags&8",    "no=0|yes=1", ""},
    {"card",     "sd",        "sd",                nullptr, ""},
    {"card",     "ssd",       "ssd",               nullptr, ""},
    {"card",     "shots",     "shots_left",        nullptr, ""},
    {"card",     "time",      "rec_time_left",     nullptr, ""},
    {"format",   "video",     "format",            nullptr, ""},
    {"format",   "photo",     "shot_mode",         nullptr, ""},
    {"format",   "ratio",     "ratio",             nullptr, ""},
    {"format",   "standard",  "video_std",         nullptr, ""},
    {"exposure", "program",   "image_mode",        nullptr, ""},
    {"exposure", "iso",       "iso",               nullptr, ""},
    {"exposure", "set",       "iso_set",           nullptr, ""},
    {"exposure", "shutter",   "shutter",           nullptr, ""},
    {"exposure", "aperture",  "aperture",          nullptr, ""},
    {"exposure", "ev",        "ev",                nullptr, ""},
    {"exposure", "locked",    "ae",                "no=0|yes=1", ""},
    {"exposure", "flicker",   "antiflicker",       nullptr, ""},
    {"color",    "wb",        "wb",                nullptr, ""},
    {"color",    "",          "wb_temp",           nullptr, " K"},
    {"color",    "color",     "color_mode",        nullptr, ""},
    {"focus",    "",          "focus_auto",        "manual=0|auto=1", ""},
    {"focus",    "position",  "focus_position",    nullptr, ""},
    {"focus",    "of",        "focus_range",       nullptr, ""},
    {"focus",    "limits",    "mf_min",            nullptr, " %"},
    {"focus",    "to",        "mf_max",            nullptr, " %"},
    {"focus",    "point",     "focus_point_x",     nullptr, ""},
    {"focus",    "",          "focus_point_y",     nullptr, ""},
    {"gimbal",   "yaw",       "yaw",               nullptr, ""},
    {"gimbal",   "pitch",     "pitch",             nullptr, ""},
    {"gimbal",   "roll",      "roll",              nullptr, ""},
    {"gimbal",   "lock",      "gimbal_unlocked",   "on=0|off=1", ""},
    {"gimbal",   "fault",     "gimbal_error",      "no=0|yes=1", ""},
    {"video",    "width",     "video_width",       nullptr, ""},
    {"video",    "height",    "video_height",      nullptr, ""},
    {"video",    "bit/s",     "video_bits_per_second", nullptr, ""},
    {"video",    "missed",    "video_missed_parts", nullptr, ""},
    {"video",    "dropped",   "video_dropped_pictures", nullptr, ""},
};
// clang-format on

constexpr std::size_t kColumn = 18;
constexpr std::size_t kGroupColumn = 10;
constexpr std::size_t kWidth = 80;

void pad_to(std::string* line, std::size_t column) {
    line->append(line->size() < column ? column - line->size() : 2, ' ');
}

std::string shown(const char* words, const std::string& told) {
    if (words != nullptr) {
        for (const CtlChoice& choice : ctl_choices(words)) {
            if (choice.sent == told) {
                return choice.typed;
            }
        }
    }
    return told;
}

}  // namespace

std::string ctl_table(const CtlState& state) {
    const CtlValues value = [&](const std::string& key) {
        const auto found = state.find(key);
        return found == state.end() ? std::string() : found->second;
    };
    std::string table;
    std::string line;
    std::string group;
    for (const auto& cell : kCells) {
        const std::string told = ctl_printable(shown(cell.words, ctl_told(cell.key, value)));
        const std::string text = std::string(cell.label) + (*cell.label == '\0' ? "" : " ") +
                                 (told.empty() ? "-" : told + cell.unit);
        if (group != cell.group) {
            table += line.empty() ? "" : line + "\n";
            group = cell.group;
            line = group;
            pad_to(&line, kGroupColumn);
        } else {
            const std::size_t column =
                kGroupColumn + (line.size() - kGroupColumn + kColumn) / kColumn * kColumn;
            if (column + text.size() > kWidth) {
                table += line + "\n";
                line.assign(kGroupColumn, ' ');
            } else {
                pad_to(&line, column);
            }
        }
        line += text;
    }
    return table + line + "\n";
}

std::string ctl_changes(const CtlState& before, const CtlState& after) {
    std::string changes;
    for (const auto& [key, value] : after) {
        const auto old = before.find(key);
        if (old == before.end() || old->second != value) {
            changes += ctl_printable(key);
            changes += ' ';
            changes += ctl_printable(value);
            changes += '\n';
        }
    }
    return changes;
}
