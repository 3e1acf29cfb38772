// The process at the other end of the channel block, for tests.
#pragma once

#include <cstddef>
#include <cstdint>

// Offsets of some channels.
inline constexpr std::size_t kPan = 1056;
inline constexpr std::size_t kPosition = 1088;
inline constexpr std::size_t kRecord = 1112;
inline constexpr std::size_t kMode = 1120;
inline constexpr std::size_t kIso = 1248;

class RemoteControl {
  public:
    // Opens what the receiver has made; throws where there is no block of the right size.
    RemoteControl();
    ~RemoteControl();
    RemoteControl(const RemoteControl&) = delete;
    RemoteControl& operator=(const RemoteControl&) = delete;

    void set(std::size_t offset, double value);

  private:
    std::uint8_t* block_;
};
