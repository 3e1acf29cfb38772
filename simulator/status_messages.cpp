#include "simulator/status_messages.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace {

using std::chrono::milliseconds;

constexpr std::size_t kPayloadStart = 11;
constexpr std::size_t kFrame = 13;  // what is around a payload
constexpr std::uint8_t kReceiver = 0x02;

// A message's payload, written at byte numbers of the whole packet.
class Body {
  public:
    explicit Body(std::size_t packet_length) : payload_(packet_length - kFrame) {}

    void byte(std::size_t at, int value) { put(at, static_cast<unsigned>(value), 1); }
    void word(std::size_t at, int value) { put(at, static_cast<unsigned>(value), 2); }
    void three(std::size_t at, int value) { put(at, static_cast<unsigned>(value), 3); }
    void four(std::size_t at, std::uint32_t value) { put(at, value, 4); }
    void single(std::size_t at, double value) {
        four(at, std::bit_cast<std::uint32_t>(static_cast<float>(value)));
    }
    void angle(std::size_t at, double value) { word(at, static_cast<int>(std::lround(value))); }

    const Bytes& payload() const { return payload_; }

  private:
    void put(std::size_t at, std::uint32_t value, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            payload_.at(at - kPayloadStart + i) = static_cast<std::uint8_t>(value >> 8 * i & 0xFF);
        }
    }

    Bytes payload_;
};

void attitude(const CameraModel& model, Body& body) {
    body.angle(11, model.gimbal.pitch.angle);
    body.angle(13, model.gimbal.shown_roll());
    body.angle(15, model.gimbal.yaw.angle);
    body.byte(17, model.gimbal.orientation_locked ? 1 : 0);
}

void status(const CameraModel& model, Body& body) {
    body.byte(11, model.record_state());
    body.byte(13, model.status_flags());
    body.byte(15, model.mode);
    body.four(20, static_cast<std::uint32_t>(model.card_free));
    body.four(24, static_cast<std::uint32_t>(model.photos_left()));
    body.four(28, static_cast<std::uint32_t>(model.recording_seconds_left()));
    body.word(40, model.recorded_seconds());
    body.byte(42, model.photo_flags());
    body.byte(44, model.model_code);
}

void settings(const CameraModel& model, Body& body) {
    body.three(13, model.shutter_set);
    body.byte(16, model.iso_code);
    body.byte(17, model.ev_code);
    body.byte(21, model.ratio);
    body.byte(23, model.photo_format);
    body.byte(24, model.resolution);
    body.byte(25, model.frame_rate);
    body.byte(31, model.image_mode);
    body.byte(34, model.white_balance);
    body.byte(35, model.white_balance_hundreds);
    body.byte(42, model.color);
    body.byte(43, model.antiflicker);
    body.word(49, model.aperture());
    body.three(51, model.shutter());
    body.word(54, model.iso());
    body.byte(66, model.video_standard);
    body.byte(67, model.ae_locked);
    body.byte(69, model.settings_byte69);
    body.byte(100, model.settings_byte100);
}

void focus(const CameraModel& model, Body& body) {
    body.byte(11, model.focus_auto);
    body.word(12, model.focus_range);
    body.word(14, static_cast<int>(model.focus_position));
    body.single(24, model.focus_point_x);
    body.single(28, model.focus_point_y);
    body.byte(32, model.focus_byte32);
    body.byte(42, model.focus_assistants);
}

void parameters(const CameraModel& model, Body& body) {
    std::size_t at = kPayloadStart;
    for (const std::uint8_t bin : model.histogram_bins()) {
        body.byte(at++, bin);
    }
}

void battery(const CameraModel& model, Body& body) {
    body.byte(11, static_cast<int>(model.battery_percent));
    body.word(12, model.voltage());
    body.word(25, model.current());
}

void drive(const CameraModel& model, Body& body) {
    body.three(14, static_cast<int>(model.drive_free));
}

// No receiver interprets them: so they show what no other message does.
void auxiliary(const CameraModel& model, Body& body) {
    body.word(11, model.digital_zoom);
    body.word(13, static_cast<int>(model.optical_zoom));
}

void camera_flag(const CameraModel& model, Body& body) {
    body.byte(11, model.camera_flag);
}

void gimbal_fault(const CameraModel& model, Body& body) {
    body.byte(12, model.gimbal.fault);
}

enum Sender : std::uint8_t { kCamera = 0x01, kGimbal = 0x04 };

struct MessageKind {
    Message message;
    Sender sender;
    std::uint8_t set, id;
    std::size_t length;  // by it the receiver knows most of them
    milliseconds period;
    void (*fill)(const CameraModel&, Body&);
};
// clang-format off
constexpr MessageKind kMessages[] = {
    {Message::kAttitude,    kGimbal, 0x04, 0x05,  25, milliseconds(  50), attitude},
    {Message::kStatus,      kCamera, 0x02, 0x80,  50, milliseconds( 100), status},
    {Message::kSettings,    kCamera, 0x02, 0x81, 104, milliseconds( 200), settings},
    {Message::kFocus,       kCamera, 0x02, 0x82,  59, milliseconds( 200), focus},
    {Message::kParameters,  kCamera, 0x02, 0x83,  77, milliseconds( 200), parameters},
    {Message::kBattery,     kCamera, 0x02, 0x84,  52, milliseconds(1000), battery},
    {Message::kDrive,       kCamera, 0x02, 0x85,  22, milliseconds(1000), drive},
    {Message::kAuxiliary,   kCamera, 0x02, 0x86,  19, milliseconds(1000), auxiliary},
    {Message::kCameraFlag,  kCamera, 0x09, 0x52,  15, milliseconds(1000), camera_flag},
    {Message::kGimbalFault, kGimbal, 0x04, 0x06,  18, milliseconds(1000), gimbal_fault},
};
// clang-format on
static_assert(std::size(kMessages) == kMessageCount);
static_assert([] {
    std::size_t index = 0;
    return std::ranges::all_of(kMessages, [&](const MessageKind& kind) {
        return kind.message == static_cast<Message>(index++);
    });
}());

const MessageKind& kind_of(Message message) {
    return kMessages[static_cast<std::size_t>(message)];
}

}  // namespace

Bytes encode_message(Message message, const CameraModel& model, std::uint16_t sequence) {
    const MessageKind& kind = kind_of(message);
    Body body(kind.length);
    kind.fill(model, body);
    return camera_packet({kind.sender, kReceiver, sequence, 0x00, kind.set, kind.id},
                         body.payload());
}

milliseconds message_period(Message message) {
    return kind_of(message).period;
}

bool MessageSchedule::is_due(Message message, const CameraModel& model, milliseconds now) const {
    const bool in_time = now >= next_[static_cast<std::size_t>(message)];
    if (message == Message::kParameters) {
        return in_time && model.histogram != 0;
    }
    if (message == Message::kGimbalFault) {
        return model.gimbal.fault != fault_told_ ||
               (in_time && model.gimbal.fault != GimbalModel::kNoFault);
    }
    return in_time;
}

Bytes MessageSchedule::due(const CameraModel& model, milliseconds now) {
    Bytes packets;
    if (!model.awake()) {
        return packets;
    }
    for (const MessageKind& kind : kMessages) {
        if (!is_due(kind.message, model, now)) {
            continue;
        }
        const Bytes packet = encode_message(kind.message, model, sequence_++);
        packets.insert(packets.end(), packet.begin(), packet.end());
        // Kept to its beat; what was missed is not caught up.
        milliseconds& next = next_[static_cast<std::size_t>(kind.message)];
        next = now < next + kind.period ? std::max(next + kind.period, now) : now + kind.period;
        if (kind.message == Message::kGimbalFault) {
            fault_told_ = model.gimbal.fault;
            next = now + kind.period;  // it has no beat but its own
        }
    }
    return packets;
}
