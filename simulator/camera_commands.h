// What the camera does with a packet that the receiver sends: it checks it, finds its command in a
// table and lets that act on the model. What is wrong is refused and counted by its reason.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/camera_model.h"

enum class Refusal : std::uint8_t {
    kStart,      // the first byte, or the version
    kLength,     // the length byte is not the transfer's, or too short for a packet
    kHeaderSum,  // CRC-8
    kPacketSum,  // CRC-16
    kSequence,   // a number from long ago
    kUnknown,    // no command of the table
    kPayload,    // a byte that each packet of the command has is different
};
inline constexpr std::size_t kRefusalCount = 7;
const char* refusal_name(Refusal reason);

struct CommandCounts {
    std::map<std::string, unsigned> taken;  // by the command's name
    std::array<unsigned, kRefusalCount> refused{};
    unsigned numbers_skipped = 0;   // a sequence number ahead of the expected one
    unsigned numbers_repeated = 0;  // one of the last few again, or late
    unsigned unheeded = 0;          // taken while the camera was not awake to heed it

    unsigned refused_in_all() const;
};

// The names of all commands, in the table's order.
std::vector<std::string> command_names();

class CommandReceiver {
  public:
    // The model is the caller's, and stays.
    explicit CommandReceiver(CameraModel& model) : model_(model) {}

    // A new configuration: whichever sequence number comes first is right.
    void link_begins() { newest_.reset(); }

    // One transfer of the receiver's. The reason where it is refused.
    std::optional<Refusal> take(std::span<const std::uint8_t> packet);

    const CommandCounts& counts() const { return counts_; }

  private:
    std::optional<Refusal> check(std::span<const std::uint8_t> packet);
    bool follows(std::uint16_t sequence);

    CameraModel& model_;
    CommandCounts counts_;
    std::optional<std::uint16_t> newest_;
};
