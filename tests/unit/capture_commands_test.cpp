#include "control/capture_commands.h"

#include <gtest/gtest.h>

#include "sent_packets.h"

namespace {

TEST(CameraRecord, StartAtSequence2fde) {
    const CommandRun run = run_command([] { return camera_record(1); }, 0x2FDE);
    EXPECT_EQ(run.packets,
              "55 0E 04 66 "  // start, length 14, version, header check
              "02 01 "        // from the application, to the camera
              "DE 2F "        // sequence 0x2FDE
              "40 02 02 "     // request, camera set, record
              "01 "           // start
              "04 32\n");     // CRC-16
    EXPECT_EQ(run.log, "Record start\n");
}

TEST(CameraRecord, StopAtSequence2f78) {
    const CommandRun run = run_command([] { return camera_record(0); }, 0x2F78);
    EXPECT_EQ(run.packets, "55 0E 04 66 02 01 78 2F 40 02 02 00 B5 BB\n");
    EXPECT_EQ(run.log, "Record stop\n");
}

TEST(CameraStopShooting, TakesASequenceNumberForEachPacket) {
    run_command(camera_stop_shooting, 0x1234);
    EXPECT_EQ(camera_packet_seq, 0x1236);
}

}  // namespace
