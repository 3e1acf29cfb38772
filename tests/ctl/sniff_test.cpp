// receiver-ctl sniff: a line for each packet of a capture, in both directions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "simulator/camera_stream.h"
#include "simulator/status_messages.h"
#include "tests/wireshark/capture.h"

namespace {

using testing::HasSubstr;

std::string sniffed(const Capture& capture) {
    const std::string file = testing::TempDir() + "sniff-" + std::to_string(getpid()) + ".pcap";
    capture.write(file);
    std::string output;
    FILE* const pipe = popen(
        ("HOME=/nonexistent LC_ALL=C.UTF-8 " CTL_PROGRAM " sniff " + file + " 2>/dev/null").c_str(),
        "r");
    char piece[4096];
    for (std::size_t count; (count = fread(piece, 1, sizeof piece, pipe)) > 0;) {
        output.append(piece, count);
    }
    EXPECT_EQ(pclose(pipe), 0);
    std::remove(file.c_str());
    return output;
}

Bytes iso_400(std::uint16_t sequence) {
    return camera_packet({0x02, 0x01, sequence, 0x40, 0x02, 0x2A}, Bytes{5});
}

TEST(Sniff, EachPacketOfATransferIsALine) {
    Capture capture;
    const Bytes both = camera_packets(100);
    capture.add_transfer(kFromCamera, control_envelope(both));
    capture.add_transfer(kToCamera, iso_400(100));
    const std::string lines = sniffed(capture);
    EXPECT_THAT(lines,
                HasSubstr("from the camera       auxiliary words  aux_word0 0  aux_word1 10\n"));
    EXPECT_THAT(lines, HasSubstr(" 1.000000000  to the camera         iso 400\n"));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3) << lines;
}

TEST(Sniff, WrongSumsAndMissingNumbersAreNamed) {
    Capture capture;
    capture.add_transfer(kToCamera, iso_400(100));
    Bytes damaged = iso_400(101);
    damaged.back() ^= 1;
    capture.add_transfer(kToCamera, damaged);
    capture.add_transfer(kToCamera, iso_400(105));
    const std::string lines = sniffed(capture);
    EXPECT_THAT(lines, HasSubstr("iso 400  ! The packet's sum is wrong\n"));
    EXPECT_THAT(lines, HasSubstr("sequence numbers are missing\n"));
}

TEST(Sniff, LinkOfTheApplicationGoesBothWays) {
    Capture capture;
    const std::string iso = R"(!{"cmd":"iso","param":"400"})";
    const std::string report =
        "\x07"
        "camera_detected=1,camera_model=DJI Osmo (X3),";
    capture.add_datagram(40000, 5000, Bytes(report.begin(), report.end()));
    capture.add_datagram(5000, 40000, Bytes(iso.begin(), iso.end()));
    capture.add_datagram(5000, 40000, Bytes{5, 2, 1, 0});
    const std::string lines = sniffed(capture);
    EXPECT_THAT(
        lines,
        HasSubstr(
            "to the application    text report  camera_detected 1  camera_model DJI Osmo (X3)"));
    EXPECT_THAT(lines, HasSubstr("from the application  JSON command iso 400\n"));
    EXPECT_THAT(lines, HasSubstr("from the application  zoom optical in\n"));
}

TEST(Sniff, FileThatIsNoneFails) {
    EXPECT_NE(std::system(CTL_PROGRAM " sniff /nonexistent >/dev/null 2>&1"), 0);
}

}  // namespace
