#include "protocol/camera_packet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using Bytes = std::vector<std::uint8_t>;

std::uint8_t crc8_of(const Bytes& bytes, std::uint8_t seed = 0x77) {
    return camera_crc8(bytes.data(), bytes.size(), seed);
}

std::uint16_t crc16_of(const Bytes& bytes, std::uint16_t seed = 0x3692) {
    return camera_crc16(bytes.data(), bytes.size(), seed);
}

// The record packet with its sequence number and CRC-16 still open.
Bytes record_template(std::uint8_t start) {
    return {0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0x00, 0x00, 0x40, 0x02, 0x02, start, 0x00, 0x00};
}

TEST(CameraCrc8, HeadersOfKnownPackets) {
    EXPECT_EQ(crc8_of({0x55, 0x0E, 0x04}), 0x66);
    EXPECT_EQ(crc8_of({0x55, 0x17, 0x04}), 0x38);
    EXPECT_EQ(crc8_of({0x55, 0x14, 0x04}), 0x6D);
}

TEST(CameraCrc8, CanGoOnFromTheSumOfTheStartByte) {
    EXPECT_EQ(crc8_of({0x55}), 0x9F);
    EXPECT_EQ(crc8_of({0x0E, 0x04}, 0x9F), 0x66);
}

TEST(CameraCrc8, NoBytesLeaveTheSeed) {
    EXPECT_EQ(camera_crc8(nullptr, 0, 0x77), 0x77);
}

TEST(CameraCrc8, IsTheReflectedSumOfPolynomial31) {
    const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(crc8_of(digits, 0x00), 0xA1);
    EXPECT_EQ(crc8_of(digits, 0x77), 0xFB);
}

TEST(CameraCrc16, NoBytesLeaveTheSeed) {
    EXPECT_EQ(camera_crc16(nullptr, 0, 0x3692), 0x3692);
}

TEST(CameraCrc16, IsTheReflectedSumOfPolynomial1021) {
    const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    EXPECT_EQ(crc16_of(digits, 0x0000), 0x2189);
    EXPECT_EQ(crc16_of(digits, 0xFFFF), 0x6F91);
    EXPECT_EQ(crc16_of(digits, 0x3692), 0x7109);
}

TEST(CameraCrc16, OfTheRecordPacket) {
    EXPECT_EQ(crc16_of({0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0xDE, 0x2F, 0x40, 0x02, 0x02, 0x01}),
              0x3204);
}

TEST(CameraPacketSeal, RecordStart) {
    camera_packet_seq = 0x2FDE;
    Bytes packet = record_template(1);
    camera_packet_seal(packet.data(), packet.size());
    EXPECT_THAT(packet, ElementsAre(0x55, 0x0E, 0x04, 0x66,  // start, length 14, version, CRC-8
                                    0x02, 0x01,              // from the application, to the camera
                                    0xDE, 0x2F,              // sequence 0x2FDE
                                    0x40, 0x02, 0x02,        // request, camera set, record
                                    0x01,                    // start
                                    0x04, 0x32));            // CRC-16
}

TEST(CameraPacketSeal, RecordStop) {
    camera_packet_seq = 0x2F78;
    Bytes packet = record_template(0);
    camera_packet_seal(packet.data(), packet.size());
    EXPECT_THAT(packet, ElementsAre(0x55, 0x0E, 0x04, 0x66,  // start, length 14, version, CRC-8
                                    0x02, 0x01,              // from the application, to the camera
                                    0x78, 0x2F,              // sequence 0x2F78
                                    0x40, 0x02, 0x02,        // request, camera set, record
                                    0x00,                    // stop
                                    0xB5, 0xBB));            // CRC-16
}

TEST(CameraPacketSeal, LeavesTheHeaderSumOfTheTemplate) {
    Bytes packet = record_template(1);
    packet[3] = 0x00;
    camera_packet_seal(packet.data(), packet.size());
    EXPECT_EQ(packet[3], 0x00);
}

TEST(CameraPacketSeal, CountsEveryPacket) {
    camera_packet_seq = 7;
    for (const int sequence : {7, 8, 9}) {
        Bytes packet = record_template(1);
        camera_packet_seal(packet.data(), packet.size());
        EXPECT_EQ(packet[6], sequence);
        EXPECT_EQ(packet[7], 0);
    }
    EXPECT_EQ(camera_packet_seq, 10);
}

TEST(CameraPacketSeal, SequenceWrapsToZeroAfter65536Packets) {
    camera_packet_seq = 0;
    Bytes packet = record_template(1);
    for (int i = 0; i < 65536; ++i) {
        camera_packet_seal(packet.data(), packet.size());
    }
    EXPECT_EQ(packet[6], 0xFF);
    EXPECT_EQ(packet[7], 0xFF);
    camera_packet_seal(packet.data(), packet.size());
    EXPECT_EQ(packet[6], 0x00);
    EXPECT_EQ(packet[7], 0x00);
}

// The largest packet that a length byte can tell, in a buffer of exactly its size.
TEST(CameraPacketSeal, WritesOnlyTheSequenceAndTheLastTwoBytes) {
    camera_packet_seq = 0x1234;
    Bytes packet(255, 0xAA);
    camera_packet_seal(packet.data(), packet.size());
    Bytes expected(255, 0xAA);
    expected[6] = 0x34;
    expected[7] = 0x12;
    expected[253] = 0x57;
    expected[254] = 0x8C;
    EXPECT_THAT(packet, ElementsAreArray(expected));
}

// Two threads may now and then share a number; each packet is whole all the same.
TEST(CameraPacketSeal, TwoThreadsSealWholePackets) {
    const auto seal_many = [] {
        for (int i = 0; i < 20000; ++i) {
            Bytes packet = record_template(1);
            camera_packet_seal(packet.data(), packet.size());
            const std::uint16_t sum = camera_crc16(packet.data(), 12, 0x3692);
            ASSERT_EQ(packet[12] | packet[13] << 8, sum);
        }
    };
    std::thread other(seal_many);
    seal_many();
    other.join();
}

}  // namespace
