// The table's rows as they stand, and their way out without a camera.
#include "control/packet_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control/send_packet.h"

namespace {

using testing::ElementsAre;

TEST(PacketTable, ARowIsTheWholePacketButForItsSeal) {
    EXPECT_THAT(kRecordStart, ElementsAre(0x55, 0x0E, 0x04, 0x66,  // start, length, version, check
                                          0x02, 0x01,        // from the application, to the camera
                                          0x00, 0x00,        // sequence
                                          0x40, 0x02, 0x02,  // request, camera set, record
                                          0x01,              // start
                                          0x00, 0x00));      // CRC-16
}

TEST(PacketTable, ARowWithoutAPayloadEndsBehindItsId) {
    EXPECT_THAT(kFormatSd, ElementsAre(0x55, 0x0D, 0x04, 0x33, 0x02, 0x01, 0x00, 0x00, 0x40, 0x02,
                                       0x72, 0x00, 0x00));
}

TEST(PacketTable, ARoadNamesItsSenderReceiverAndType) {
    EXPECT_THAT(kCalibrate2,
                ElementsAre(0x55, 0x15, 0x04, 0xA9, 0x09, 0x04, 0x00, 0x00, 0x20, 0x04, 0x01, 0x00,
                            0x04, 0x00, 0x04, 0x00, 0x04, 0x80, 0x00, 0x00, 0x00));
}

TEST(SendPacket, WithoutACameraTakesItsNumberAndReturnsZero) {
    camera_packet_seq = 10;
    EXPECT_EQ(send_packet(kRecordStart), 0);
    EXPECT_EQ(camera_packet_seq, 11);
    EXPECT_EQ((send_packets<kStopShooting1, kStopShooting2>()), 0);
    EXPECT_EQ(camera_packet_seq, 13);
}

TEST(SendPacket, TheNumberAfterTheLastIsZero) {
    camera_packet_seq = 65535;
    send_packet(kShot);
    EXPECT_EQ(camera_packet_seq, 0);
}

}  // namespace
