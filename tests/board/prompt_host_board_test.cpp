// Linux's own host is prompt: it configures the device less than half a second after its
// description was written, before the process's first regular look at endpoint zero. Until a
// process has read it once, gadgetfs takes the configuration for itself. It forgets that with its
// mount, so that each start here is the first one after a boot.

#include <signal.h>

#include "tests/board/board_support.h"

namespace {

constexpr int kStarts = 20;

class PromptHost : public BoardTest {
  protected:
    // The device with a process behind it that looks late.
    void start_late(const char* milliseconds) {
        receiver = std::make_unique<ReceiverProcess>(std::vector<std::string>{milliseconds},
                                                     std::vector<std::string>{kPathWithStandIn},
                                                     kBareReader);
    }
};

TEST_F(PromptHost, EveryStartEndsConfigured) {
    leave_out_interface_strings(true);  // they would only cost time
    int configured = 0;
    for (int i = 0; i < kStarts; ++i) {
        unload_gadgetfs();
        start();
        const bool connected = receiver->wait_for("USB connected\n", 10s);
        EXPECT_TRUE(connected) << "start " << i << "\n" << receiver->output();
        EXPECT_TRUE(host->wait_for_device(5s)) << "start " << i;
        EXPECT_EQ(host->configuration_value(), 2U) << "start " << i;
        EXPECT_EQ(receiver->count("USB connected\n"), 1) << "start " << i;
        configured += connected ? 1 : 0;
        receiver->signal(SIGTERM);
        EXPECT_EQ(receiver->wait_exit(10s), 1);
    }
    EXPECT_EQ(configured, kStarts);
}

TEST_F(PromptHost, ProcessThatLooksLateIsNotToldOfTheConfiguration) {
    start_late("3000");
    ASSERT_TRUE(host->wait_for_device(2500ms));
    EXPECT_EQ(host->configuration_value(), 2U);
    EXPECT_FALSE(receiver->wait_for("USB connected\n", 6s));
}

TEST_F(PromptHost, KernelThatWasReadOnceTellsIt) {
    start_late("0");
    ASSERT_TRUE(receiver->wait_for("USB connected\n", 10s));
    ASSERT_TRUE(host->wait_for_device(5s));
    receiver.reset();
    ASSERT_TRUE(host->wait_until_gone(10s));
    start_late("3000");
    EXPECT_TRUE(receiver->wait_for("USB connected\n", 10s)) << receiver->output();
}

}  // namespace
