#include "simulator/usb_sysfs.h"

#include <gtest/gtest.h>

namespace {

TEST(UsbSysfs, WhatIsNotThereReadsAsNothing) {
    EXPECT_EQ(sysfs_bytes("no-such-device", "descriptors"), "");
    EXPECT_EQ(sysfs_line("no-such-device", "speed"), "");
    EXPECT_EQ(sysfs_number("no-such-device", "busnum"), 0U);
    EXPECT_FALSE(sysfs_configured("no-such-device"));
}

// A folder stands for the file of a device that leaves between opening and reading: it opens, and
// reading it is an error.
TEST(UsbSysfs, WhatOpensAndCannotBeReadIsNothing) {
    EXPECT_EQ(sysfs_bytes("/proc", "self"), "");
    EXPECT_EQ(sysfs_line("/proc", "self"), "");
}

TEST(UsbSysfs, LineEndsBeforeTheNewline) {
    EXPECT_EQ(sysfs_line("/proc/sys/kernel", "ostype"), "Linux");
    EXPECT_EQ(sysfs_bytes("/proc/sys/kernel", "ostype"), "Linux\n");
}

}  // namespace
