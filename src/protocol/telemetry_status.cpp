#include "control/capture_commands.h"
#include "protocol/camera_state.h"
#include "protocol/telemetry_messages.h"
#include "protocol/telemetry_texts.h"

namespace {

constexpr std::uint8_t kPhaseRecording = 2;

constexpr int kRecordBusyBit = 3;      // of record_state
constexpr int kRecordShootingBit = 5;  // of record_state
constexpr int kShootingBit = 0;        // of byte 42
constexpr int kBusyBit = 3;            // of byte 13
constexpr int kLoopBit = 4;            // of byte 13

void decode_record_phase(CameraState& state, std::uint8_t record_state) {
    const auto phase = static_cast<std::uint8_t>(record_state >> 6);
    state.record_state = record_state;
    state.recording = static_cast<std::uint8_t>(phase == kPhaseRecording);
    write_shared_text(state.record_text, text_of(phase, kRecordPhases));
}

void decode_card_space(CameraState& state, std::uint32_t megabytes) {
    state.sd_free_raw = megabytes;
    NumberText text;
    format_gigabytes(static_cast<float>(megabytes) * 0.001F, text);
    write_shared_text(state.sd, text);
}

void decode_clock(SharedWord<std::uint32_t>& field, NumberText& text_field, std::uint32_t seconds) {
    field = seconds;
    NumberText text;
    format_hms(seconds, text);
    write_shared_text(text_field, text);
}

// Busy without anything being shot: the camera hangs in a shot that it does not finish by itself.
bool hangs_in_a_shot(const CameraState& state) {
    return bit_of(state.status_flags, kBusyBit) != 0 &&
           bit_of(state.status_byte42, kShootingBit) == 0 &&
           bit_of(state.record_state, kRecordShootingBit) == 0;
}

const char* busy_text(const CameraState& state) {
    if (state.loop_bit != 0) {
        return "LOOP";
    }
    if (bit_of(state.status_flags, kBusyBit) != 0) {
        return "BUSY";
    }
    return bit_of(state.record_state, kRecordBusyBit) != 0 ? "SHOT" : "";
}

}  // namespace

void decode_camera_status(CameraState& state, Message message) {
    decode_record_phase(state, message[11]);

    decode_card_space(state, read_le32(&message[20]));
    state.shots_left = read_le32(&message[24]);
    decode_clock(state.rec_time_left_raw, state.rec_time_left, read_le32(&message[28]));
    decode_clock(state.rec_time_raw, state.rec_time, read_le16(&message[40]));

    write_code_text(state.camera_model_code, state.camera_model, message[44], kCameraModels);
    state.camera_detected = 1;
    write_code_text(state.camera_mode_code, state.camera_mode, message[15], kCameraModes);

    state.status_byte42 = message[42];
    state.status_flags = message[13];
    state.busy_bit = bit_of(message[13], kBusyBit);
    state.record_bit5 = bit_of(state.record_state, kRecordShootingBit);
    state.loop_bit = bit_of(message[13], kLoopBit);

    if (hangs_in_a_shot(state)) {
        camera_stop_shooting();
    }
    // From the flags as they are now: the stop has taken its time.
    const char* const text = busy_text(state);
    write_shared_text(state.busy_text, text);
    state.busy = static_cast<std::uint8_t>(text[0] != '\0');
}
