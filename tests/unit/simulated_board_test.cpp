// The simulated board's root, and its control file.
#include "simulator/simulated_board.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "simulated_board_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

std::string text_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// -- the root and its paths

TEST_F(Board, HoldsTheModelTextWithTheFirmwaresNul) {
    FILE* const file = fopen("/sys/firmware/devicetree/base/model", "r");
    ASSERT_NE(file, nullptr);
    char text[100] = {};
    const std::size_t size = fread(text, 1, sizeof text, file);
    fclose(file);
    EXPECT_EQ(std::string(text, size), std::string("Raspberry Pi 4 Model B Rev 1.4\0", 31));
}

TEST_F(Board, MapsWrittenFilesBelowTheRoot) {
    FILE* const file = fopen("/run/vantarel/video_width", "w");
    ASSERT_NE(file, nullptr);
    fputs("1280", file);
    fclose(file);
    EXPECT_EQ(text_of(board.path("/run/vantarel/video_width")), "1280");
    EXPECT_EQ(access("/run/vantarel/video_width", R_OK), 0);
    struct stat status {};
    EXPECT_EQ(stat("/run/vantarel/video_width", &status), 0);
    EXPECT_EQ(status.st_size, 4);
    EXPECT_EQ(rename("/run/vantarel/video_width", "/boot/osmo-usb.conf"), 0);
    EXPECT_EQ(text_of(board.path("/boot/osmo-usb.conf")), "1280");
    EXPECT_EQ(unlink("/boot/osmo-usb.conf"), 0);
    EXPECT_FALSE(fs::exists(board.path("/boot/osmo-usb.conf")));
}

TEST_F(Board, LeavesPathsThatOnlyBeginAlike) {
    EXPECT_NE(access("/bootlike-that-is-not-there", F_OK), 0);
    EXPECT_EQ(mkdir("/boot/sub", 0755), 0);
    EXPECT_TRUE(fs::is_directory(board.path("/boot/sub")));
    EXPECT_EQ(access("/usr", F_OK), 0);
}

TEST(BoardOptions, WithoutRunDirectory) {
    const SimulatedBoard board({.with_run_directory = false});
    EXPECT_FALSE(fs::exists(board.path("/run/vantarel")));
}

TEST(BoardOptions, RemovesTheRootThatItMade) {
    std::string root;
    {
        const SimulatedBoard board;
        root = board.root();
        EXPECT_TRUE(fs::exists(root));
    }
    EXPECT_FALSE(fs::exists(root));
}

TEST(BoardOptions, LeavesWhatWasInAGivenRoot) {
    char given[] = "/tmp/given-root-XXXXXX";
    ASSERT_NE(mkdtemp(given), nullptr);
    fs::create_directory(std::string(given) + "/boot");
    std::ofstream(std::string(given) + "/boot/osmo-usb.conf") << "[focus]";
    {
        const SimulatedBoard board({.root = given});
        EXPECT_TRUE(fs::exists(board.path("/dev/gadget/fe980000.usb")));
    }
    std::vector<std::string> left;
    for (const auto& entry : fs::recursive_directory_iterator(given)) {
        left.push_back(entry.path().string().substr(sizeof given - 1));
    }
    EXPECT_THAT(left, testing::UnorderedElementsAre("/boot", "/boot/osmo-usb.conf"));
    fs::remove_all(given);
}

TEST(BoardOptions, ServesARootWithALongPath) {
    char given[] = "/tmp/long-root-XXXXXX";
    ASSERT_NE(mkdtemp(given), nullptr);
    {
        SimulatedBoard board({.root = std::string(given) + "/" + std::string(120, 'x')});
        const RootVariable variable(board.root());
        const OpenFd control(open("/dev/gadget/fe980000.usb", O_RDWR));
        EXPECT_GE(control.fd, 0);
        EXPECT_EQ(write(control.fd, kDescription.data(), kDescription.size()), 86);
    }
    EXPECT_TRUE(fs::is_empty(given));
    fs::remove_all(given);
}

TEST_F(Board, StandInsWriteDownTheirCommandLines) {
    const std::string path = "PATH=" + board.root() + "/bin:$PATH; export PATH; ";
    EXPECT_EQ(system((path + "modprobe gadgetfs > /dev/null 2>&1").c_str()), 0);
    EXPECT_EQ(system((path + "mkdir /dev/gadget > /dev/null 2>&1").c_str()), 0);
    EXPECT_EQ(system((path + "mount -t gadgetfs none /dev/gadget").c_str()), 0);
    EXPECT_EQ(system((path + "umount /boot").c_str()), 0);
    EXPECT_EQ(system((path + "mkdir " + board.root() + "/real").c_str()), 0);
    EXPECT_THAT(board.shell_commands(),
                ElementsAre("modprobe gadgetfs", "mkdir /dev/gadget",
                            "mount -t gadgetfs none /dev/gadget", "umount /boot"));
    EXPECT_TRUE(fs::is_directory(board.root() + "/real"));
}

TEST_F(Board, EnvironmentNamesLibraryRootAndPath) {
    EXPECT_THAT(
        board.environment(),
        testing::IsSupersetOf({testing::Matcher<std::string>(HasSubstr("libgadgetfs-sim.so")),
                               testing::Matcher<std::string>("GADGETFS_SIM_ROOT=" + board.root()),
                               testing::Matcher<std::string>(
                                   testing::StartsWith("PATH=" + board.root() + "/bin:"))}));
}

// -- the control file

TEST_F(Board, DirectoryShowsTheEndpointsOnceTheDescriptionIsWritten) {
    EXPECT_FALSE(fs::exists(board.path("/dev/gadget/ep6in")));
    EXPECT_FALSE(board.wait_for_device(Milliseconds(0)));
    EXPECT_EQ(outcome_of(open("/dev/gadget/ep6in", O_RDWR)), failed(ENOENT));
    write_description();
    EXPECT_TRUE(board.wait_for_device(kSoon));
    EXPECT_EQ(board.device_description(), kDescription);
    EXPECT_TRUE(fs::exists(board.path("/dev/gadget/ep6in")));
    EXPECT_TRUE(fs::exists(board.path("/dev/gadget/ep2out")));
}

TEST_F(Board, ClosingTheControlFileTakesTheDeviceAway) {
    write_description();
    control.reset();
    const OpenFd again(open("/dev/gadget/fe980000.usb", O_RDWR));
    ASSERT_GE(again.fd, 0);
    EXPECT_FALSE(board.wait_for_device(Milliseconds(0)));
    EXPECT_FALSE(fs::exists(board.path("/dev/gadget/ep6in")));
}

TEST_F(Board, ControlFileOpensOnce) {
    EXPECT_EQ(outcome_of(open("/dev/gadget/fe980000.usb", O_RDWR)), failed(EBUSY));
}

TEST_F(Board, FileOfNoNameIsNotThere) {
    EXPECT_EQ(outcome_of(open("/dev/gadget/ep9in", O_RDWR)), failed(ENOENT));
}

TEST_F(Board, BadDescriptionIsRefused) {
    EXPECT_EQ(outcome_of(write(control.fd, kDescription.data(), 85)), failed(EINVAL));
    EXPECT_EQ(read_from(control.fd, 60), failed(EINVAL));
}

TEST_F(Board, NonBlockingReadWithoutEventsSaysAgain) {
    write_description();
    fcntl(control.fd, F_SETFL, O_NONBLOCK);
    EXPECT_EQ(read_from(control.fd, 60), failed(EAGAIN));
}

TEST_F(Board, ReadWaitsForAnEvent) {
    write_description();
    auto event = std::async(std::launch::async, [this] { return read_events(); });
    board.connect(UsbSpeed::kHigh);
    EXPECT_EQ(event.get(), kConnectAtHighSpeed);
}

TEST_F(Board, PollTellsWhenThereAreEvents) {
    write_description();
    pollfd poll_control = {control.fd, POLLIN | POLLPRI, 0};
    EXPECT_EQ(poll(&poll_control, 1, 10), 0);
    EXPECT_EQ(poll_control.revents, 0);
    board.connect();
    EXPECT_EQ(poll(&poll_control, 1, 10), 1);
    EXPECT_EQ(poll_control.revents, POLLIN);
}

TEST_F(Board, PollWakesWhenAnEventComes) {
    write_description();
    auto polled = std::async(std::launch::async, [this] {
        pollfd poll_control = {control.fd, POLLIN, 0};
        return poll(&poll_control, 1, -1);
    });
    board.suspend();
    EXPECT_EQ(polled.get(), 1);
}

TEST_F(Board, CancelledControlReadLosesNoEvent) {
    write_description();
    pthread_t reader{};
    int fd = control.fd;
    ASSERT_EQ(pthread_create(
                  &reader, nullptr,
                  [](void* argument) -> void* {
                      char bytes[60];
                      return read(*static_cast<int*>(argument), bytes, sizeof bytes) < 0 ? nullptr
                                                                                         : argument;
                  },
                  &fd),
              0);
    pthread_cancel(reader);
    void* result = nullptr;
    pthread_join(reader, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    board.connect();
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
}

TEST_F(Board, InjectedReadsComeFirst) {
    connect();
    board.suspend();
    board.inject_control_read({1, 2, 3});
    board.inject_control_error(EIO);
    EXPECT_EQ(read_events(), (Bytes{1, 2, 3}));
    EXPECT_EQ(read_from(control.fd, 60), failed(EIO));
    EXPECT_EQ(read_events(), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0}));
}

}  // namespace
