// The plugin knows every command, both as the packets that reach the camera and as what the main
// application sends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "app/focus_config.h"
#include "control/app_command_dispatch.h"
#include "control/setting_lists.h"
#include "protocol/camera_packet.h"
#include "protocol/camera_state.h"
#include "simulator/command_table.h"
#include "tests/cases/app_commands.h"
#include "tests/cases/command_packets.h"
#include "tests/protocol_page.h"
#include "tests/unit/hex_bytes.h"
#include "tests/wireshark/page_commands.h"
#include "tests/wireshark/tshark.h"
#include "usb/camera_send.h"

using testing::ElementsAreArray;

namespace {

std::vector<Bytes> sent;
FocusLimits limits;

}  // namespace

ssize_t camera_send(const std::uint8_t* packet, std::size_t length) {
    sent.emplace_back(packet, packet + length);
    return static_cast<ssize_t>(length);
}

FocusLimits* focus_config_get() {
    return &limits;
}

void focus_config_save() {}

namespace {

class DissectorCommands : public testing::Test {
  protected:
    DissectorCommands() {
        camera_state = CameraState{};
        camera_packet_seq = 0;
        sent.clear();
    }
};

Capture packets_to_camera(const std::vector<Bytes>& packets) {
    Capture capture;
    for (const Bytes& packet : packets) {
        capture.add_transfer(kToCamera, packet);
    }
    return capture;
}

std::string joined_texts(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) {
        all += (all.empty() ? "" : "; ") + text;
    }
    return all;
}

Bytes packet_of(const CameraCommand& command) {
    Bytes payload(command.length - 13U);
    if (command.fifth != CameraCommand::kAny) {
        payload[4] = static_cast<std::uint8_t>(command.fifth);
    }
    return camera_packet(
        {command.sender, command.receiver, 0, command.type, command.set, command.id}, payload);
}

TEST_F(DissectorCommands, EachThatTheSimulatedCameraKnowsHasItsName) {
    std::vector<Bytes> packets;
    std::vector<std::string> names;
    for (const CameraCommand& command : camera_command_table()) {
        packets.push_back(packet_of(command));
        names.emplace_back(command.name);
    }
    const Frames frames = dissect(packets_to_camera(packets), {"vantarel.packet.name"});
    EXPECT_THAT(all_values(frames, "vantarel.packet.name"), ElementsAreArray(names));
}

TEST_F(DissectorCommands, EachNeedsItsRouteTypeSetIdAndLength) {
    std::vector<Bytes> packets;
    for (const CameraCommand& command : camera_command_table()) {
        for (std::uint8_t CameraCommand::*field :
             {&CameraCommand::sender, &CameraCommand::receiver, &CameraCommand::type,
              &CameraCommand::set, &CameraCommand::id, &CameraCommand::length}) {
            CameraCommand other = command;
            other.*field = static_cast<std::uint8_t>(other.*field + 11);
            packets.push_back(packet_of(other));
        }
    }
    const Frames frames = dissect(packets_to_camera(packets), {"vantarel.packet.name"});
    EXPECT_EQ(all_values(frames, "vantarel.packet.name"),
              std::vector<std::string>(packets.size(), "unknown"));
}

// Each operation's packets as the tests of the operations have them, but for values that mean
// nothing: there is no warning.
TEST_F(DissectorCommands, NoPacketOfTheReceiverIsUnknown) {
    std::vector<Bytes> packets;
    for (const CommandCase& each : command_cases()) {
        std::istringstream lines(each.packets);
        for (std::string line; std::getline(lines, line);) {
            packets.push_back(bytes_of_hex(line));
        }
    }
    const Frames frames = dissect(packets_to_camera(packets),
                                  {"vantarel.packet.name", "vantarel.packet.crc8.status",
                                   "vantarel.packet.crc16.status", "vantarel.packet.fixed"});
    const std::vector<std::string> right(packets.size(), "right");
    EXPECT_THAT(all_values(frames, "vantarel.packet.name"), testing::Each(testing::Ne("unknown")));
    EXPECT_EQ(all_values(frames, "vantarel.packet.crc8.status"), right);
    EXPECT_EQ(all_values(frames, "vantarel.packet.crc16.status"), right);
    EXPECT_THAT(all_values(frames, "vantarel.packet.fixed"), testing::IsEmpty());
}

TEST_F(DissectorCommands, WhatACommandNeverHasIsMarked) {
    const auto warnings = [](const Bytes& packet) {
        return joined_texts(
            all_values(dissect(packets_to_camera({packet}), {kWarnings}), kWarnings));
    };
    EXPECT_EQ(warnings(camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x1E}, Bytes{4, 0})), "");
    EXPECT_EQ(warnings(camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x1E}, Bytes{4, 1})),
              "From byte 12 on there is 01, and always 00");
    EXPECT_EQ(warnings(camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x2A}, Bytes{1})),
              "The value means nothing");
    EXPECT_EQ(warnings(camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0xB8}, Bytes{2, 0x48, 0, 0})),
              "The value means nothing");
    EXPECT_EQ(warnings(camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x77}, Bytes{0})),
              "Nobody knows this packet");
}

// The words of one operation, and the field that shows each of them.
struct Setting {
    const char* field;
    void (*set)(const char* word);
    std::vector<const char*> words;
};

std::vector<const char*> all_of(TextList words) {
    return {words.begin(), words.end()};
}

const Setting kSettings[] = {
    {"shutter", [](const char* word) { camera_set_shutter(word); }, all_of(kShutterTimes)},
    {"aperture", [](const char* word) { camera_set_aperture(word); }, all_of(kApertureSteps)},
    {"iso",
     [](const char* word) { camera_set_iso(word); },
     {"auto", "100", "200", "400", "800", "1600", "3200", "6400"}},
    {"ev", [](const char* word) { camera_set_ev(word); }, all_of(kEvSteps)},
    {"wb", [](const char* word) { camera_set_wb(word, "5600"); }, all_of(kWbSteps)},
    {"color", [](const char* word) { camera_set_color(word); }, all_of(kColorSteps)},
    {"color", [](const char* word) { camera_set_color(word); }, {"d-clike"}},
    {"image_mode", [](const char* word) { camera_set_image_mode(word); }, all_of(kImageModesX5)},
    {"aspect_ratio", [](const char* word) { camera_set_aspect_ratio(word); }, {"4:3", "16:9"}},
    {"photo_format",
     [](const char* word) { camera_set_shot_mode(word); },
     {"raw", "jpg", "jpg+raw"}},
    {"antiflicker", [](const char* word) { camera_set_antiflicker(word); }, {"auto", "50", "60"}},
    {"video_standard", [](const char* word) { camera_set_video_standard(word); }, {"PAL", "NTSC"}},
    {"power",
     [](const char* word) { camera_power(word); },
     {"sleep", "wakeup", "restart", "shutdown"}},
    {"horizon", [](const char* word) { gimbal_horizon(word); }, {"cw", "ccw", "zero"}},
    {"mode", [](const char* word) { camera_set_mode(word); }, {"photo", "video"}},
    {"pitch_lock", [](const char* word) { gimbal_pitch_lock(word); }, {"lock", "unlock"}},
    {"ae_lock", [](const char* word) { camera_set_ae_lock(word); }, {"lock", "unlock"}},
};

TEST_F(DissectorCommands, ShowsEveryWordThatWasSet) {
    std::vector<std::string> fields = {kWarnings};
    std::vector<std::string> expected;
    for (const Setting& setting : kSettings) {
        fields.push_back(std::string("vantarel.command.") + setting.field);
        for (const char* word : setting.words) {
            setting.set(word);
            expected.push_back(fields.back() + " " + word);
        }
    }
    const Frames frames = dissect(packets_to_camera(sent), fields);
    std::vector<std::string> shown;
    for (const FrameFields& frame : frames) {
        for (const auto& [field, values] : frame) {
            shown.push_back(field + " " + values.at(0));
        }
    }
    EXPECT_EQ(shown, expected);
}

// JSON goes behind its mark, the others are bytes in hexadecimal.
Bytes datagram_of(const std::string& command) {
    const std::string text = "!" + command;
    return command[0] == '{' ? Bytes(text.begin(), text.end()) : bytes_of_hex(command);
}

TEST_F(DissectorCommands, SummariesOfThePagesCommands) {
    std::map<std::string, std::string> expected;
    for (const PageCommand& each : kPageCommands) {
        expected[each.command] = each.summaries;
    }
    std::map<std::string, std::string> summaries;
    std::vector<std::string> command_of_packet;
    for (const char* table : {"<!-- commands -->", "<!-- binary commands -->"}) {
        for (const auto& row : page_table(table)) {
            const std::string command = unquoted(row.at(0));
            const Bytes datagram = datagram_of(command);
            camera_state.focus_range = 1000;
            limits.mf_min = 0;
            limits.mf_max = 0;
            app_command_dispatch(datagram.data(), static_cast<std::uint16_t>(datagram.size()), "",
                                 0);
            summaries[command] = "";
            command_of_packet.resize(sent.size(), command);
        }
    }
    const auto shown = values_without_warning(packets_to_camera(sent), "vantarel.packet.summary");
    ASSERT_EQ(shown.size(), sent.size());
    for (std::size_t i = 0; i < shown.size(); ++i) {
        std::string& all = summaries[command_of_packet[i]];
        all += (all.empty() ? "" : "; ") + shown[i];
    }
    EXPECT_EQ(summaries, expected);
}

// A command that makes the receiver do nothing is marked, any other one named.
TEST_F(DissectorCommands, KnowsWhichJsonCommandsDoSomething) {
    Capture capture;
    std::vector<const AppCommandCase*> cases;
    for (const AppCommandCase& each : kAppCommands) {
        const std::string text = std::string("!") + each.json;
        capture.add_datagram(5000, 40000, Bytes(text.begin(), text.end()));
        cases.push_back(&each);
    }
    const Frames frames =
        dissect(capture, {"vantarel.app.command", "vantarel.app.unknown", "vantarel.app.no_json"});
    ASSERT_EQ(frames.size(), cases.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const bool does_something = cases[i]->calls[0] != '\0';
        const bool is_marked = frames[i].contains("vantarel.app.unknown") ||
                               frames[i].contains("vantarel.app.no_json");
        EXPECT_EQ(frames[i].contains("vantarel.app.command"), does_something)
            << cases[i]->name << ": " << cases[i]->json;
        EXPECT_EQ(is_marked, !does_something) << cases[i]->name << ": " << cases[i]->json;
    }
}

TEST_F(DissectorCommands, NamesThePagesDatagrams) {
    Capture capture;
    std::size_t count = 0;
    for (const auto& row : page_table("<!-- commands -->")) {
        const std::string text = "!" + unquoted(row.at(0));
        capture.add_datagram(5000, 40000, Bytes(text.begin(), text.end()));
        ++count;
    }
    EXPECT_EQ(values_without_warning(capture, "vantarel.app.command").size(), count);
}

}  // namespace
