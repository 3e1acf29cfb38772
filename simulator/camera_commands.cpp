#include "simulator/camera_commands.h"

#include <algorithm>
#include <numeric>

#include "simulator/camera_stream.h"
#include "simulator/command_table.h"

namespace {

using Packet = std::span<const std::uint8_t>;

constexpr std::size_t kSmallestPacket = 13;
constexpr std::uint8_t kVersion = 0x04;
// Two threads of the receiver number packets without a lock: a few may repeat or come late.
constexpr int kLateNumbers = 8;

unsigned word(Packet packet, std::size_t at) {
    return packet[at] + 256U * packet[at + 1];
}

const CameraCommand* command_of(Packet packet) {
    const auto table = camera_command_table();
    const auto found = std::ranges::find_if(table, [&](const CameraCommand& each) {
        return each.sender == packet[4] && each.receiver == packet[5] && each.type == packet[8] &&
               each.set == packet[9] && each.id == packet[10] && each.length == packet.size() &&
               (each.fifth == CameraCommand::kAny || each.fifth == packet[15]);
    });
    return found == table.end() ? nullptr : &*found;
}

}  // namespace

const char* refusal_name(Refusal reason) {
    // clang-format off
    constexpr const char* kNames[kRefusalCount] = {
        "start", "length", "header sum", "packet sum", "sequence", "unknown command", "payload",
    };
    // clang-format on
    return kNames[static_cast<std::size_t>(reason)];
}

unsigned CommandCounts::refused_in_all() const {
    return std::accumulate(refused.begin(), refused.end(), 0U);
}

std::vector<std::string> command_names() {
    std::vector<std::string> names;
    for (const CameraCommand& command : camera_command_table()) {
        names.emplace_back(command.name);
    }
    return names;
}

std::optional<Refusal> CommandReceiver::take(Packet packet) {
    const auto refusal = check(packet);
    if (refusal) {
        ++counts_.refused[static_cast<std::size_t>(*refusal)];
    }
    return refusal;
}

std::optional<Refusal> CommandReceiver::check(Packet packet) {
    if (packet.size() < kSmallestPacket || packet[1] != packet.size()) {
        return Refusal::kLength;
    }
    if (packet[0] != 0x55 || packet[2] != kVersion) {
        return Refusal::kStart;
    }
    if (header_sum(packet.first(3)) != packet[3]) {
        return Refusal::kHeaderSum;
    }
    const std::size_t summed = packet.size() - 2;
    if (packet_sum(packet.first(summed)) != word(packet, summed)) {
        return Refusal::kPacketSum;
    }
    if (!follows(static_cast<std::uint16_t>(word(packet, 6)))) {
        return Refusal::kSequence;
    }
    const CameraCommand* const command = command_of(packet);
    if (command == nullptr) {
        return Refusal::kUnknown;
    }
    CameraModel changed = model_;
    if (!command->effect(changed, packet)) {
        return Refusal::kPayload;
    }
    ++counts_.taken[command->name];
    if (model_.awake() || command->wakes) {
        model_ = changed;
    } else {
        ++counts_.unheeded;
    }
    return std::nullopt;
}

bool CommandReceiver::follows(std::uint16_t sequence) {
    const auto ahead = static_cast<std::int16_t>(sequence - newest_.value_or(sequence - 1));
    if (ahead < -kLateNumbers) {
        return false;
    }
    if (ahead <= 0) {
        ++counts_.numbers_repeated;
        return true;
    }
    counts_.numbers_skipped += ahead > 1 ? 1 : 0;
    newest_ = sequence;
    return true;
}
