#include "control/app_command_dispatch.h"

#include <cjson/cJSON.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>

#include "app/focus_config.h"
#include "control/capture_commands.h"
#include "control/device_commands.h"
#include "control/exposure_commands.h"
#include "control/focus_commands.h"
#include "control/gimbal_commands.h"
#include "control/image_commands.h"
#include "control/rc_settings.h"
#include "protocol/little_endian.h"
#include "protocol/number_conversion.h"

namespace {

constexpr std::uint8_t kZoomMessage = 0x05;
constexpr std::uint8_t kJsonMessage = '!';

// Sub-commands of the zoom message.
constexpr std::uint8_t kSetDigitalZoomStep = 1;
constexpr std::uint8_t kSetOpticalZoom = 2;

// The words of one command; null where the object has none, or something that is no text.
struct Words {
    const char* cmd;
    const char* name;
    const char* param;
    const char* value;
    const char* value2;
    const char* value3;
};

bool is(const char* word, const char* expected) {
    return word != nullptr && strcmp(word, expected) == 0;
}

float parse_float(const char* text) {
    return to_single(strtod(text, nullptr));
}

// -- actions of more than one call -------------------------------------------------------------

void update_focus_limits(const Words& words) {
    const std::int32_t mf_min = parse_int32(words.value);
    const std::int32_t mf_max = parse_int32(words.value2);
    FocusLimits* const limits = focus_config_get();
    limits->mf_min.store(mf_min, std::memory_order_relaxed);
    limits->mf_max.store(mf_max, std::memory_order_relaxed);
    fprintf(stderr, "Set MF limits min %d max %d\n", mf_min, mf_max);
    focus_config_save();
}

void set_abs_position(const Words& words) {
    // Pan, tilt and dutch in whole numbers of full scale.
    gimbal_set_abs_position(parse_int32(words.value), parse_int32(words.value2),
                            parse_int32(words.value3));
}

void set_focus_assistant(const Words& words) {
    camera_set_focus_assistant(words.param, parse_int32(words.value));
}

void meter_at_point(const Words& words) {
    camera_set_ae_lock("unlock");
    camera_set_exposure_point(parse_int32(words.value));
}

void meter_at_center(const Words& /*words*/) {
    camera_set_ae_lock("unlock");
    camera_set_exposure_center();
}

// Only "custom" has a temperature; the others are whole without one.
void set_white_balance(const Words& words) {
    if (words.value != nullptr) {
        camera_set_wb(words.param, words.value);
    } else if (strcmp(words.param, "custom") != 0) {
        camera_set_wb(words.param, "");
    }
}

void set_video_resolution(const Words& words) {
    struct VideoResolution {
        const char* text;
        int width, height, fps;
    };
    // clang-format off
    static constexpr VideoResolution kVideoResolutions[] = {
        {"4096x2160@25",  4096, 2160, 25 },
        {"4096x2160@24",  4096, 2160, 24 },
        {"3840x2160@30",  3840, 2160, 30 },
        {"3840x2160@25",  3840, 2160, 25 },
        {"3840x2160@24",  3840, 2160, 24 },
        {"2704x1520@30",  2704, 1520, 30 },
        {"2704x1520@25",  2704, 1520, 25 },
        {"2704x1520@24",  2704, 1520, 24 },
        {"1920x1080@60",  1920, 1080, 60 },
        {"1920x1080@50",  1920, 1080, 50 },
        {"1920x1080@48",  1920, 1080, 48 },
        {"1920x1080@30",  1920, 1080, 30 },
        {"1920x1080@25",  1920, 1080, 25 },
        {"1920x1080@24",  1920, 1080, 24 },
        {"1280x720@60",   1280, 720,  60 },
        {"1280x720@50",   1280, 720,  50 },
        {"1280x720@48",   1280, 720,  48 },
        {"1280x720@30",   1280, 720,  30 },
        {"1280x720@25",   1280, 720,  25 },
        {"1280x720@24",   1280, 720,  24 },
        {"1920x1080@120", 1920, 1080, 120},
    };
    // clang-format on
    for (const VideoResolution& row : kVideoResolutions) {
        if (strcmp(words.param, row.text) == 0) {
            camera_set_video_resolution(row.width, row.height, row.fps);
        }
    }
}

// -- actions that hand on one word -------------------------------------------------------------

using Action = void (*)(const Words& words);

template <int (*Operation)()>
void call(const Words& /*words*/) {
    Operation();
}

template <int (*Operation)(const char*)>
void with_param(const Words& words) {
    Operation(words.param);
}

template <int (*Operation)(const char*)>
void with_value(const Words& words) {
    Operation(words.value);
}

template <int (*Operation)(int)>
void with_number(const Words& words) {
    Operation(parse_int32(words.value));
}

// -- vocabulary --------------------------------------------------------------------------------

// In the column "param": any word will do, but there must be one; or nobody looks at it.
constexpr const char* kAny = "";
constexpr const char* kIgnored = nullptr;

struct Command {
    const char* cmd;
    const char* param;
    int values;  // how many of value, value2, value3 the action takes
    Action action;
};

// clang-format off
constexpr Command kCommands[] = {
    {"updatecameraconfig",      "focus_limits", 2, update_focus_limits                        },
    {"record",                  "start",        0, [](const Words&) { camera_record(1); }     },
    {"record",                  "stop",         0, [](const Words&) { camera_record(0); }     },
    {"shot",                    kIgnored,       0, call<camera_shot>                          },
    {"camera",                  "mode",         1, with_value<camera_set_mode>                },
    {"position",                "normal",       0, with_param<gimbal_set_position>            },
    {"position",                "selfie",       0, with_param<gimbal_set_position>            },
    {"position",                "abs",          3, set_abs_position                           },
    {"orientation",             "lock",         0, with_param<gimbal_orientation_lock>        },
    {"orientation",             "unlock",       0, with_param<gimbal_orientation_lock>        },
    {"pitch",                   "lock",         0, with_param<gimbal_pitch_lock>              },
    {"pitch",                   "unlock",       0, with_param<gimbal_pitch_lock>              },
    {"focus",                   "type",         1, with_value<camera_set_focus_type>          },
    {"focus",                   "point",        2, [](const Words& words) {
         camera_set_focus_point(parse_float(words.value), parse_float(words.value2)); }       },
    {"focus",                   "manual",       1, with_number<camera_set_manual_focus>       },
    {"focus",                   "afa",          1, set_focus_assistant                        },
    {"focus",                   "mfa",          1, set_focus_assistant                        },
    {"focus",                   "realtime",     1, with_number<camera_set_realtime_af>        },
    {"exposure",                "point",        1, meter_at_point                             },
    {"exposure",                "center",       0, meter_at_center                            },
    {"exposure",                "auto",         1, with_value<camera_set_ae_lock>             },
    {"zoomadjustedsmoothtrack", kIgnored,       1,
         with_number<camera_set_zoom_adjusted_smoothtrack>                                    },
    {"dzoom",                   "set",          1, with_number<camera_set_digital_zoom>       },
    {"video_mode",              kAny,           0, with_param<camera_set_image_mode>          },
    {"shutter",                 kAny,           0, with_param<camera_set_shutter>             },
    {"aperture",                kAny,           0, with_param<camera_set_aperture>            },
    {"iso",                     kAny,           0, with_param<camera_set_iso>                 },
    {"ev",                      kAny,           0, with_param<camera_set_ev>                  },
    {"wb",                      kAny,           0, set_white_balance                          },
    {"color",                   kAny,           0, with_param<camera_set_color>               },
    {"video_resolution",        kAny,           0, set_video_resolution                       },
    {"video_aspect",            kAny,           0, with_param<camera_set_aspect_ratio>        },
    {"shotmode",                kAny,           0, with_param<camera_set_shot_mode>           },
    {"antiflicker",             kAny,           0, with_param<camera_set_antiflicker>         },
    {"video_std",               kAny,           0, with_param<camera_set_video_standard>      },
    // Kept: the band is asked for with the word "mode" itself, so that it is always the 2.4 GHz
    // one, which the main application relies on.
    {"wifi",                    "mode",         0, with_param<camera_set_wifi_mode>           },
    {"horizont",                kAny,           0, with_param<gimbal_horizon>                 },
    {"resetcamera",             kIgnored,       0, call<camera_reset>                         },
    {"format",                  kAny,           0, with_param<camera_format>                  },
    {"power",                   kAny,           0, with_param<camera_power>                   },
    {"histogram",               kAny,           0, with_param<camera_set_histogram>           },
};
// clang-format on

bool param_fits(const Command& command, const Words& words) {
    if (command.param == kIgnored) {
        return true;
    }
    return words.param != nullptr &&
           (command.param[0] == '\0' || strcmp(words.param, command.param) == 0);
}

bool values_are_there(const Command& command, const Words& words) {
    return (command.values < 1 || words.value != nullptr) &&
           (command.values < 2 || words.value2 != nullptr) &&
           (command.values < 3 || words.value3 != nullptr);
}

void carry_out(const Words& words) {
    for (const Command& command : kCommands) {
        if (is(words.cmd, command.cmd) && param_fits(command, words) &&
            values_are_there(command, words)) {
            command.action(words);
        }
    }
}

// -- messages ----------------------------------------------------------------------------------

void set_movement_mode(const Words& words) {
    if (!is(words.name, "movement")) {
        return;
    }
    if (is(words.value, "abs")) {
        gimbal_movement_mode.store(kMovementAbsolute, std::memory_order_relaxed);
    } else if (is(words.value, "rel")) {
        gimbal_movement_mode.store(kMovementRelative, std::memory_order_relaxed);
    }
}

constexpr char kLogPrefix[] = "JSON commands from app: ";
constexpr std::size_t kLogPrefixLength = sizeof(kLogPrefix) - 1;

// A command's text, with what goes around it in the log. On the stack: a system without memory
// loses the command at most.
class CommandText {
  public:
    CommandText(const char* text, std::size_t length) : length_(length) {
        memcpy(line_, kLogPrefix, kLogPrefixLength);
        memcpy(line_ + kLogPrefixLength, text, length);
        line_[kLogPrefixLength + length] = '\0';
    }
    const char* c_str() const { return line_ + kLogPrefixLength; }

    // Written in one piece and unformatted: the text may be longer than any line buffer. It has no
    // end any more.
    void log() {
        line_[kLogPrefixLength + length_] = '\n';
        // Nobody misses the line of a standard error that cannot take it.
        [[maybe_unused]] const ssize_t written =
            write(STDERR_FILENO, line_, kLogPrefixLength + length_ + 1);
    }

  private:
    std::size_t length_;
    char line_[kLogPrefixLength + UINT16_MAX + 1];
};

void dispatch_json(CommandText& text) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(cJSON_Parse(text.c_str()),
                                                               cJSON_Delete);
    // Keys in any letter case, and the first of several.
    const auto word = [&](const char* key) {
        return cJSON_GetStringValue(cJSON_GetObjectItem(tree.get(), key));
    };
    const Words words = {word("cmd"),   word("name"),   word("param"),
                         word("value"), word("value2"), word("value3")};
    if (is(words.cmd, "set")) {
        set_movement_mode(words);
        return;
    }
    text.log();
    carry_out(words);
}

void dispatch_zoom(const std::array<std::uint8_t, 4>& message) {
    const auto value = static_cast<std::int16_t>(read_le16(&message[2]));
    if (message[1] == kSetDigitalZoomStep) {
        rc_digital_zoom_step.store(value, std::memory_order_relaxed);
    } else if (message[1] == kSetOpticalZoom) {
        camera_set_optical_zoom(value);
    }
}

}  // namespace

void app_command_dispatch(const std::uint8_t* buffer, std::uint16_t length, const char* /*host*/,
                          std::uint16_t /*port*/) {
    if (length == 0) {
        return;
    }
    if (buffer[0] == kZoomMessage) {
        // What a shorter message leaves out is 0.
        std::array<std::uint8_t, 4> message{};
        std::copy_n(buffer, std::min<std::size_t>(length, message.size()), message.begin());
        dispatch_zoom(message);
    } else if (buffer[0] == kJsonMessage) {
        // A copy, for the parser looks for the NUL that a full datagram does not have.
        const char* const text = reinterpret_cast<const char*>(buffer) + 1;
        CommandText copy(text, strnlen(text, length - 1U));
        dispatch_json(copy);
    }
}
