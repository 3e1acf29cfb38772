#include "control/rc_mapper.h"

#include <string.h>

#include <algorithm>
#include <iterator>

#include "control/capture_commands.h"
#include "control/exposure_commands.h"
#include "control/focus_commands.h"
#include "control/gimbal_commands.h"
#include "control/image_commands.h"
#include "control/rc_settings.h"
#include "control/setting_lists.h"
#include "control/setting_steps.h"
#include "protocol/camera_state.h"
#include "protocol/number_conversion.h"

namespace {

constexpr std::uint8_t kModePhoto = 0;
constexpr std::uint8_t kModeVideo = 1;

// -- actions -----------------------------------------------------------------------------------

void recentre(RcMapperState& /*state*/, int /*sign*/) {
    // Kept: the gimbal is meant to swing to the selfie position and back.
    gimbal_set_position("selfie");
    gimbal_set_position("normal");
}

// Kept: a press confirms the state that the gimbal reports, it does not change over to the other.
void confirm_lock(RcMapperState& /*state*/, int /*sign*/) {
    gimbal_orientation_lock(camera_state.gimbal_unlocked == 1 ? "unlock" : "lock");
}

void toggle_mode(RcMapperState& /*state*/, int /*sign*/) {
    const std::uint8_t mode = camera_state.camera_mode_code;
    if (mode == kModeVideo) {
        camera_set_mode("photo");
    } else if (mode == kModePhoto) {
        camera_set_mode("video");
    }
}

// Video is recorded while the control is held, a photo taken when it is pressed.
void record_or_shoot(RcMapperState& /*state*/, int sign) {
    const std::uint8_t mode = camera_state.camera_mode_code;
    if (mode == kModeVideo) {
        camera_record(sign != 0);
        // A camera that went over to photos in the meantime takes the press as one.
        if (sign != 0 && camera_state.camera_mode_code == kModePhoto) {
            camera_shot();
        }
    } else if (mode == kModePhoto && sign != 0) {
        camera_shot();
    }
}

void toggle_focus_type(RcMapperState& /*state*/, int /*sign*/) {
    const std::uint8_t model = camera_state.camera_model_code;
    if (model == kModelZ3) {
        const std::uint8_t infinity = camera_state.focus_infinity;
        if (infinity == 1) {
            camera_set_focus_type("af");
        } else if (infinity == 0) {
            camera_set_focus_type("inf");
        }
    } else if (model == kModelX5 || model == kModelX5R) {
        const auto type = read_shared_text(camera_state.focus_type);
        if (strcmp(type.data(), "MF") == 0) {
            camera_set_focus_type("af");
        } else if (strcmp(type.data(), "AF") == 0) {
            camera_set_focus_type("mf");
        }
    }
}

void toggle_ae_lock(RcMapperState& /*state*/, int /*sign*/) {
    const std::uint8_t locked = camera_state.ae;
    if (locked == 1) {
        camera_set_ae_lock("unlock");
    } else if (locked == 0) {
        camera_set_ae_lock("lock");
    }
}

template <int (*Operation)()>
void press(RcMapperState& /*state*/, int /*sign*/) {
    Operation();
}

template <int (*Next)(), int (*Previous)()>
void rock(RcMapperState& /*state*/, int sign) {
    sign > 0 ? Next() : Previous();
}

// Place 0 counts as sent at first, so that a control that starts there leaves the camera alone.
void send_ev(RcMapperState& state, int place) {
    if (place != state.last_ev) {
        camera_set_ev(kEvSteps[place]);
        state.last_ev = place;
    }
}

void zoom_in(RcMapperState& /*state*/, int sign) {
    camera_set_optical_zoom(sign != 0 ? 1 : 0);
}

void zoom_out(RcMapperState& /*state*/, int sign) {
    camera_set_optical_zoom(sign != 0 ? -1 : 0);
}

void zoom_either_way(RcMapperState& /*state*/, int sign) {
    camera_set_optical_zoom(sign);
}

// Not limited here, but where it is sent; beyond its 16 bits it starts over at the other end.
void add_to_digital_zoom(std::int32_t step) {
    const auto level = static_cast<std::int16_t>(camera_state.digital_zoom_level + step);
    camera_state.digital_zoom_level = level;
    camera_set_digital_zoom(level);
}

void set_zoom_step(RcMapperState& /*state*/, int sign) {
    rc_digital_zoom_step.store(sign, std::memory_order_relaxed);
    add_to_digital_zoom(sign);
}

void set_focus_step(RcMapperState& state, int sign) {
    state.focus_step = sign;
}

template <void (*Action)(RcMapperState&, int)>
void opposite(RcMapperState& state, int sign) {
    Action(state, -sign);
}

void send_focus(RcMapperState& state, int percent) {
    if (percent != state.last_focus) {
        camera_set_manual_focus(percent);
        state.last_focus = percent;
    }
}

// -- channels ----------------------------------------------------------------------------------

bool lock_is_enabled(RcRawBlock& block) {
    return read_rc_word(block.lock_enable) != 0;
}

bool ev_abs_is_enabled(RcRawBlock& block) {
    return read_rc_word(block.ev_abs_enable) != 0;
}

bool focus_abs_is_enabled(RcRawBlock& block) {
    return read_rc_word(block.focus_abs_enable) != 0;
}

// When a channel's action is called, and with what: the sign, or the place or position.
enum class Kind : std::uint8_t {
    kButton,      // every change of its sign but to 0: pressed, whichever way
    kRocker,      // the same: +1 next, -1 previous
    kHold,        // every change of its sign, to 0 too
    kThirdStops,  // its place in a list of 19, in every cycle
    kPercent,     // its position, 0 .. 100, in every cycle
};

struct Channel {
    RcChannel RcRawBlock::*field;
    Kind kind;
    void (*action)(RcMapperState& state, int argument);
    bool (*is_enabled)(RcRawBlock& block) = nullptr;  // null: always
};

using Block = RcRawBlock;
using enum Kind;

// The order counts: commands leave in it, and later channels act on what earlier ones did.
// clang-format off
constexpr Channel kChannels[] = {
    {&Block::position,        kButton,     recentre},
    {&Block::lock,            kButton,     confirm_lock, lock_is_enabled},
    {&Block::lock2,           kButton,     confirm_lock},
    {&Block::mode,            kButton,     toggle_mode},
    {&Block::record,          kHold,       record_or_shoot},
    {&Block::focus_type,      kButton,     toggle_focus_type},
    {&Block::ae_lock,         kButton,     toggle_ae_lock},
    {&Block::image_mode_next, kButton,     press<camera_next_image_mode>},
    {&Block::image_mode_prev, kButton,     press<camera_prev_image_mode>},
    {&Block::image_mode,      kRocker,     rock<camera_next_image_mode, camera_prev_image_mode>},
    {&Block::iso_next,        kButton,     press<camera_next_iso>},
    {&Block::iso_prev,        kButton,     press<camera_prev_iso>},
    {&Block::iso,             kRocker,     rock<camera_next_iso, camera_prev_iso>},
    {&Block::shutter_next,    kButton,     press<camera_next_shutter>},
    {&Block::shutter_prev,    kButton,     press<camera_prev_shutter>},
    {&Block::shutter,         kRocker,     rock<camera_next_shutter, camera_prev_shutter>},
    {&Block::aperture_next,   kButton,     press<camera_next_aperture>},
    {&Block::aperture_prev,   kButton,     press<camera_prev_aperture>},
    {&Block::aperture,        kRocker,     rock<camera_next_aperture, camera_prev_aperture>},
    {&Block::color_next,      kButton,     press<camera_next_color>},
    {&Block::color_prev,      kButton,     press<camera_prev_color>},
    {&Block::color,           kRocker,     rock<camera_next_color, camera_prev_color>},
    {&Block::wb_next,         kButton,     press<camera_next_wb>},
    {&Block::wb_prev,         kButton,     press<camera_prev_wb>},
    {&Block::wb,              kRocker,     rock<camera_next_wb, camera_prev_wb>},
    {&Block::ev_next,         kButton,     press<camera_next_ev>},
    {&Block::ev_prev,         kButton,     press<camera_prev_ev>},
    {&Block::ev,              kRocker,     rock<camera_next_ev, camera_prev_ev>},
    {&Block::ev_abs,          kThirdStops, send_ev, ev_abs_is_enabled},
    {&Block::zoom_in,         kHold,       zoom_in},
    {&Block::zoom_out,        kHold,       zoom_out},
    {&Block::zoom,            kHold,       zoom_either_way},
    {&Block::dzoom_in,        kHold,       set_zoom_step},
    {&Block::dzoom_out,       kHold,       opposite<set_zoom_step>},
    {&Block::dzoom,           kHold,       set_zoom_step},
    {&Block::focus_in,        kHold,       set_focus_step},
    {&Block::focus_out,       kHold,       opposite<set_focus_step>},
    {&Block::focus_abs,       kPercent,    send_focus, focus_abs_is_enabled},
};
// clang-format on
static_assert(std::size(kChannels) == kRcChannelCount);

// -1.0 .. +1.0 to 0 .. most.
int position_of(double value, double half_range, int most) {
    return std::clamp(saturate_to_int32(half_range + value * half_range), 0, most);
}

void evaluate(RcMapperState& state, const Channel& channel, std::int8_t& previous) {
    const double value = read_rc_channel(state.block->*channel.field);
    const int sign = rc_sign(value);
    if (channel.kind == kThirdStops) {
        channel.action(state, position_of(value, 9.5, 18));
    } else if (channel.kind == kPercent) {
        channel.action(state, position_of(value, 50.0, 100));
    } else if (sign != previous) {
        previous = static_cast<std::int8_t>(sign);
        if (sign != 0 || channel.kind == kHold) {
            channel.action(state, sign);
        }
    }
}

// One unit every cycle, from where the last step left it and not from where the position is.
void step_focus(RcMapperState& state) {
    if (state.focus_step != 0) {
        state.focus_accumulator = std::clamp(state.focus_accumulator + state.focus_step, 0, 100);
        send_focus(state, state.focus_accumulator);
    }
}

// Kept: also in the cycle in which a channel set the step, so that a press counts double at first.
void step_digital_zoom() {
    const std::int32_t step = rc_digital_zoom_step.load(std::memory_order_relaxed);
    if (step != 0) {
        add_to_digital_zoom(step);
    }
}

}  // namespace

void rc_evaluate_channels(RcMapperState& state) {
    for (std::size_t i = 0; i < kRcChannelCount; ++i) {
        const Channel& channel = kChannels[i];
        if (channel.is_enabled == nullptr || channel.is_enabled(*state.block)) {
            evaluate(state, channel, state.previous_sign[i]);
        }
    }
    step_focus(state);
    step_digital_zoom();
}
