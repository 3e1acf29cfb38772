// The telemetry thread's tick. The pause is replaced, so that the ticks take no time.
#include "link/telemetry_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "link/app_link.h"

namespace {
int pauses_left = 0;
}  // namespace

void app_link_check_presence() {
    fprintf(stderr, "check\n");
}

extern "C" int usleep(useconds_t microseconds) {
    fprintf(stderr, "%u\n", microseconds);
    if (--pauses_left == 0) {
        _exit(0);
    }
    return 0;
}

namespace {

TEST(TelemetryThreadDeathTest, ChecksThePresenceAtOnceAndThenEveryTenthTick) {
    pauses_left = 21;
    const std::string ten_ticks =
        "100000\n100000\n100000\n100000\n100000\n"
        "100000\n100000\n100000\n100000\n100000\n";
    EXPECT_EXIT(telemetry_thread(nullptr), testing::ExitedWithCode(0),
                testing::Eq("check\n" + ten_ticks + "check\n" + ten_ticks + "check\n100000\n"));
}

TEST(TelemetryDestination, IsUnsetAtFirstAndThenACopy) {
    EXPECT_EQ(telemetry_destination.host, nullptr);
    EXPECT_EQ(telemetry_destination.port, 0);
    char host[] = "192.168.1.20";
    telemetry_set_destination(host, 5000);
    host[0] = 'x';
    EXPECT_STREQ(telemetry_destination.host, "192.168.1.20");
    EXPECT_EQ(telemetry_destination.port, 5000);
    telemetry_set_destination("", -1);
    EXPECT_STREQ(telemetry_destination.host, "");
    EXPECT_EQ(telemetry_destination.port, -1);
}

}  // namespace
