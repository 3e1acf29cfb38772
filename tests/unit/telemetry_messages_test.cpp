// Every message of the case table, and which bytes of a message each field comes from.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>

#include "fake_clock.h"
#include "protocol/telemetry_decode.h"
#include "telemetry_fields.h"
#include "telemetry_operations.h"
#include "tests/cases/telemetry_messages.h"

namespace {

using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

// Fields filled with what no message says, but for the shutter, whose text the next message brings.
std::unique_ptr<CameraState> noisy_state() {
    auto state = std::make_unique<CameraState>();
    memset(static_cast<void*>(state.get()), 0x5B, sizeof *state);
    for_each_field(*state, [](const char*, auto& field) {
        if constexpr (std::is_same_v<
                          std::remove_all_extents_t<std::remove_reference_t<decltype(field)>>,
                          char>) {
            std::end(field)[-1] = '\0';
        }
    });
    state->shutter_raw = 0;
    return state;
}

// The message in a block of exactly its size, so that the sanitizer sees one byte too far.
FieldTexts after(const Bytes& packet, CameraState& state,
                 decltype(telemetry_decode)* decode = telemetry_decode) {
    const auto block = std::make_unique<std::uint8_t[]>(packet.size());
    std::ranges::copy(packet, block.get());
    testing::internal::CaptureStderr();
    decode(&state, block.get(), packet.size());
    testing::internal::GetCapturedStderr();
    return field_texts(state);
}

class EveryMessage : public testing::TestWithParam<TelemetryMessage> {
  protected:
    EveryMessage() { fake_clock_ms = kTelemetryClockMs; }

    void expect_its_fields(CameraState& state,
                           decltype(telemetry_decode)* decode = telemetry_decode) const {
        FieldTexts expected = field_texts(state);
        for (const TelemetryFieldValue& field : GetParam().fields) {
            ASSERT_TRUE(expected.contains(field.name)) << field.name;
            expected[field.name] = field.value;
        }
        EXPECT_EQ(after(GetParam().packet, state, decode), expected);
    }
};

TEST_P(EveryMessage, WritesItsFieldsAndNoOthers) {
    CameraState state{};
    expect_its_fields(state);
}

TEST_P(EveryMessage, OverwritesWhatWasThere) {
    expect_its_fields(*noisy_state());
}

TEST_P(EveryMessage, IsDecodedWithoutItsSums) {
    CameraState state{};
    expect_its_fields(state, telemetry_decode_verified);
}

INSTANTIATE_TEST_SUITE_P(Telemetry, EveryMessage, testing::ValuesIn(all_telemetry_messages()),
                         [](const auto& tested) { return std::string(tested.param.name); });

// Bits of one byte and the fields that they change: certainly when no other bit is set, or, for
// those that are worked out from a value, perhaps.
struct BitsOfField {
    std::size_t length;
    const char* field;
    std::size_t first;
    std::size_t count;
    std::uint8_t mask;
    bool certain;
};

constexpr bool kRaw = true;
constexpr bool kDerived = false;

// clang-format off
const BitsOfField kBitsOfFields[] = {
    { 19, "aux_word0",          11,  2, 0xFF, kRaw},
    { 19, "aux_word1",          13,  2, 0xFF, kRaw},
    { 22, "ssd_free_raw",       14,  3, 0xFF, kRaw},
    { 22, "ssd",                14,  3, 0xFF, kRaw},
    { 25, "pitch",              11,  2, 0xFF, kRaw},
    { 25, "roll",               13,  2, 0xFF, kRaw},
    { 25, "yaw",                15,  2, 0xFF, kRaw},
    { 25, "gimbal_unlocked",    17,  1, 0xFF, kRaw},
    { 25, "gimbal_lock",        17,  1, 0xFF, kRaw},
    { 50, "record_state",       11,  1, 0xFF, kRaw},
    { 50, "recording",          11,  1, 0x80, kRaw},
    { 50, "record_text",        11,  1, 0xC0, kRaw},
    { 50, "record_bit5",        11,  1, 0x20, kRaw},
    { 50, "busy",               11,  1, 0x08, kRaw},
    { 50, "busy_text",          11,  1, 0x08, kRaw},
    { 50, "status_flags",       13,  1, 0xFF, kRaw},
    { 50, "busy_bit",           13,  1, 0x08, kRaw},
    { 50, "loop_bit",           13,  1, 0x10, kRaw},
    { 50, "busy",               13,  1, 0x18, kRaw},
    { 50, "busy_text",          13,  1, 0x18, kRaw},
    { 50, "camera_mode_code",   15,  1, 0xFF, kRaw},
    { 50, "camera_mode",        15,  1, 0x01, kRaw},
    { 50, "sd_free_raw",        20,  4, 0xFF, kRaw},
    { 50, "sd",                 20,  4, 0xFF, kRaw},
    { 50, "shots_left",         24,  4, 0xFF, kRaw},
    { 50, "rec_time_left_raw",  28,  4, 0xFF, kRaw},
    { 50, "rec_time_left",      28,  4, 0xFF, kRaw},
    { 50, "rec_time_raw",       40,  2, 0xFF, kRaw},
    { 50, "rec_time",           40,  2, 0xFF, kRaw},
    { 50, "status_byte42",      42,  1, 0xFF, kRaw},
    { 50, "camera_model_code",  44,  1, 0xFF, kRaw},
    { 50, "camera_model",       44,  1, 0xFF, kRaw},
    { 52, "battery_level",      11,  1, 0xFF, kRaw},
    { 52, "voltage",            12,  2, 0xFF, kRaw},
    { 52, "current",            25,  2, 0xFF, kRaw},
    { 59, "focus_auto",         11,  1, 0x01, kRaw},
    { 59, "focus_type",         11,  1, 0x01, kRaw},
    { 59, "focus_range",        12,  2, 0xFF, kRaw},
    { 59, "focus_position",     14,  2, 0xFF, kRaw},
    { 59, "focus_percent",      12,  4, 0xFF, kDerived},
    { 59, "focus_point_x",      24,  4, 0xFF, kRaw},
    { 59, "focus_point_y",      28,  4, 0xFF, kRaw},
    { 59, "focus_byte32",       32,  1, 0xFF, kRaw},
    { 59, "focus_byte42",       42,  1, 0xFF, kRaw},
    { 77, "params_block",       11, 64, 0xFF, kRaw},
    {104, "shutter_set_raw",    13,  3, 0xFF, kRaw},
    {104, "iso_set_code",       16,  1, 0xFF, kRaw},
    {104, "iso_set",            16,  1, 0xFF, kDerived},
    {104, "ev_value",           17,  1, 0xFF, kDerived},
    {104, "ev",                 17,  1, 0xFF, kDerived},
    {104, "ratio_code",         21,  1, 0xFF, kRaw},
    {104, "ratio",              21,  1, 0x01, kRaw},
    {104, "photo_format_code",  23,  1, 0xFF, kRaw},
    {104, "shot_mode",          23,  1, 0xFF, kRaw},
    {104, "resolution_code",    24,  1, 0xFF, kRaw},
    {104, "resolution",         24,  1, 0xFF, kDerived},
    {104, "framerate_code",     25,  1, 0xFF, kRaw},
    {104, "framerate",          25,  1, 0x07, kRaw},
    {104, "image_mode_code",    31,  1, 0xFF, kRaw},
    {104, "image_mode",         31,  1, 0x06, kRaw},
    {104, "wb_code",            34,  1, 0xFF, kRaw},
    {104, "wb",                 34,  1, 0xFF, kRaw},
    {104, "wb_temp_code",       35,  1, 0xFF, kRaw},
    {104, "wb_temp",            35,  1, 0xFF, kRaw},
    {104, "color_mode_code",    42,  1, 0xFF, kRaw},
    {104, "color_mode",         42,  1, 0xFF, kDerived},
    {104, "antiflicker_code",   43,  1, 0xFF, kRaw},
    {104, "antiflicker",        43,  1, 0x03, kRaw},
    {104, "aperture_raw",       49,  2, 0xFF, kRaw},
    {104, "aperture",           49,  2, 0xFF, kRaw},
    {104, "shutter_raw",        51,  3, 0xFF, kRaw},
    {104, "shutter",            51,  3, 0xFF, kDerived},
    {104, "iso",                54,  2, 0xFF, kRaw},
    {104, "video_std_code",     66,  1, 0x01, kRaw},
    {104, "video_std",          66,  1, 0x01, kRaw},
    {104, "ae",                 67,  1, 0xFF, kRaw},
    {104, "settings_byte69",    69,  1, 0xFF, kRaw},
    {104, "settings_byte100",  100,  1, 0xFF, kRaw},
};
// clang-format on

class EveryBit : public testing::TestWithParam<std::size_t> {
  protected:
    EveryBit() { fake_clock_ms = kTelemetryClockMs; }

    // Fields that a bit of a message of this length changes; with perhaps, those it may change too.
    std::set<std::string> fields_of_bit(std::size_t byte, unsigned mask, bool perhaps) const {
        std::set<std::string> fields;
        for (const BitsOfField& row : kBitsOfFields) {
            if (row.length == GetParam() && byte >= row.first && byte < row.first + row.count &&
                (row.mask & mask) != 0 && (row.certain || perhaps)) {
                fields.insert(row.field);
            }
        }
        return fields;
    }
};

FieldTexts decoded_fresh(const Bytes& packet) {
    CameraState state{};
    return after(packet, state, telemetry_decode_verified);
}

TEST_P(EveryBit, ChangesTheFieldsOfItsPlaceAndNoOthers) {
    Bytes packet(GetParam(), 0);
    packet[9] = 0x04;  // gimbal attitude, where this matters
    packet[10] = 0x05;
    const FieldTexts before = decoded_fresh(packet);
    for (std::size_t byte = 11; byte < packet.size(); ++byte) {
        for (unsigned mask = 1; mask <= 0x80; mask <<= 1) {
            packet[byte] = static_cast<std::uint8_t>(mask);
            std::set<std::string> changed;
            for (const auto& [name, text] : decoded_fresh(packet)) {
                if (before.at(name) != text) {
                    changed.insert(name);
                }
            }
            const auto may = fields_of_bit(byte, mask, true);
            const auto must = fields_of_bit(byte, mask, false);
            EXPECT_TRUE(std::ranges::includes(may, changed))
                << byte << ": " << mask << ": " << testing::PrintToString(changed);
            EXPECT_TRUE(std::ranges::includes(changed, must))
                << byte << ": " << mask << ": " << testing::PrintToString(changed);
        }
        packet[byte] = 0;
    }
}

INSTANTIATE_TEST_SUITE_P(Telemetry, EveryBit, testing::Values(19, 22, 25, 50, 52, 59, 77, 104));

// The longer messages of a kind have their fields where the shorter ones have them.
TEST(TelemetryLengths, TwoLengthsOfAKindAreReadAlike) {
    const std::pair<std::size_t, std::size_t> kinds[] = {{49, 50}, {53, 59}, {85, 104}};
    for (const auto& [shorter, longer] : kinds) {
        Bytes packet(longer);
        for (std::size_t byte = 0; byte < longer; ++byte) {
            packet[byte] = static_cast<std::uint8_t>(byte * 37 + 11);
        }
        FieldTexts of_longer = decoded_fresh(packet);
        packet.resize(shorter);
        FieldTexts of_shorter = decoded_fresh(packet);
        of_longer.erase("settings_byte100");
        of_shorter.erase("settings_byte100");
        EXPECT_EQ(of_shorter, of_longer) << shorter;
        EXPECT_NE(of_shorter, decoded_fresh({})) << shorter;
    }
}

TEST(TelemetryLengths, Byte100IsLeftByTheShorterSettings) {
    CameraState state{};
    state.settings_byte100 = 0x64;
    after(Bytes(85, 0x22), state, telemetry_decode_verified);
    EXPECT_EQ(state.settings_byte100, 0x64);
}

TEST(TelemetryLengths, OthersChangeNothing) {
    const std::set<std::size_t> kinds = {15, 18, 19, 22, 25, 49, 50, 52, 53, 59, 77, 85, 104};
    operations.clear();
    for (std::size_t length = 0; length <= 300; ++length) {
        if (kinds.contains(length)) {
            continue;
        }
        const auto state = noisy_state();
        const FieldTexts before = field_texts(*state);
        EXPECT_EQ(after(Bytes(length, 0x01), *state, telemetry_decode_verified), before) << length;
    }
    EXPECT_THAT(operations, IsEmpty());
}

TEST(TelemetryTarget, NoStateIsTheProcessWideOne) {
    const Bytes& flag = kCameraFlagMessages[0].packet;
    for (auto* const decode : {telemetry_decode, telemetry_decode_verified}) {
        camera_state.camera_flag = 0;
        decode(nullptr, flag.data(), flag.size());
        EXPECT_EQ(camera_state.camera_flag, 1);
    }
}

TEST(TelemetryTarget, AnotherStateLeavesTheProcessWideOne) {
    CameraState other{};
    camera_state.camera_flag = 0;
    telemetry_decode(&other, kCameraFlagMessages[0].packet.data(), 15);
    EXPECT_EQ(other.camera_flag, 1);
    EXPECT_EQ(camera_state.camera_flag, 0);
}

TEST(TelemetryTarget, FieldsStayUntilAMessageOfTheirKind) {
    CameraState state{};
    FieldTexts expected = field_texts(state);
    fake_clock_ms = kTelemetryClockMs;
    for (const auto* kind : {&kAuxWordsMessages, &kDriveSpaceMessages, &kGimbalAttitudeMessages,
                             &kCameraStatusMessages, &kBatteryMessages, &kFocusMessages,
                             &kParameterBlockMessages, &kCameraSettingsMessages}) {
        const TelemetryMessage& message = kind->front();
        for (const TelemetryFieldValue& field : message.fields) {
            expected[field.name] = field.value;
        }
        EXPECT_EQ(after(message.packet, state), expected) << message.name;
    }
}

}  // namespace
