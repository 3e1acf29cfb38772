// Datagrams: the reports and commands of the main application's port, and raw packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/cases/report_datagrams.h"
#include "tests/protocol_page.h"
#include "tests/unit/hex_bytes.h"
#include "tests/wireshark/tshark.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint16_t kApplication = 5000;
constexpr std::uint16_t kReceiver = 40000;  // the system chooses it
constexpr std::uint16_t kRawPackets = 6000;
constexpr char kKind[] = "vantarel.link.kind";

Bytes bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

Capture report(const Bytes& bytes) {
    Capture capture;
    capture.add_datagram(kReceiver, kApplication, bytes);
    return capture;
}

Capture command(const Bytes& bytes) {
    Capture capture;
    capture.add_datagram(kApplication, kReceiver, bytes);
    return capture;
}

std::vector<std::string> warnings_of(const Capture& capture) {
    return all_values(dissect(capture, {kWarnings}), kWarnings);
}

Bytes text_report() {
    return bytes_of(kReportedText);
}

// -- reports ---------------------------------------------------------------------------------

TEST(DissectorLink, EachKeyOfTheTextReportIsAField) {
    const std::string text(kReportedText + 1);
    std::vector<std::string> fields = {kWarnings};
    std::vector<std::string> expected;
    for (const auto& row : page_table("<!-- report: keys -->")) {
        const std::string key = unquoted(row.at(0));
        const std::size_t value = text.find(key + "=") + key.size() + 1;
        fields.push_back("vantarel.report." + key);
        expected.push_back(key + "=" + text.substr(value, text.find(',', value) - value));
    }
    const Frames frames = dissect(report(text_report()), fields);
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_FALSE(frames[0].contains(kWarnings));
    std::vector<std::string> shown;
    for (const std::string& field : fields) {
        if (frames[0].contains(field)) {
            shown.push_back(field.substr(sizeof("vantarel.report.") - 1) + "=" +
                            frames[0].at(field).at(0));
        }
    }
    EXPECT_EQ(shown, expected);
}

TEST(DissectorLink, TheFirstReportIsWithoutAnyWarning) {
    std::string text = page_block("<!-- report: empty -->");
    text.pop_back();
    EXPECT_THAT(values_without_warning(report(bytes_of("\x07" + text)), kKind),
                ElementsAre("text report"));
}

TEST(DissectorLink, AKeyTooFewOrInAnotherPlaceIsMarked) {
    Bytes shorter = text_report();
    const std::string last = "mf_max=90,";
    shorter.resize(shorter.size() - last.size());
    EXPECT_THAT(warnings_of(report(shorter)), ElementsAre("The keys from 'mf_max' on are missing"));
    Bytes other = text_report();
    other[1] = 'C';
    EXPECT_THAT(warnings_of(report(other)),
                ElementsAre("'Camera_detected' in the place of 'camera_detected'"));
}

TEST(DissectorLink, ATextReportMayBeCapturedInPart) {
    Capture capture;
    capture.add_datagram(kReceiver, kApplication, text_report(), 60);
    const Frames frames = dissect(capture, {"vantarel.report.camera_model", kWarnings});
    EXPECT_THAT(all_values(frames, "vantarel.report.camera_model"),
                ElementsAre("DJI Osmo RAW (X5R)"));
    EXPECT_THAT(all_values(frames, kWarnings), IsEmpty());
}

std::string little_endian_text(const Bytes& record, std::size_t offset, std::size_t size,
                               bool is_signed) {
    const unsigned low = record[offset];
    if (size == 1) {
        return std::to_string(low);
    }
    const unsigned both = low | static_cast<unsigned>(record[offset + 1]) << 8;
    return std::to_string(is_signed ? static_cast<std::int16_t>(both) : static_cast<int>(both));
}

TEST(DissectorLink, EachFieldOfTheStatusRecordIsWhereThePageHasIt) {
    const Bytes record(std::begin(kReportedStatus), std::end(kReportedStatus));
    std::vector<std::string> fields;
    std::vector<std::string> expected;
    for (const auto& row : page_table("### Status record")) {
        std::string name = unquoted(row.at(2));
        if (name.empty()) {
            continue;
        }
        std::erase(name, '[');
        std::erase(name, ']');
        if (name.starts_with("attitude_consts")) {
            name.erase(name.find('s', sizeof("attitude_const") - 1), 1);
        }
        const bool is_signed =
            name == "yaw" || name == "pitch" || name == "roll" || name.starts_with("attitude");
        fields.push_back("vantarel.report." + name);
        expected.push_back(
            fields.back() + " " +
            little_endian_text(record, std::stoul(row.at(0)), std::stoul(row.at(1)), is_signed));
    }
    const Frames frames = dissect(report(record), fields);
    std::vector<std::string> shown;
    for (const std::string& field : fields) {
        shown.push_back(field + " " +
                        (frames.at(0).contains(field) ? frames.at(0).at(field).at(0) : "nothing"));
    }
    EXPECT_EQ(shown, expected);
    EXPECT_THAT(warnings_of(report(record)), IsEmpty());
}

TEST(DissectorLink, BitsOfTheStatusRecordAreWords) {
    Bytes record(std::begin(kReportedStatus), std::end(kReportedStatus));
    record[24] = 0x02;
    const Frames frames = dissect(
        report(record), {"vantarel.report.record_text", "vantarel.report.photo_text",
                         "vantarel.report.status_text", "vantarel.report.assistants_text", kInfo});
    EXPECT_THAT(
        frames.at(0),
        ElementsAre(
            testing::Pair(kInfo, ElementsAre("status record: yaw -1234, pitch 4951, roll -32768")),
            testing::Pair("vantarel.report.assistants_text", ElementsAre("afa")),
            testing::Pair("vantarel.report.photo_text", ElementsAre("taking a photo")),
            testing::Pair("vantarel.report.record_text", ElementsAre("REC")),
            testing::Pair("vantarel.report.status_text", ElementsAre("busy loop"))));
    record[9] = 0x40;
    record[11] = 0x10;
    record[24] = 0x01;
    const Frames others =
        dissect(report(record), {"vantarel.report.record_text", "vantarel.report.photo_text",
                                 "vantarel.report.status_text", "vantarel.report.assistants_text"});
    EXPECT_THAT(
        others.at(0),
        ElementsAre(testing::Pair("vantarel.report.assistants_text", ElementsAre("mfa")),
                    testing::Pair("vantarel.report.record_text", ElementsAre("REC starting")),
                    testing::Pair("vantarel.report.status_text", ElementsAre("loop"))));
}

TEST(DissectorLink, AStatusRecordOfAnotherLengthIsMarked) {
    Bytes record(std::begin(kReportedStatus), std::end(kReportedStatus));
    record.pop_back();
    EXPECT_THAT(warnings_of(report(record)), ElementsAre("36 bytes, and should be 37"));
}

TEST(DissectorLink, TheParameterBlockIsShownWhole) {
    const Bytes block(std::begin(kReportedParameters), std::end(kReportedParameters));
    const auto shown = values_without_warning(report(block), "vantarel.report.parameters");
    std::string digits;
    for (std::size_t i = 2; i < block.size(); ++i) {
        char byte[3];
        snprintf(byte, sizeof byte, "%02x", block[i]);
        digits += byte;
    }
    EXPECT_THAT(shown, ElementsAre(digits));
}

// -- commands --------------------------------------------------------------------------------

TEST(DissectorLink, WhatIsNoCommandIsASignOfLife) {
    EXPECT_THAT(values_without_warning(command(bytes_of("hello")), kKind),
                ElementsAre("sign of life"));
    EXPECT_THAT(values_without_warning(report(bytes_of("hello")), kKind),
                ElementsAre("unknown report"));
    for (const std::uint8_t first : Bytes{0x06, 0x07}) {
        EXPECT_THAT(values_without_warning(command({first, 0x00}), kKind),
                    ElementsAre("sign of life"))
            << "as a report begins";
    }
    for (const std::uint8_t first : Bytes{0x05, 0x21}) {
        EXPECT_THAT(values_without_warning(report({first, 0x00}), kKind),
                    ElementsAre("unknown report"))
            << "as a command begins";
    }
}

TEST(DissectorLink, JsonThatIsNoneAndCommandsThatDoNothingAreMarked) {
    EXPECT_THAT(warnings_of(command(bytes_of("!{\"cmd\":"))),
                ElementsAre("This is no JSON object: the receiver does nothing"));
    EXPECT_THAT(warnings_of(command(bytes_of("!"))),
                ElementsAre("This is no JSON object: the receiver does nothing"));
    EXPECT_THAT(warnings_of(command(bytes_of("!{\"cmd\":\"iso\"}"))),
                ElementsAre("No such command: the receiver does nothing"));
}

TEST(DissectorLink, EscapedLettersOfEachLengthAreRead) {
    const std::string json =
        R"(!{"cmd":"color","param":"\u0041\u00e4\u07ff\u0800\ud7ff\uffe5\ud800\udc00\udbff\udfff\/"})";
    EXPECT_THAT(
        all_values(dissect(command(bytes_of(json)), {"vantarel.app.param"}), "vantarel.app.param"),
        ElementsAre("A\u00e4\u07ff\u0800\xED\x9F\xBF\uffe5\U00010000\U0010ffff/"));
    EXPECT_THAT(warnings_of(command(bytes_of(R"(!{"cmd":"\ud800\ud800"})"))),
                ElementsAre("This is no JSON object: the receiver does nothing"));
    EXPECT_THAT(warnings_of(command(bytes_of(R"(!{"cmd":"\udc00"})"))),
                ElementsAre("This is no JSON object: the receiver does nothing"));
}

TEST(DissectorLink, AJsonCommandOfMoreThanTheReceiverTakesIsMarked) {
    const std::string json = "!{\"cmd\":\"shot\"}";
    EXPECT_THAT(warnings_of(command(bytes_of(json + std::string(10000 - json.size(), ' ')))),
                IsEmpty());
    EXPECT_THAT(warnings_of(command(bytes_of(json + std::string(10001 - json.size(), ' ')))),
                ElementsAre("The receiver takes 10,000 bytes of it"));
}

TEST(DissectorLink, ZoomMessages) {
    const auto zoom = [](const Bytes& bytes) {
        const Frames frames = dissect(command(bytes), {"vantarel.app.zoom", kWarnings});
        return all_values(frames, "vantarel.app.zoom").at(0) +
               (frames[0].contains(kWarnings) ? ": " + frames[0].at(kWarnings).at(0) : "");
    };
    EXPECT_EQ(zoom({5, 1, 0xFE, 0xFF}), "digital by -2");
    EXPECT_EQ(zoom({5, 1, 0, 0}), "digital stop");
    EXPECT_EQ(zoom({5, 2, 1}), "optical in");
    EXPECT_EQ(zoom({5, 2, 0xFF, 0xFF}), "optical out");
    EXPECT_EQ(zoom({5, 2}), "optical stop");
    EXPECT_EQ(zoom({5}), "unknown: No such zoom: the receiver does nothing");
}

TEST(DissectorLink, AnotherPortIsDecodedAsAskedFor) {
    Capture capture;
    capture.add_datagram(kReceiver, 7000, text_report());
    const Frames frames = dissect(capture, {kKind}, "-d udp.port==7000,vantarel_link");
    EXPECT_THAT(all_values(frames, kKind), ElementsAre("text report"));
}

// -- raw packets -----------------------------------------------------------------------------

TEST(DissectorLink, TheRawPacketOfThePage) {
    Capture capture;
    capture.add_datagram(
        50000, kRawPackets,
        bytes_of_hex(page_block("<!-- packet: record start, sequence number 0x2FDE -->")));
    EXPECT_THAT(values_without_warning(capture, "vantarel.packet.summary"),
                ElementsAre("record start"));
    EXPECT_THAT(values_without_warning(capture, "vantarel.packet.sequence"), ElementsAre("0x2fde"));
}

TEST(DissectorLink, WhatComesFromThePortOfRawPacketsIsNone) {
    Capture capture;
    capture.add_datagram(kRawPackets, 50000, bytes_of("hello"));
    EXPECT_THAT(all_values(dissect(capture, {"_ws.col.Protocol"}), "_ws.col.Protocol"),
                ElementsAre("UDP"));
}

TEST(DissectorLink, ARawDatagramThatIsNoPacketIsMarked) {
    Capture capture;
    capture.add_datagram(50000, kRawPackets, bytes_of("hello"));
    EXPECT_THAT(warnings_of(capture), ElementsAre("Bytes that are no packet are passed over"));
}

TEST(DissectorLink, ARawDatagramThatTheCaptureCutsOffIsNotCalledLost) {
    const Bytes packet = camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x2A}, Bytes{5});
    Capture capture;
    capture.add_datagram(50000, kRawPackets, packet, packet.size() - 1);
    EXPECT_THAT(warnings_of(capture), ElementsAre("The capture lacks the end of this packet"));
}

TEST(DissectorLink, ATextReportWithoutItsLastCommaIsMarked) {
    std::string text(kReportedText);
    text.pop_back();
    EXPECT_THAT(warnings_of(report(bytes_of(text))),
                ElementsAre("The last comma is missing", "The keys from 'mf_max' on are missing"));
}

TEST(DissectorLink, ARawDatagramThatTheReceiverCutsOffIsMarked) {
    const Bytes packet = camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x2A}, Bytes{5});
    Capture capture;
    capture.add_datagram(50000, kRawPackets, joined({packet, Bytes(600)}));
    EXPECT_THAT(warnings_of(capture),
                testing::Contains("The receiver cuts the datagram off at 512 bytes"));
}

}  // namespace
