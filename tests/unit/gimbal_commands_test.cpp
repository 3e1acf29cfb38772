#include "control/gimbal_commands.h"

#include <gtest/gtest.h>

#include "sent_packets.h"

namespace {

TEST(GimbalOrientationLock, UnlockIsSixPacketsOfTheirOwnNumbersRoundTheEnd) {
    const CommandRun run = run_command([] { return gimbal_orientation_lock("unlock"); }, 0xFFFD);
    EXPECT_EQ(run.packets,
              "55 17 04 38 02 09 FD FF 40 01 01 00 00 00 00 0A 00 00 00 00 00 F1 32\n"
              "55 17 04 38 02 09 FE FF 40 01 01 00 00 00 00 00 00 00 00 00 00 81 C3\n"
              "55 17 04 38 02 09 FF FF 40 01 01 00 00 00 00 0A 00 00 00 00 00 A5 A2\n"
              "55 17 04 38 02 09 00 00 40 01 01 00 00 00 00 00 00 00 00 00 00 D9 48\n"
              "55 17 04 38 02 09 01 00 40 01 01 00 00 00 00 0A 00 00 00 00 00 FD 29\n"
              "55 17 04 38 02 09 02 00 40 01 01 00 00 00 00 00 00 00 00 00 00 8D D8\n");
    EXPECT_EQ(camera_packet_seq, 3);
}

}  // namespace
