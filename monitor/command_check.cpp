#include "monitor/command_check.h"

#include <cJSON.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>

namespace {

// What stands in "param": nothing, any text, or this word.
constexpr const char* kNone = nullptr;
constexpr const char* kAny = "*";

// clang-format off
constexpr struct { const char* cmd; const char* param; unsigned values; } kCommands[] = {
    {"record",             "start",        0},
    {"record",             "stop",         0},
    {"shot",               kNone,          0},
    {"camera",             "mode",         1},
    {"position",           "normal",       0},
    {"position",           "selfie",       0},
    {"position",           "abs",          3},
    {"orientation",        "lock",         0},
    {"orientation",        "unlock",       0},
    {"pitch",              "lock",         0},
    {"pitch",              "unlock",       0},
    {"focus",              "type",         1},
    {"focus",              "point",        2},
    {"focus",              "manual",       1},
    {"focus",              "afa",          1},
    {"focus",              "mfa",          1},
    {"focus",              "realtime",     1},
    {"exposure",           "point",        1},
    {"exposure",           "center",       0},
    {"exposure",           "auto",         1},
    {"zoomadjustedsmoothtrack", kNone,     1},
    {"dzoom",              "set",          1},
    {"video_mode",         kAny,           0},
    {"shutter",            kAny,           0},
    {"aperture",           kAny,           0},
    {"iso",                kAny,           0},
    {"ev",                 kAny,           0},
    {"wb",                 "custom",       1},
    {"wb",                 kAny,           0},
    {"color",              kAny,           0},
    {"video_resolution",   kAny,           0},
    {"video_aspect",       kAny,           0},
    {"shotmode",           kAny,           0},
    {"antiflicker",        kAny,           0},
    {"video_std",          kAny,           0},
    {"wifi",               "mode",         0},
    {"horizont",           "cw",           0},
    {"horizont",           "ccw",          0},
    {"horizont",           "zero",         0},
    {"horizont",           "calibrate",    0},
    {"resetcamera",        kNone,          0},
    {"format",             "sd",           0},
    {"format",             "ssd",          0},
    {"power",              "sleep",        0},
    {"power",              "wakeup",       0},
    {"power",              "restart",      0},
    {"power",              "shutdown",     0},
    {"histogram",          kAny,           0},
    {"updatecameraconfig", "focus_limits", 2},
    {"set",                kNone,          1},
    {"zoom",               "digital",      1},  // a binary message in JSON's words
    {"zoom",               "optical",      1},
};
constexpr const char* kKeys[] = {"cmd", "name", "param", "value", "value2", "value3"};
// clang-format on
constexpr const char* kValues[] = {"value", "value2", "value3"};

constexpr std::size_t kLongestCommand = 10000;  // with the mark

const char* text_of(const cJSON* object, const char* key) {
    return cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, key));
}

// byte:  0    1                       2    3
//        05   1 digital, 2 optical    signed value (le)
std::vector<std::uint8_t> zoom_message(std::string_view kind, std::string_view text) {
    std::int16_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return {};
    }
    const auto word = static_cast<std::uint16_t>(value);
    return {0x05, static_cast<std::uint8_t>(kind == "digital" ? 1 : 2),
            static_cast<std::uint8_t>(word & 0xFF), static_cast<std::uint8_t>(word >> 8)};
}

std::string refusal_of_members(const cJSON* object) {
    std::vector<std::string> seen;
    for (const cJSON* member = object->child; member != nullptr; member = member->next) {
        const std::string key = member->string;
        if (std::ranges::none_of(kKeys, [&](const char* known) { return key == known; })) {
            return "no command has a member of that name";
        }
        if (!cJSON_IsString(member)) {
            return key + " is no text: numbers are texts, too";
        }
        if (std::ranges::count(seen, key) != 0) {
            return key + " stands there twice";
        }
        seen.push_back(key);
    }
    return "";
}

std::string refusal_of_words(const cJSON* object) {
    const char* cmd = text_of(object, "cmd");
    const char* param = text_of(object, "param");
    if (cmd == nullptr) {
        return "there is no cmd";
    }
    std::string refusal = "there is no such command";
    for (const auto& known : kCommands) {
        if (strcmp(known.cmd, cmd) != 0) {
            continue;
        }
        const char* name = text_of(object, "name");
        if (strcmp(cmd, "set") == 0 && (name == nullptr || strcmp(name, "movement") != 0)) {
            return "set takes the name movement";
        }
        refusal = std::string(cmd) + (param == nullptr ? " without param" : " has no such param");
        const bool fits = known.param == kNone ? param == nullptr
                          : known.param == kAny
                              ? param != nullptr && *param != '\0'
                              : param != nullptr && strcmp(known.param, param) == 0;
        if (!fits) {
            continue;
        }
        for (unsigned i = 0; i < known.values; ++i) {
            if (text_of(object, kValues[i]) == nullptr) {
                return std::string(cmd) + " without " + kValues[i];
            }
        }
        return "";
    }
    return refusal;
}

}  // namespace

CheckedCommand check_command(const cJSON* object) {
    CheckedCommand result;
    if (!cJSON_IsObject(object)) {
        result.refusal = "no JSON object";
        return result;
    }
    result.refusal = refusal_of_members(object);
    if (result.refusal.empty()) {
        result.refusal = refusal_of_words(object);
    }
    if (!result.refusal.empty()) {
        return result;
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(object),
                                                            &cJSON_free);
    result.json = text ? text.get() : "";
    if (result.json.empty() || result.json.size() + 1 > kLongestCommand) {
        result.json.clear();
        result.refusal = "longer than the receiver takes";
        return result;
    }
    if (strcmp(text_of(object, "cmd"), "zoom") == 0) {
        result.datagram = zoom_message(text_of(object, "param"), text_of(object, "value"));
        if (result.datagram.empty()) {
            result = {{}, {}, "a zoom's value is a whole number from -32768 to 32767"};
        }
        return result;
    }
    if (strcmp(text_of(object, "cmd"), "set") == 0) {
        const std::string movement = text_of(object, "value");
        // Of another one the receiver takes no notice.
        result.movement = movement == "rel" || movement == "abs" ? movement : "";
    }
    result.datagram.push_back('!');
    result.datagram.insert(result.datagram.end(), result.json.begin(), result.json.end());
    return result;
}

CheckedCommand check_command(std::string_view json) {
    const char* end = nullptr;
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object(
        cJSON_ParseWithLengthOpts(json.data(), json.size(), &end, 0), &cJSON_Delete);
    const std::string_view spaces = " \t\r\n";
    const bool ends_there =
        object &&
        json.substr(static_cast<std::size_t>(end - json.data())).find_first_not_of(spaces) ==
            std::string_view::npos;
    return check_command(ends_there ? object.get() : nullptr);
}
