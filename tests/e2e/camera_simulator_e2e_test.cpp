// The camera simulator as a user starts it: what it does to the receiver's link, and what it
// refuses.

#include <fstream>

#include "tests/e2e/e2e_support.h"

namespace {

class CameraSimulator : public ReceiverTest {
  protected:
    // Starts it with these arguments. It runs the receiver where they end in `run`; both print into
    // the same lines.
    void start_simulator(const std::vector<std::string>& arguments) {
        simulator = std::make_unique<ReceiverProcess>(arguments, std::vector<std::string>{},
                                                      SIMULATOR_PROGRAM);
    }
    void simulate(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--enumerate", "short"});
        arguments.insert(arguments.end(), {"--run", RECEIVER_PROGRAM});
        start_simulator(arguments);
    }

    std::unique_ptr<ReceiverProcess> simulator;
};

TEST_F(CameraSimulator, DisconnectWhileDataFlowsEndsTheReceiver) {
    simulate({"--after", "2:disconnect"});
    EXPECT_EQ(simulator->wait_exit(15s), 0) << simulator->output();
    EXPECT_EQ(simulator->count("USB connected\n"), 1);
    EXPECT_EQ(simulator->count("read failed\n"), 1) << simulator->output();
    EXPECT_NE(simulator->standard_output().find("the receiver has ended with status "),
              std::string::npos)
        << simulator->standard_output();
}

TEST_F(CameraSimulator, DisconnectBeforeAnyDataLeavesTheReceiverToItsSilence) {
    simulate({"--after", "0:disconnect"});
    EXPECT_EQ(simulator->wait_exit(15s), 0) << simulator->output();
    EXPECT_EQ(simulator->count("USB disconnected\n"), 1) << simulator->output();
    EXPECT_NE(simulator->standard_output().find("the receiver has ended with status 2\n"),
              std::string::npos)
        << simulator->standard_output();
}

// The reader sleeps its first second: the camera leaves in it and is back a little later.
TEST_F(CameraSimulator, ReconnectBeforeAnyDataBringsTheLinkBack) {
    simulate({"--after", "0:disconnect", "--after", "1.2:reconnect", "--seconds", "7"});
    // Longer than a receiver lives that has had no data.
    EXPECT_EQ(simulator->wait_exit(20s), 0) << simulator->output();
    EXPECT_EQ(simulator->count("USB connected\n"), 2) << simulator->output();
    EXPECT_EQ(simulator->count("USB disconnected\n"), 1);
    EXPECT_EQ(simulator->count("timeout"), 0) << simulator->output();
    EXPECT_TRUE(simulator->lines_without_delta().ends_with("signal 15 handler\n"))
        << simulator->output();
}

TEST_F(CameraSimulator, CameraThatIsSwitchedOffFallsSilentWithItsVideo) {
    const std::string script = make_board().path("/script");
    std::ofstream(script) << "2 set power off\n";
    const std::string clip = CLIP_DIRECTORY "/1280x720-1.h264";
    simulate({"--h264", clip, "--loop", "--script", script});
    EXPECT_EQ(simulator->wait_exit(25s), 0) << simulator->output();
    EXPECT_NE(simulator->standard_output().find("the receiver has ended with status 2\n"),
              std::string::npos)
        << simulator->standard_output();
}

struct Refusal {
    const char* name;
    std::vector<std::string> arguments;
    const char* line;
};

class OverUsb : public CameraSimulator, public testing::WithParamInterface<Refusal> {};

TEST_P(OverUsb, IsRefusedWithStatus2) {
    std::vector<std::string> arguments = GetParam().arguments;
    arguments.insert(arguments.begin(), "--usb");
    start_simulator(arguments);
    EXPECT_EQ(simulator->wait_exit(5s), 2);
    EXPECT_EQ(simulator->output(), std::string("camera-simulator: ") + GetParam().line + "\n");
    EXPECT_EQ(simulator->standard_output(), "");
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Options, OverUsb, testing::Values(
    Refusal{"Program",    {"--run", RECEIVER_PROGRAM},
            "with --usb the receiver runs on its own board: no program here"},
    Refusal{"Root",       {"--root", "/tmp"},
            "with --usb there is no simulated board: no --root"},
    Refusal{"Enumerate",  {"--enumerate", "full"},
            "with --usb this machine's kernel enumerates: no --enumerate"},
    Refusal{"Disconnect", {"--after", "1:disconnect"},
            "with --usb only you can pull the plug: no disconnect or reconnect"},
    Refusal{"Reconnect",  {"--after", "1:reset", "--after", "2:reconnect"},
            "with --usb only you can pull the plug: no disconnect or reconnect"}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(CameraSimulator, LargestTransferOfTheBoardIsRefusedBeyond512Bytes) {
    start_simulator({"--transfer", "513"});
    EXPECT_EQ(simulator->wait_exit(5s), 2);
    EXPECT_EQ(simulator->output(),
              "camera-simulator: a transfer has at most 512 bytes without --usb\n");
}

// Of the machine itself it may say that there is no USB at all, once.
TEST_F(CameraSimulator, PortWithoutADeviceIsWaitedForNoLongerThanAsked) {
    start_simulator({"--usb", "--wait", "0.3", "--seconds", "1"});
    EXPECT_EQ(simulator->wait_exit(5s), 1) << "is a receiver's device plugged in at this machine?\n"
                                           << simulator->standard_output();
    EXPECT_TRUE(simulator->output().ends_with("camera-simulator: no device has come\n"))
        << simulator->output();
    EXPECT_TRUE(simulator->standard_output().starts_with(
        "waiting for the receiver's device on a USB port\n"))
        << simulator->standard_output();
}

}  // namespace
