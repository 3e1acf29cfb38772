// The plugin says of the camera's messages what the receiver makes of them: no row and no code of
// its tables is missing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <set>

#include "protocol/camera_state.h"
#include "protocol/telemetry_decode.h"
#include "protocol/telemetry_texts.h"
#include "simulator/camera_model.h"
#include "simulator/status_messages.h"
#include "tests/cases/telemetry_messages.h"
#include "tests/unit/telemetry_fields.h"
#include "tests/wireshark/tshark.h"

namespace {

// What the receiver derives from more than the message at hand, or that no message tells.
const std::set<std::string> kNotInTheMessage = {
    "attitude_consts", "camera_detected",   "digital_zoom_level", "focus_infinity",
    "focus_valid",     "params_block_tail", "params_time_ms",     "reserved_status_byte",
    "shutter_set",     "wb_temp_reserved",
};

std::vector<std::string> state_field_names() {
    std::vector<std::string> names;
    for (const auto& [name, text] : field_texts(CameraState{})) {
        if (!kNotInTheMessage.contains(name)) {
            names.push_back(name);
        }
    }
    return names;
}

void fill(CameraState& state) {
    for_each_field(state, [](const char*, auto& field) {
        using Field = std::remove_reference_t<decltype(field)>;
        if constexpr (std::is_same_v<Field, SharedWord<float>>) {
            field = -7.0F;
        } else if constexpr (std::is_array_v<Field>) {
            for (auto& element : field) {
                element = 0x7E;
            }
        } else {
            field = 0x7E;
        }
    });
}

// Those fields that the message writes, whatever was in them before.
FieldTexts decoded(const Bytes& packet) {
    CameraState zero{};
    CameraState full{};
    fill(full);
    telemetry_decode(&zero, packet.data(), packet.size());
    telemetry_decode(&full, packet.data(), packet.size());
    const FieldTexts of_zero = field_texts(zero);
    const FieldTexts of_full = field_texts(full);
    FieldTexts written;
    for (const auto& [name, text] : of_zero) {
        if (of_full.at(name) == text && !kNotInTheMessage.contains(name)) {
            written[name] = text;
        }
    }
    return written;
}

bool is_single(const std::string& name) {
    return name == "focus_percent" || name == "focus_point_x" || name == "focus_point_y" ||
           name == "wb_temp" || name == "ev_value";
}

// Singles are shown with six digits, and without the sign of what is no number.
bool same_single(const std::string& shown, const std::string& expected) {
    const double a = strtod(shown.c_str(), nullptr);
    const double b = strtod(expected.c_str(), nullptr);
    return (std::isnan(a) && std::isnan(b)) || a == b || std::abs(a - b) <= 1e-5 * std::abs(b);
}

std::string without_colons_in_capitals(std::string text) {
    std::erase(text, ':');
    for (char& letter : text) {
        letter = static_cast<char>(toupper(letter));
    }
    return text;
}

void expect_the_same(const FrameFields& frame, const Bytes& packet, const std::string& what) {
    const FieldTexts expected = decoded(packet);
    for (const std::string& name : state_field_names()) {
        const auto found = frame.find("vantarel.camera." + name);
        const std::string shown = found == frame.end() ? "" : found->second.at(0);
        const auto written = expected.find(name);
        if (written == expected.end()) {
            EXPECT_EQ(shown, "") << what << ": " << name;
        } else if (is_single(name)) {
            EXPECT_TRUE(same_single(shown, written->second))
                << what << ": " << name << " is " << shown << ", not " << written->second;
        } else if (name == "params_block") {
            EXPECT_EQ(without_colons_in_capitals(shown), written->second) << what;
        } else {
            EXPECT_EQ(shown, written->second) << what << ": " << name;
        }
    }
}

struct SentMessage {
    Bytes packet;
    std::string what;
};

void expect_the_same(const std::vector<SentMessage>& messages) {
    Capture capture;
    for (const SentMessage& message : messages) {
        capture.add_transfer(kFromCamera, control_envelope(message.packet));
    }
    std::vector<std::string> fields;
    for (const std::string& name : state_field_names()) {
        fields.push_back("vantarel.camera." + name);
    }
    const Frames frames = dissect(capture, fields);
    ASSERT_EQ(frames.size(), messages.size());
    for (std::size_t i = 0; i < frames.size() && !testing::Test::HasFailure(); ++i) {
        expect_the_same(frames[i], messages[i].packet, messages[i].what);
    }
}

constexpr std::size_t kLengths[] = {15, 18, 19, 22, 25, 49, 50, 52, 53, 59, 77, 85, 104};

Bytes message(std::size_t length, const Bytes& payload, std::uint16_t sequence = 0) {
    const std::uint8_t set = length == 15 ? 0x09 : length == 25 ? 0x04 : 0x02;
    const std::uint8_t id = length == 15 ? 0x52 : length == 25 ? 0x05 : 0x80;
    return camera_packet({0x01, 0x02, sequence, 0x00, set, id},
                         std::span(payload).first(length - 13));
}

TEST(DissectorMessages, EveryCodeOfEveryFieldIsNamedAsInTheReports) {
    std::vector<SentMessage> messages;
    for (const std::size_t length : kLengths) {
        for (unsigned code = 0; code < 256; ++code) {
            messages.push_back({message(length, Bytes(104, static_cast<std::uint8_t>(code))),
                                std::to_string(length) + " bytes of " + std::to_string(code)});
        }
    }
    expect_the_same(messages);
}

TEST(DissectorMessages, AnyNumberReadsAsTheReceiverReadsIt) {
    std::vector<SentMessage> messages;
    std::mt19937 random(7);
    for (const std::size_t length : kLengths) {
        for (unsigned round = 0; round < 50; ++round) {
            Bytes payload(104);
            for (std::uint8_t& byte : payload) {
                byte = static_cast<std::uint8_t>(random() >> 8);
            }
            messages.push_back({message(length, payload),
                                std::to_string(length) + " bytes, round " + std::to_string(round)});
        }
    }
    expect_the_same(messages);
}

TEST(DissectorMessages, CasesOfTheDecodersTest) {
    std::vector<SentMessage> messages;
    for (const TelemetryMessage& each : all_telemetry_messages()) {
        messages.push_back({each.packet, each.name});
    }
    expect_the_same(messages);
}

// The receiver's text lags a message behind; here stands what the message says.
TEST(DissectorMessages, TheShutterThatIsSetIsTheMessagesOwn) {
    Capture capture;
    Bytes payload(104);
    payload[13 - 11] = 2;
    payload[15 - 11] = 5;
    capture.add_transfer(kFromCamera, control_envelope(message(104, payload)));
    EXPECT_THAT(values_without_warning(capture, "vantarel.camera.shutter_set"),
                testing::ElementsAre("2.5\""));
}

TEST(DissectorMessages, TheCodeOfAFaultIsShown) {
    Capture capture;
    capture.add_transfer(kFromCamera, control_envelope(message(18, Bytes(104, 0x85))));
    EXPECT_THAT(values_without_warning(capture, "vantarel.camera.gimbal_fault"),
                testing::ElementsAre("133"));
}

bool receiver_knows(const Bytes& packet) {
    CameraState state{};
    telemetry_decode(&state, packet.data(), packet.size());
    const CameraState untouched{};
    return field_texts(state) != field_texts(untouched);
}

TEST(DissectorMessages, KnowsTheLengthsAndCommandsThatTheReceiverKnows) {
    Capture capture;
    std::vector<bool> known;
    for (std::size_t length = 13; length <= 255; ++length) {
        for (const auto& [set, id] : {std::pair{0x09, 0x52}, {0x04, 0x05}, {0x02, 0x80}}) {
            const Bytes packet = camera_packet({0x01, 0x02, 0, 0x00, static_cast<std::uint8_t>(set),
                                                static_cast<std::uint8_t>(id)},
                                               Bytes(length - 13, 0x01));
            known.push_back(receiver_knows(packet));
            capture.add_transfer(kFromCamera, control_envelope(packet));
        }
    }
    const auto names =
        all_values(dissect(capture, {"vantarel.packet.name"}), "vantarel.packet.name");
    ASSERT_EQ(names.size(), known.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(names[i] != "unknown", known[i]) << i / 3 + 13 << " bytes: " << names[i];
    }
}

TEST(DissectorMessages, NamesWhatTheSimulatedCameraSends) {
    Capture capture;
    const CameraModel model;
    for (std::size_t i = 0; i < kMessageCount; ++i) {
        capture.add_transfer(kFromCamera,
                             control_envelope(encode_message(static_cast<Message>(i), model,
                                                             static_cast<std::uint16_t>(i))));
    }
    EXPECT_THAT(values_without_warning(capture, "vantarel.packet.name"),
                testing::UnorderedElementsAre("gimbal attitude", "camera status", "camera settings",
                                              "focus", "parameter block", "battery", "drive space",
                                              "auxiliary words", "camera flag", "gimbal fault"));
}

}  // namespace
