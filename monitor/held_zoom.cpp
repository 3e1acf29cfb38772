#include "monitor/held_zoom.h"

namespace {

// byte:  0    1                       2    3
//        05   1 digital, 2 optical    signed value (le), 0 stops
constexpr std::uint8_t kZoom = 0x05;
constexpr std::size_t kSize = 4;

}  // namespace

bool HeldZoom::send(std::span<const std::uint8_t> command, const void* hand) {
    if (command.size() != kSize || command[0] != kZoom) {
        return link_.send(command);
    }
    const bool stops = command[2] == 0 && command[3] == 0;
    // The last to be sent is the last that is remembered.
    const std::lock_guard lock(mutex_);
    const bool sent = link_.send(command);
    if (sent) {
        hands_.at(command[1] - 1U) = stops ? nullptr : hand;
    }
    return sent;
}

bool HeldZoom::release(const void* hand) {
    const std::lock_guard lock(mutex_);
    bool held = false;
    for (std::size_t kind = 0; kind < hands_.size(); ++kind) {
        if (hands_[kind] == hand) {
            const std::array<std::uint8_t, kSize> stop = {
                kZoom, static_cast<std::uint8_t>(kind + 1), 0, 0};
            link_.send(stop);
            hands_[kind] = nullptr;
            held = true;
        }
    }
    return held;
}
