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
inline constexpr std::size_t kEvAbs = 1368;
inline constexpr std::size_t kEv = 1376;
inline constexpr std::size_t kEvAbsEnable = 1490;

class RemoteControl {
  public:
    // Opens what the receiver has made; throws where there is no block of the right size.
    RemoteControl();
    ~RemoteControl();
    RemoteControl(const RemoteControl&) = delete;
    RemoteControl& operator=(const RemoteControl&) = delete;

    void set(std::size_t offset, double value);
    void set_byte(std::size_t offset, std::uint8_t value);

  private:
    std::uint8_t* block_;
};
