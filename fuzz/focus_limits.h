// The focus limits as the receiver holds them, taken and set as one value.
#pragma once

#include <cstdint>

#include "app/focus_config.h"

struct Limits {
    std::int32_t least = 0;
    std::int32_t most = 0;
    bool operator==(const Limits&) const = default;
};

inline Limits limits() {
    return {focus_config_get()->mf_min, focus_config_get()->mf_max};
}

inline void set_limits(Limits to) {
    focus_config_get()->mf_min = to.least;
    focus_config_get()->mf_max = to.most;
}
