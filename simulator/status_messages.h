// The camera model as the messages that the camera sends. Reentrant, but for MessageSchedule, which
// is its owner's.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "simulator/camera_model.h"
#include "simulator/camera_stream.h"

// In the order of the table, and of one round of messages.
enum class Message : std::uint8_t {
    kAttitude,
    kStatus,
    kSettings,
    kFocus,
    kParameters,
    kBattery,
    kDrive,
    kAuxiliary,
    kCameraFlag,
    kGimbalFault,
};
inline constexpr std::size_t kMessageCount = 10;

// The whole packet.
Bytes encode_message(Message message, const CameraModel& model, std::uint16_t sequence);

// How often a message comes.
std::chrono::milliseconds message_period(Message message);

// Which messages are due. A camera that is not awake sends none; the parameter block comes while
// the histogram is on, and the fault message while there is a fault, at once when it changes, and
// once more when it is gone.
class MessageSchedule {
  public:
    // The packets that are due at that time, one behind the other. Times never go back.
    Bytes due(const CameraModel& model, std::chrono::milliseconds now);
    // A new link: every message is due, and the sequence numbers begin again.
    void restart() {
        next_ = {};
        sequence_ = 0;
    }

  private:
    bool is_due(Message message, const CameraModel& model, std::chrono::milliseconds now) const;

    std::array<std::chrono::milliseconds, kMessageCount> next_{};
    std::uint16_t sequence_ = 0;
    int fault_told_ = GimbalModel::kNoFault;
};
