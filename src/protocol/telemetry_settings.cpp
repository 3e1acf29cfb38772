#include <iterator>

#include "protocol/camera_state.h"
#include "protocol/telemetry_messages.h"
#include "protocol/telemetry_texts.h"

namespace {

constexpr std::size_t kByte100 = 100;  // only the longer one of the two messages has it

void decode_aperture(CameraState& state, std::uint16_t raw) {
    state.aperture_raw = raw;
    NumberText text;
    format_aperture(raw, text);
    write_shared_text(state.aperture, text);
}

void decode_ev(CameraState& state, std::uint8_t code) {
    const auto row = static_cast<std::size_t>(code - kFirstEvCode);  // huge for a code below
    const EvCode& code_text = row < std::size(kEvCodes) ? kEvCodes[row] : kNoEv;
    state.ev_value = code_text.value;
    write_shared_text(state.ev, code_text.text);
}

template <std::size_t N>
void write_shutter_text(char (&field)[N], std::uint32_t raw) {
    NumberText text;
    if (format_shutter(raw, text)) {
        write_shared_text(field, text);
    }
}

// Kept: the setting's text shows the current shutter of the message before, never the setting; the
// main application relies on it.
void decode_shutters(CameraState& state, Message message) {
    state.shutter_set_raw = read_le24(&message[13]);
    write_shutter_text(state.shutter_set, state.shutter_raw);
    state.shutter_raw = read_le24(&message[51]);
    write_shutter_text(state.shutter, state.shutter_raw);
}

}  // namespace

void decode_camera_settings(CameraState& state, Message message) {
    if (message.size() > kByte100) {
        state.settings_byte100 = message[kByte100];
    }
    write_code_text(state.photo_format_code, state.shot_mode, message[23], kPhotoFormats);
    state.ae = static_cast<std::uint8_t>(message[67] != 0);
    state.settings_byte69 = message[69];

    decode_aperture(state, read_le16(&message[49]));
    state.iso = read_le16(&message[54]);
    write_code_text(state.iso_set_code, state.iso_set, message[16], kIsos);

    write_code_text(state.resolution_code, state.resolution, message[24], kResolutions);
    write_code_text(state.framerate_code, state.framerate, message[25], kFramerates);

    write_code_text(state.wb_code, state.wb, message[34], kWhiteBalances);
    state.wb_temp_code = message[35];
    state.wb_temp = static_cast<float>(message[35] * 100);

    decode_ev(state, message[17]);
    write_code_text(state.color_mode_code, state.color_mode, message[42], kColorModes);
    write_code_text(state.image_mode_code, state.image_mode, message[31], kImageModes);

    write_code_text(state.ratio_code, state.ratio, message[21], kRatios);
    write_code_text(state.video_std_code, state.video_std, bit_of(message[66], 0), kVideoStandards);
    write_code_text(state.antiflicker_code, state.antiflicker, message[43], kAntiflickers);

    decode_shutters(state, message);
}
