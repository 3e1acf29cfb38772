#include "protocol/telemetry_decode.h"

#include <array>
#include <bit>
#include <cstdio>
#include <limits>

#include "app/millisecond_clock.h"
#include "control/device_commands.h"
#include "protocol/camera_packet.h"
#include "protocol/camera_state.h"
#include "protocol/little_endian.h"
#include "protocol/telemetry_messages.h"
#include "protocol/telemetry_texts.h"

namespace {

constexpr std::size_t kShortestMessage = 10;
constexpr std::size_t kLengthOffset = 1;
constexpr std::size_t kHeaderCrcOffset = 3;
constexpr std::size_t kCrc16Size = 2;

// The scanner has made the same sums, so the two lines speak of packets that came another way.
bool packet_is_sound(const std::uint8_t* packet, std::size_t length) {
    if (packet == nullptr || packet[0] != kCameraPacketStart || length < kShortestMessage) {
        return false;
    }
    if (packet[kLengthOffset] != length) {
        return false;
    }
    const std::size_t summed = length - kCrc16Size;
    if (camera_crc16(packet, summed, kCameraCrc16Seed) != read_le16(packet + summed)) {
        fprintf(stderr, "CRC16 wrong\n");
        return false;
    }
    if (camera_crc8(packet, kHeaderCrcOffset, kCameraCrc8Seed) != packet[kHeaderCrcOffset]) {
        fprintf(stderr, "CRC8 wrong\n");
        return false;
    }
    return true;
}

std::int16_t read_signed16(const std::uint8_t* p) {
    return static_cast<std::int16_t>(read_le16(p));
}

// A message's command, where it matters.
constexpr std::size_t kTypeOffset = 8;
constexpr std::size_t kSetOffset = 9;
constexpr std::size_t kIdOffset = 10;

void decode_camera_flag(CameraState& state, Message message) {
    if (message[kTypeOffset] == 0 && message[kSetOffset] == 0x09 && message[kIdOffset] == 0x52) {
        state.camera_flag = static_cast<std::uint8_t>(message[11] == 1);
    }
}

// Every fault asks for a restart, however many of them come. The line goes on for as long as the
// gimbal does not take the fault back, whatever the message at hand says.
void decode_gimbal_fault(CameraState& state, Message message) {
    constexpr std::uint8_t kNoFault = 0x80;
    constexpr std::uint8_t kEvenFault = 0x84;
    if (message[kTypeOffset] == 0) {
        const std::uint8_t code = message[12];
        if (code == kNoFault) {
            state.gimbal_error = 0;
        } else if (code == kEvenFault || (code & 1) != 0) {
            state.gimbal_error = 1;
            camera_power("restart");
        }
    }
    if (state.gimbal_error != 0) {
        fprintf(stderr, "gimbal error\n");
    }
}

void decode_aux_words(CameraState& state, Message message) {
    state.aux_word0 = read_le16(&message[11]);
    state.aux_word1 = read_le16(&message[13]);
}

void decode_drive_space(CameraState& state, Message message) {
    const std::uint32_t megabytes = read_le24(&message[14]);
    state.ssd_free_raw = megabytes;
    NumberText text;
    format_gigabytes(static_cast<float>(megabytes) / 1024.0F, text);
    write_shared_text(state.ssd, text);
}

void decode_gimbal_attitude(CameraState& state, Message message) {
    constexpr std::int16_t kConsts[] = {320, -320, 30, -124};
    if (message[kSetOffset] != 0x04 || message[kIdOffset] != 0x05) {
        return;
    }
    state.pitch = read_signed16(&message[11]);
    state.roll = read_signed16(&message[13]);
    state.yaw = read_signed16(&message[15]);
    for (std::size_t i = 0; i < std::size(kConsts); ++i) {
        state.attitude_consts[i] = kConsts[i];
    }
    const bool locked = message[17] != 0;
    state.gimbal_unlocked = static_cast<std::uint8_t>(!locked);
    write_shared_text(state.gimbal_lock, locked ? "locked" : "unlocked");
}

void decode_battery(CameraState& state, Message message) {
    state.voltage = read_signed16(&message[12]);
    state.current = read_signed16(&message[25]);
    state.battery_level = static_cast<std::int8_t>(message[11]);
}

// A range of 0 has no percentage. What the division would give is kept, infinite or no number.
float percentage(std::uint16_t position, std::uint16_t range) {
    using Single = std::numeric_limits<float>;
    if (range == 0) {
        return position == 0 ? Single::quiet_NaN() : Single::infinity();
    }
    return static_cast<float>(position) / static_cast<float>(range) * 100.0F;
}

void decode_focus(CameraState& state, Message message) {
    state.focus_byte32 = message[32];
    state.focus_auto = bit_of(message[11], 0);
    write_shared_text(state.focus_type, state.focus_auto != 0 ? "AF" : "MF");
    state.focus_range = read_le16(&message[12]);
    state.focus_position = read_le16(&message[14]);
    state.focus_percent = percentage(state.focus_position, state.focus_range);
    state.focus_point_x = std::bit_cast<float>(read_le32(&message[24]));
    state.focus_point_y = std::bit_cast<float>(read_le32(&message[28]));
    state.focus_byte42 = message[42];
    state.focus_valid = 1;
}

void decode_parameter_block(CameraState& state, Message message) {
    write_shared_bytes(state.params_block, &message[11], sizeof state.params_block);
    state.params_time_ms = clock_ms();
}

// A message is recognised by the length of its packet alone, which is enough for the cameras that
// are served; two of them look at their command as well.
struct MessageKind {
    std::uint8_t length;
    void (*decode)(CameraState& state, Message message);
};

// clang-format off
constexpr MessageKind kMessageKinds[] = {
    { 15, decode_camera_flag     },
    { 18, decode_gimbal_fault    },
    { 19, decode_aux_words       },
    { 22, decode_drive_space     },
    { 25, decode_gimbal_attitude },
    { 49, decode_camera_status   },
    { 50, decode_camera_status   },
    { 52, decode_battery         },
    { 53, decode_focus           },
    { 59, decode_focus           },
    { 77, decode_parameter_block },
    { 85, decode_camera_settings },
    {104, decode_camera_settings },
};
// clang-format on

// The same by length, so that a packet's kind is found in one step.
consteval auto kinds_by_length() {
    std::array<decltype(MessageKind::decode), std::size_t{104} + 1> kinds{};
    for (const MessageKind& kind : kMessageKinds) {
        kinds[kind.length] = kind.decode;
    }
    return kinds;
}

constexpr auto kKindsByLength = kinds_by_length();

}  // namespace

void telemetry_decode(CameraState* state, const std::uint8_t* packet, std::size_t length) {
    if (packet_is_sound(packet, length)) {
        telemetry_decode_verified(state, packet, length);
    }
}

void telemetry_decode_verified(CameraState* state, const std::uint8_t* packet, std::size_t length) {
    const auto decode = length < kKindsByLength.size() ? kKindsByLength[length] : nullptr;
    if (decode != nullptr) {
        decode(state != nullptr ? *state : camera_state, Message(packet, length));
    }
}
