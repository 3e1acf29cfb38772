// How a link ends on the real kernel, and that the next process has the board to itself at once.

#include <signal.h>

#include <filesystem>
#include <thread>

#include "tests/board/board_support.h"
#include "tests/board/full_rate_stream.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kSilence = 5000ms;
constexpr auto kPauseAtStart = 1000ms;  // before the receiver begins to count
constexpr auto kLate = 3000ms;          // the board's own slowness

class Endings : public BoardTest {
  protected:
    // Until the host has enumerated the device; it does not configure it. (In the middle of its
    // requests nothing can switch the port: Linux's hub driver has it locked until they are over.)
    void start_enumerated() {
        configure_devices(false);
        start();
        ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 20s));
        set_clock_back(60s);
        const auto end = Clock::now() + 20s;
        while (!std::filesystem::exists("/sys/bus/usb/devices/1-1")) {
            ASSERT_LT(Clock::now(), end) << receiver->output();
            std::this_thread::sleep_for(20ms);
        }
    }
    // The status is 2, whichever of the two threads that look has seen it first.
    void expect_end_of_silence(const std::string& lines) {
        const std::string main = "Camera connection timeout\n";
        const std::string watchdog = "Telemetry receiving timeout\n";
        EXPECT_EQ(receiver->wait_exit(20s), 2);
        EXPECT_THAT(lines_after_start(),
                    testing::AnyOf(lines + main, lines + watchdog, lines + main + watchdog,
                                   lines + watchdog + main));
    }
};

TEST_F(Endings, SilentCameraEndsItAfterFiveSeconds) {
    start_linked();
    const auto before = Clock::now();
    ASSERT_TRUE(host->bulk_out(idle_stream(512)));
    ASSERT_TRUE(host->wait_for_bulk_out_taken(10s));
    const auto taken = Clock::now();
    expect_end_of_silence("USB connected\n");
    EXPECT_GT(Clock::now() - before, kSilence);
    EXPECT_LT(Clock::now() - taken, kSilence + kLate);
    expect_start_works();
}

TEST_F(Endings, CameraThatNeverSendsEndsItAfterFiveSeconds) {
    start();
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 20s));
    const auto ready = Clock::now();
    expect_end_of_silence("USB connected\n");
    EXPECT_GT(Clock::now() - ready, kSilence);
    EXPECT_LT(Clock::now() - ready, kPauseAtStart + kSilence + kLate);
    expect_start_works();
}

TEST_F(Endings, HostThatNeverComesEndsItAfterFiveSeconds) {
    switch_port(false);
    start();
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 20s));
    const auto ready = Clock::now();
    expect_end_of_silence("");
    EXPECT_GT(Clock::now() - ready, kSilence);
    EXPECT_LT(Clock::now() - ready, kPauseAtStart + kSilence + kLate);
    switch_port(true);
    expect_start_works();
}

TEST_F(Endings, PortOffWhileStreaming) {
    start_streaming();
    {
        const FullRateStream stream(*host);
        std::this_thread::sleep_for(1s);
        switch_port(false);
    }
    expect_link_end(std::string("USB connected\n") + kFirstVideoLines);
    switch_port(true);
    expect_start_works();
}

// While the device is being closed, such a clock makes the supervision see a silence above every
// limit. Which of the two threads is the first is open.
TEST_F(Endings, PortOffUnderAPositiveClockMayBeATimeout) {
    set_clock(ClockHalf::kPositive);
    start_streaming();
    switch_port(false);
    const std::string timeout = "Camera connection timeout\n";
    const std::optional<int> status = receiver->wait_exit(20s);
    std::string lines = lines_after_start();
    if (const std::size_t at = lines.find(timeout); at != std::string::npos) {
        lines.erase(at, timeout.size());
        const std::string failed = std::string("USB connected\n") + kFailedLinkLines;
        EXPECT_TRUE(failed.starts_with(lines)) << lines;
        EXPECT_TRUE(status == 1 || status == 2);
    } else {
        EXPECT_EQ(lines, std::string("USB connected\n") + kFailedLinkLines);
        EXPECT_EQ(status, 1);
    }
    switch_port(true);
    expect_start_works();
}

TEST_F(Endings, PortOffInTheReadersFirstSecond) {
    leave_out_interface_strings(true);
    start();
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 20s));
    set_clock_back(60s);
    ASSERT_TRUE(receiver->wait_for("USB connected\n", 20s));
    switch_port_off();
    switch_port(true);
    link_up();
    expect_video_passes();
    EXPECT_EQ(lines_after_start(),
              std::string("USB connected\nUSB disconnected\nUSB connected\n") + kFirstVideoLines);
}

TEST_F(Endings, PortOffWhileTheReaderWaits) {
    start_linked();
    std::this_thread::sleep_for(2s);
    switch_port(false);
    expect_link_end("USB connected\n");
    switch_port(true);
    expect_start_works();
}

TEST_F(Endings, PortOffBeforeTheConfiguration) {
    start_enumerated();
    switch_port_off();
    EXPECT_EQ(lines_after_start(), "USB disconnected\n");
    configure_devices(true);
    switch_port(true);
    link_up();
    expect_video_passes();
    EXPECT_EQ(lines_after_start(), std::string("USB connected\n") + kFirstVideoLines);
}

TEST_F(Endings, PortOffBeforeTheConfigurationForGood) {
    const auto before = Clock::now();
    start_enumerated();
    switch_port_off();
    set_clock_back(-60s);
    expect_end_of_silence("USB disconnected\n");
    EXPECT_GT(Clock::now() - before, kPauseAtStart + kSilence);
    configure_devices(true);
    switch_port(true);
    expect_start_works();
}

TEST_F(Endings, BusResetWhileStreaming) {
    start_streaming();
    {
        const FullRateStream stream(*host);
        std::this_thread::sleep_for(1s);
        EXPECT_FALSE(host->reset());
    }
    expect_link_end(std::string("USB connected\n") + kFirstVideoLines);
    expect_start_works();
}

// The kernel takes back the disconnection when the first request after it arrives, so a process
// that has not looked in between never learns of it. It still holds the endpoints when the
// configuration is selected anew, which fails, and the reader's first read does too.
TEST_F(Endings, BusResetInTheReadersFirstSecondThatIsNotNoticed) {
    leave_out_interface_strings(true);
    start_linked();
    receiver->signal(SIGSTOP);
    std::thread reset([this] { EXPECT_FALSE(host->reset()); });
    std::this_thread::sleep_for(2s);  // the host then waits for its SET_CONFIGURATION
    receiver->signal(SIGCONT);
    expect_link_end("USB connected\n");
    reset.join();
    expect_start_works();
}

TEST_F(Endings, BusResetWhileTheReaderWaits) {
    start_linked();
    std::this_thread::sleep_for(2s);
    EXPECT_FALSE(host->reset());
    expect_link_end("USB connected\n");
    expect_start_works();
}

}  // namespace
