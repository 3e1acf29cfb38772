// The camera's zoom, which goes on until it is told to stop. Who set it going and leaves without a
// word has it stopped: a page that is gone leaves no lens moving. All functions are thread-safe.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>

#include "monitor/receiver_link.h"

class HeldZoom {
  public:
    explicit HeldZoom(ReceiverLink& link) : link_(link) {}

    // As ReceiverLink::send(), for any command. A zoom is then this hand's, which is only compared;
    // nullptr is nobody's, who cannot leave.
    bool send(std::span<const std::uint8_t> command, const void* hand);
    // Stops what this hand has zooming. Whether there was any.
    bool release(const void* hand);

  private:
    ReceiverLink& link_;
    std::mutex mutex_;
    std::array<const void*, 2> hands_{};  // of the digital zoom, of the optical one
};
