// docs/protocol.md is true: its tables and examples, against the program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "app/focus_config.h"
#include "control/app_command_dispatch.h"
#include "control/capture_commands.h"
#include "control/rc_raw_block.h"
#include "control/rc_settings.h"
#include "hex_bytes.h"
#include "link/telemetry_report.h"
#include "protocol/camera_packet.h"
#include "protocol/camera_state.h"
#include "tests/cases/app_commands.h"
#include "tests/cases/report_datagrams.h"
#include "tests/protocol_page.h"
#include "usb/camera_send.h"
#include "video/frame_layout.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

std::vector<Bytes> sent;
FocusLimits limits;
int saves = 0;

}  // namespace

ssize_t camera_send(const std::uint8_t* packet, std::size_t length) {
    sent.emplace_back(packet, packet + length);
    return static_cast<ssize_t>(length);
}

FocusLimits* focus_config_get() {
    return &limits;
}

void focus_config_save() {
    ++saves;
}

namespace {

class ProtocolPage : public testing::Test {
  protected:
    ProtocolPage() {
        sent.clear();
        saves = 0;
        limits.mf_min = 0;
        limits.mf_max = 0;
        camera_state = CameraState{};
    }
};

std::string text_report() {
    std::array<char, kTextReportCapacity> report{};
    const std::size_t length = build_text_report(camera_state, limits, report);
    EXPECT_EQ(report[0], '\x07');
    return std::string(report.data() + 1, length - 1) + "\n";
}

TEST_F(ProtocolPage, EmptyTextReport) {
    EXPECT_EQ(page_block("<!-- report: empty -->"), text_report());
}

TEST_F(ProtocolPage, TextReport) {
    fill_reported_state(camera_state, limits);
    camera_state.ae = 0;
    EXPECT_EQ(page_block("<!-- report: example -->"), text_report());
}

TEST_F(ProtocolPage, KeysOfTheTextReport) {
    std::string keys;
    for (const auto& row : page_table("<!-- report: keys -->")) {
        keys += unquoted(row.at(0)) + " ";
    }
    std::string reported;
    const std::string report = text_report();
    for (std::size_t at = 0; at + 1 < report.size();) {
        const std::size_t equals = report.find('=', at);
        reported += report.substr(at, equals - at) + " ";
        at = report.find(',', equals) + 1;
    }
    EXPECT_EQ(keys, reported);
}

using Setter = void (*)(CameraState& state, std::uint16_t value);

// The focus point goes out in thousandths: this value comes out as itself.
const std::map<std::string, Setter> kStatusFields = {
    {"gimbal_unlocked",
     [](CameraState& s, std::uint16_t v) { s.gimbal_unlocked = static_cast<std::uint8_t>(v); }},
    {"yaw", [](CameraState& s, std::uint16_t v) { s.yaw = static_cast<std::int16_t>(v); }},
    {"pitch", [](CameraState& s, std::uint16_t v) { s.pitch = static_cast<std::int16_t>(v); }},
    {"roll", [](CameraState& s, std::uint16_t v) { s.roll = static_cast<std::int16_t>(v); }},
    {"record_state",
     [](CameraState& s, std::uint16_t v) { s.record_state = static_cast<std::uint8_t>(v); }},
    {"status_byte42",
     [](CameraState& s, std::uint16_t v) { s.status_byte42 = static_cast<std::uint8_t>(v); }},
    {"status_flags",
     [](CameraState& s, std::uint16_t v) { s.status_flags = static_cast<std::uint8_t>(v); }},
    {"focus_valid",
     [](CameraState& s, std::uint16_t v) { s.focus_valid = static_cast<std::uint8_t>(v); }},
    {"focus_auto",
     [](CameraState& s, std::uint16_t v) { s.focus_auto = static_cast<std::uint8_t>(v); }},
    {"focus_range", [](CameraState& s, std::uint16_t v) { s.focus_range = v; }},
    {"focus_position", [](CameraState& s, std::uint16_t v) { s.focus_position = v; }},
    {"focus_point_x",
     [](CameraState& s, std::uint16_t v) { s.focus_point_x = static_cast<float>(v) / 1000.0F; }},
    {"focus_point_y",
     [](CameraState& s, std::uint16_t v) { s.focus_point_y = static_cast<float>(v) / 1000.0F; }},
    {"focus_byte32",
     [](CameraState& s, std::uint16_t v) { s.focus_byte32 = static_cast<std::uint8_t>(v); }},
    {"focus_byte42",
     [](CameraState& s, std::uint16_t v) { s.focus_byte42 = static_cast<std::uint8_t>(v); }},
    {"settings_byte69",
     [](CameraState& s, std::uint16_t v) { s.settings_byte69 = static_cast<std::uint8_t>(v); }},
    {"gimbal_error",
     [](CameraState& s, std::uint16_t v) { s.gimbal_error = static_cast<std::uint8_t>(v); }},
    {"camera_flag",
     [](CameraState& s, std::uint16_t v) { s.camera_flag = static_cast<std::uint8_t>(v); }},
    {"settings_byte100",
     [](CameraState& s, std::uint16_t v) { s.settings_byte100 = static_cast<std::uint8_t>(v); }},
    {"attitude_consts[0]",
     [](CameraState& s, std::uint16_t v) { s.attitude_consts[0] = static_cast<std::int16_t>(v); }},
    {"attitude_consts[1]",
     [](CameraState& s, std::uint16_t v) { s.attitude_consts[1] = static_cast<std::int16_t>(v); }},
    {"attitude_consts[2]",
     [](CameraState& s, std::uint16_t v) { s.attitude_consts[2] = static_cast<std::int16_t>(v); }},
    {"attitude_consts[3]",
     [](CameraState& s, std::uint16_t v) { s.attitude_consts[3] = static_cast<std::int16_t>(v); }},
};

TEST_F(ProtocolPage, FieldsOfTheStatusRecord) {
    std::size_t end = 0;
    std::set<std::string> seen;
    for (const auto& row : page_table("### Status record")) {
        const std::size_t offset = std::stoul(row.at(0));
        const std::size_t size = std::stoul(row.at(1));
        const std::string field = unquoted(row.at(2));
        EXPECT_EQ(offset, end) << row.at(2);
        end = offset + size;
        if (field.empty()) {
            EXPECT_THAT(row.at(2), testing::AnyOf("type", "reserved"));
            continue;
        }
        ASSERT_TRUE(kStatusFields.contains(field)) << field;
        seen.insert(field);
        const std::uint16_t value = size == 2 ? 5000 : 0x5A;
        CameraState state;
        kStatusFields.at(field)(state, value);
        std::array<std::uint8_t, kStatusRecordSize> expected{0x06};
        expected[offset] = static_cast<std::uint8_t>(value);
        if (size == 2) {
            expected[offset + 1] = static_cast<std::uint8_t>(value >> 8);
        }
        EXPECT_EQ(build_status_record(state), expected) << field;
    }
    EXPECT_EQ(end, kStatusRecordSize);
    EXPECT_EQ(seen.size(), kStatusFields.size());
}

TEST_F(ProtocolPage, ExampleOfTheStatusRecord) {
    CameraState state;
    state.gimbal_unlocked = 1;
    state.yaw = 900;
    state.pitch = -150;
    state.roll = 12;
    state.record_state = 0x80;
    state.status_byte42 = 1;
    state.focus_valid = 1;
    state.focus_auto = 1;
    state.focus_range = 1024;
    state.focus_position = 512;
    state.focus_point_x = 0.5F;
    state.focus_point_y = 0.5F;
    state.focus_byte42 = 3;
    state.attitude_consts[0] = 320;
    state.attitude_consts[1] = -320;
    state.attitude_consts[2] = 30;
    state.attitude_consts[3] = -124;
    const auto record = build_status_record(state);
    EXPECT_EQ(bytes_of_hex(page_block("<!-- status: example -->")),
              Bytes(record.begin(), record.end()));
}

TEST_F(ProtocolPage, ExampleOfTheParameterBlock) {
    fill_reported_state(camera_state, limits);
    const auto block = build_parameter_block(camera_state);
    EXPECT_EQ(bytes_of_hex(page_block("<!-- parameters: example -->")),
              Bytes(block.begin(), block.end()));
}

TEST_F(ProtocolPage, FirstBytesAndLengthsOfTheReports) {
    const auto rows = page_table("<!-- reports -->");
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(bytes_of_hex(rows[0].at(1)), Bytes{0x07});
    EXPECT_EQ(rows[0].at(2), "below " + std::to_string(kTextReportCapacity) + " bytes");
    const auto record = build_status_record(camera_state);
    EXPECT_EQ(bytes_of_hex(rows[1].at(1)), Bytes(record.begin(), record.begin() + 2));
    EXPECT_EQ(rows[1].at(2), std::to_string(record.size()) + " bytes");
    const auto block = build_parameter_block(camera_state);
    EXPECT_EQ(bytes_of_hex(rows[2].at(1)), Bytes(block.begin(), block.begin() + 2));
    EXPECT_EQ(rows[2].at(2), std::to_string(block.size()) + " bytes");
}

// "01 02 02 01; 04 ..." as packets' receiver, set, id and payload.
std::vector<Bytes> packets_of_cell(const std::string& cell) {
    constexpr char kThreeTimes[] = "three times: ";
    std::vector<Bytes> packets;
    if (cell.starts_with("none: ")) {
        return packets;
    }
    const bool three_times = cell.starts_with(kThreeTimes);
    const std::string list = three_times ? cell.substr(strlen(kThreeTimes)) : cell;
    for (int times = three_times ? 3 : 1; times > 0; --times) {
        for (std::size_t at = 0; at < list.size();) {
            const std::size_t end = std::min(list.find(';', at), list.size());
            packets.push_back(bytes_of_hex(list.substr(at, end - at)));
            at = end + 1;
        }
    }
    return packets;
}

// The same of what was sent.
std::vector<Bytes> packets_sent() {
    std::vector<Bytes> packets;
    for (const Bytes& packet : sent) {
        Bytes shown = {packet.at(5), packet.at(9), packet.at(10)};
        shown.insert(shown.end(), packet.begin() + 11, packet.end() - 2);
        packets.push_back(shown);
    }
    sent.clear();
    return packets;
}

void dispatch(const Bytes& datagram) {
    testing::internal::CaptureStderr();
    app_command_dispatch(datagram.data(), static_cast<std::uint16_t>(datagram.size()), "127.0.0.1",
                         5000);
    testing::internal::GetCapturedStderr();
}

TEST_F(ProtocolPage, JsonCommands) {
    camera_state.focus_range = 1000;
    for (const auto& row : page_table("<!-- commands -->")) {
        const std::string json = unquoted(row.at(0));
        Bytes datagram = {'!'};
        datagram.insert(datagram.end(), json.begin(), json.end());
        dispatch(datagram);
        EXPECT_EQ(packets_sent(), packets_of_cell(row.at(1))) << json;
    }
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(limits.mf_max, 90);
    EXPECT_EQ(gimbal_movement_mode, kMovementAbsolute);
}

// A word of the vocabulary that the page does not have would be found by nobody.
TEST_F(ProtocolPage, HasEveryWordOfTheVocabulary) {
    std::string page;
    for (const auto& row : page_table("<!-- commands -->")) {
        page += row.at(0) + "\n";
    }
    const std::regex command(R"("cmd":"[a-z_]+")");
    std::set<std::string> words;
    for (const AppCommandCase& each : kAppCommands) {
        std::cmatch match;
        if (each.calls[0] != '\0' && std::regex_search(each.json, match, command)) {
            words.insert(match.str());
        }
    }
    EXPECT_GE(words.size(), 28U);
    for (const std::string& word : words) {
        EXPECT_THAT(page, testing::HasSubstr(word));
    }
}

TEST_F(ProtocolPage, BinaryCommands) {
    for (const auto& row : page_table("<!-- binary commands -->")) {
        dispatch(bytes_of_hex(unquoted(row.at(0))));
        EXPECT_EQ(packets_sent(), packets_of_cell(row.at(1))) << row.at(0);
    }
}

TEST_F(ProtocolPage, WholePacket) {
    camera_packet_seq = 0x2FDE;
    testing::internal::CaptureStderr();
    camera_record(1);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(sent, std::vector<Bytes>{bytes_of_hex(
                        page_block("<!-- packet: record start, sequence number 0x2FDE -->"))});
}

TEST_F(ProtocolPage, HeaderOfTheRing) {
    const auto rows = page_table("<!-- ring header -->");
    const auto offset = [&](std::size_t row) { return std::stoul(rows.at(row).at(0)); };
    EXPECT_EQ(offset(0), kClearRequestOffset);
    EXPECT_EQ(offset(1), kLatestSequenceOffset);
    EXPECT_EQ(offset(2), kNextSlotOffset);
    EXPECT_EQ(offset(4), kRingHeaderSize);
    EXPECT_EQ(rows.at(4).at(1), std::to_string(kSlotCount) + " x " + std::to_string(kSlotSize));
    EXPECT_EQ(std::stoul(rows.at(3).at(1)), kRingHeaderSize - offset(3));
}

TEST_F(ProtocolPage, SlotOfTheRing) {
    const auto rows = page_table("<!-- ring slot -->");
    const auto offset = [&](std::size_t row) { return std::stoul(rows.at(row).at(0)); };
    EXPECT_EQ(offset(0), kSlotLengthOffset);
    EXPECT_EQ(offset(1), kSlotSequenceOffset);
    EXPECT_EQ(offset(4), kSlotHeaderSize);
    EXPECT_EQ(std::stoul(rows.at(4).at(1)), kMaxPartSize);
    std::size_t end = 0;
    for (const auto& row : rows) {
        EXPECT_EQ(std::stoul(row.at(0)), end);
        end += std::stoul(row.at(1));
    }
    EXPECT_EQ(end, kSlotSize);
}

TEST_F(ProtocolPage, SizesOfTheSharedMemory) {
    const std::string page = page_text();
    EXPECT_THAT(page, testing::HasSubstr("`vantarel_framebuffer`, " +
                                         std::to_string(kFrameBufferSize) + " bytes"));
    EXPECT_THAT(
        page, testing::HasSubstr(std::to_string(kTranscodingBufferSize) + " bytes with slots of " +
                                 std::to_string(kTranscodingSlotSize)));
    EXPECT_THAT(
        page, testing::HasSubstr("`shared_rc_raw`, " + std::to_string(kRcRawBlockSize) + " bytes"));
}

TEST_F(ProtocolPage, Channels) {
#define CHANNEL(name)                                            \
    {                                                            \
        "rc_" #name, {                                           \
            offsetof(RcRawBlock, name), sizeof(RcRawBlock::name) \
        }                                                        \
    }
    const std::map<std::string, std::pair<std::size_t, std::size_t>> channels = {
        CHANNEL(pan),
        CHANNEL(tilt),
        CHANNEL(dutch),
        CHANNEL(position),
        CHANNEL(lock),
        CHANNEL(lock2),
        CHANNEL(record),
        CHANNEL(mode),
        CHANNEL(focus_type),
        CHANNEL(focus_in),
        CHANNEL(focus_out),
        CHANNEL(focus_abs),
        CHANNEL(zoom_in),
        CHANNEL(zoom_out),
        CHANNEL(zoom),
        CHANNEL(dzoom_in),
        CHANNEL(dzoom_out),
        CHANNEL(dzoom),
        CHANNEL(ae_lock),
        CHANNEL(image_mode),
        CHANNEL(image_mode_next),
        CHANNEL(image_mode_prev),
        CHANNEL(iso),
        CHANNEL(iso_next),
        CHANNEL(iso_prev),
        CHANNEL(shutter),
        CHANNEL(shutter_next),
        CHANNEL(shutter_prev),
        CHANNEL(aperture),
        CHANNEL(aperture_next),
        CHANNEL(aperture_prev),
        CHANNEL(color),
        CHANNEL(color_next),
        CHANNEL(color_prev),
        CHANNEL(wb),
        CHANNEL(wb_next),
        CHANNEL(wb_prev),
        CHANNEL(ev_abs),
        CHANNEL(ev),
        CHANNEL(ev_next),
        CHANNEL(ev_prev),
        CHANNEL(lock_enable),
        CHANNEL(focus_abs_enable),
        CHANNEL(ev_abs_enable),
    };
#undef CHANNEL
    const std::map<std::string, std::size_t> type_sizes = {
        {"double", 8}, {"uint8", 1}, {"uint16", 2}};
    const auto rows = page_table("<!-- channels -->");
    EXPECT_EQ(rows.size(), channels.size());
    for (const auto& row : rows) {
        const std::string name = unquoted(row.at(2));
        ASSERT_TRUE(channels.contains(name)) << name;
        EXPECT_EQ(std::stoul(row.at(0)), channels.at(name).first) << name;
        EXPECT_EQ(type_sizes.at(row.at(1)), channels.at(name).second) << name;
    }
}

}  // namespace
