// Where the kernel and a host that asks for the unusual leave the receiver no way out but its end.
// docs/known-limits.md says what a user sees of each.

#include <errno.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "tests/board/board_support.h"

namespace {

constexpr SetupPacket kSetInterface = {0x01, 11, 0, 0, 0};
constexpr SetupPacket kGetString = {0x80, 6, 0x0319, 0x0409, 255};
constexpr SetupPacket kVendorOutWithData = {0x40, 51, 0, 0, 4};

class Limits : public BoardTest {
  protected:
    // Linked, and the reader waits in the kernel for the first data.
    void start_waiting() {
        start_linked();
        std::this_thread::sleep_for(1500ms);
    }
    // From now on the clock is right, so that the silence counts.
    void expect_end_of_silence() {
        set_clock_back(-60s);
        EXPECT_EQ(receiver->wait_exit(10s), 2);
    }
};

TEST_F(Limits, RequestsAreNotAnsweredWhileDataFlows) {
    start_streaming();
    EXPECT_EQ(host->control(kGetString, {}, 2000ms).status, ControlStatus::kTimedOut);
    EXPECT_TRUE(host->bulk_out(idle_stream(512)));
    EXPECT_TRUE(host->wait_for_bulk_out_taken(5s));
    switch_port(false);
    expect_link_end("USB connected\n");
}

// Each piece of data lets go of the endpoint for a moment, in which the reader may be the quicker.
TEST_F(Limits, SetInterfaceWaitsForTheReaderAndIsAnsweredWhenDataComes) {
    start_waiting();
    std::atomic<bool> answered = false;
    std::thread camera([&] {
        for (std::this_thread::sleep_for(2s); !answered; std::this_thread::sleep_for(20ms)) {
            EXPECT_TRUE(host->bulk_out(idle_stream(512)));
        }
    });
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(host->control(kSetInterface).status, ControlStatus::kAcknowledged);
    EXPECT_GE(std::chrono::steady_clock::now() - before, 2s);
    answered = true;
    camera.join();
    EXPECT_TRUE(host->wait_for_bulk_out_taken(5s));
}

TEST_F(Limits, SetInterfaceFailsWhereNoDataComes) {
    start_waiting();
    EXPECT_EQ(host->control(kSetInterface).status, ControlStatus::kTimedOut);
    expect_end_of_silence();
}

TEST_F(Limits, ConfigurationThatIsSelectedAgainUnderAWaitingReaderEndsTheProcess) {
    start_waiting();
    host->close();
    EXPECT_EQ(select_configuration(0), 0);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(select_configuration(2), ETIMEDOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - before, 4500ms);
    expect_end_of_silence();
    EXPECT_EQ(receiver->count("USB connected\n"), 1);
    EXPECT_EQ(receiver->count("read failed\n"), 0);
}

// The kernel completes them by itself and only then tells the process, whose stall comes too late:
// the control file then waits for data of a request that is over.
TEST_F(Limits, VendorRequestsWithDataLeaveEndpointZeroDeafAndTheVideoFlowing) {
    start_waiting();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(host->control(kVendorOutWithData, {1, 2, 3, 4}).status,
                  ControlStatus::kAcknowledged);
        std::this_thread::sleep_for(700ms);  // past the process's next look
    }
    EXPECT_EQ(host->control(kGetString, {}, 2000ms).status, ControlStatus::kTimedOut);
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(host->bulk_out(idle_stream(4096)));
        EXPECT_TRUE(host->wait_for_bulk_out_taken(5s));
    }
    switch_port(false);
    expect_link_end("USB connected\n");
}

// The kernel takes no stall for SET_CONFIGURATION, so the host waits for its answer in vain.
TEST_F(Limits, ConfigurationWithoutEndpointFilesIsNeverAnswered) {
    start();
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 20s));
    std::filesystem::remove("/dev/gadget/ep2out-bulk");
    EXPECT_FALSE(host->wait_for_device(4s));
    EXPECT_EQ(receiver->wait_exit(10s), 2);
    EXPECT_EQ(receiver->count("USB connected\n"), 0);
}

}  // namespace
