// The simulated board from inside its process: gadgetfs through the interposed calls of libc, the
// host through the board's own functions.
#include "simulator/simulated_board.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/usb/gadgetfs.h>
#include <poll.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "board_process.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr auto kSoon = Milliseconds(5000);

// clang-format off
const Bytes kConnectAtHighSpeed = {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
const Bytes kSetConfiguration2 = {0x00, 9, 2, 0, 0, 0, 0, 0, 3, 0, 0, 0};
// clang-format on

// Result and errno of a call in one comparable value.
struct Outcome {
    ssize_t result;
    int error;
    bool operator==(const Outcome&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    return stream << outcome.result << " errno " << outcome.error;
}
Outcome outcome_of(ssize_t result) {
    return {result, result < 0 ? errno : 0};
}
Outcome failed(int error) {
    return {-1, error};
}

Outcome read_from(int fd, std::size_t size) {
    Bytes bytes(size);
    return outcome_of(read(fd, bytes.data(), bytes.size()));
}

// A host that does not take its time.
const SimulatedBoardOptions kAtOnce = {.host_connects_after = Milliseconds(0),
                                       .host_asks_after = Milliseconds(0)};

class Board : public testing::Test {
  protected:
    explicit Board(const SimulatedBoardOptions& options = kAtOnce) : board(options) {}

    void write_description() {
        ASSERT_GE(control.fd, 0);
        ASSERT_EQ(write(control.fd, kDescription.data(), kDescription.size()), 86);
    }

    // The first look of a process that does not wait.
    void listen() {
        fcntl(control.fd, F_SETFL, O_NONBLOCK);
        ASSERT_EQ(read_from(control.fd, 60), failed(EAGAIN));
        fcntl(control.fd, F_SETFL, 0);
    }

    // As a process that listens, at high speed.
    void connect() {
        write_description();
        board.connect();
        ASSERT_EQ(read_events(), kConnectAtHighSpeed);
    }

    Bytes read_events(std::size_t size = 60) {
        Bytes bytes(size);
        const ssize_t result = read(control.fd, bytes.data(), bytes.size());
        bytes.resize(result < 0 ? 0 : static_cast<std::size_t>(result));
        return bytes;
    }

    static int open_endpoint(const char* path, const Bytes& record) {
        const int fd = open(path, O_RDWR);
        if (fd >= 0) {
            EXPECT_EQ(write(fd, record.data(), record.size()), 18);
        }
        return fd;
    }

    std::future<ControlResult> ask(const SetupPacket& setup, const Bytes& data = {},
                                   Milliseconds timeout = kSoon) {
        return std::async(std::launch::async, [this, setup, data, timeout] {
            return board.control(setup, data, timeout);
        });
    }

    SimulatedBoard board;
    RootVariable variable{board.root()};
    OpenFd control{open("/dev/gadget/fe980000.usb", O_RDWR)};
};

// With both bulk endpoints open.
class ConfiguredBoard : public Board {
  protected:
    void SetUp() override {
        connect();
        in.fd = open_endpoint("/dev/gadget/ep6in", kInRecord);
        out.fd = open_endpoint("/dev/gadget/ep2out", kOutRecord);
        ASSERT_TRUE(board.wait_for_endpoints(kSoon));
    }

    OpenFd in{-1};
    OpenFd out{-1};
};

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

// -- control requests

TEST_F(Board, DeviceToHostRequestGetsWhatIsWritten) {
    connect();
    auto answer = ask({0x80, 6, 0x0319, 0x0409, 4});
    EXPECT_EQ(read_events(), (Bytes{0x80, 6, 0x19, 0x03, 0x09, 0x04, 4, 0, 3, 0, 0, 0}));
    pollfd poll_control = {control.fd, POLLIN | POLLOUT, 0};
    EXPECT_EQ(poll(&poll_control, 1, 0), 1);
    EXPECT_EQ(poll_control.revents, POLLOUT);
    EXPECT_EQ(write(control.fd,
                    "\x06\x03"
                    "A\0B\0",
                    6),
              6);
    const ControlResult result = answer.get();
    EXPECT_EQ(result.status, ControlStatus::kAcknowledged);
    EXPECT_EQ(result.data, (Bytes{6, 3, 'A', 0}));  // cut to wLength
    EXPECT_EQ(board.last_control_write(), (Bytes{6, 3, 'A', 0, 'B', 0}));
}

TEST_F(Board, DeviceToHostRequestIsStalledByARead) {
    connect();
    auto answer = ask({0xC0, 51, 0, 0, 2});
    read_events();
    EXPECT_EQ(read_from(control.fd, 0), failed(EL2HLT));
    EXPECT_EQ(answer.get().status, ControlStatus::kStalled);
}

TEST_F(Board, HostToDeviceRequestIsAcknowledgedByARead) {
    connect();
    auto answer = ask({0x00, 9, 2, 0, 0});
    EXPECT_EQ(read_events(), kSetConfiguration2);
    EXPECT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
    EXPECT_EQ(answer.get().status, ControlStatus::kAcknowledged);
}

TEST_F(Board, HostToDeviceRequestIsStalledByAWrite) {
    connect();
    auto answer = ask({0x01, 11, 1, 0, 0});
    read_events();
    EXPECT_EQ(outcome_of(write(control.fd, "", 0)), failed(EL2HLT));
    EXPECT_EQ(answer.get().status, ControlStatus::kStalled);
}

TEST_F(Board, RequestThatIsNotAnsweredTimesOut) {
    connect();
    EXPECT_EQ(board.control({0x00, 9, 2, 0, 0}, {}, Milliseconds(20)).status,
              ControlStatus::kTimedOut);
}

TEST_F(Board, KernelAnswersTheDeviceDescriptorItself) {
    connect();
    const ControlResult result = board.control({0x80, 6, 0x0100, 0, 64});
    EXPECT_EQ(result.status, ControlStatus::kAcknowledged);
    EXPECT_EQ(result.data, (Bytes{18, 1, 0x00, 0x02, 0xFF, 0, 0, 64, 0xD1, 0x18, 0x01, 0x2D, 0, 0,
                                  25, 45, 101, 1}));
}

TEST_F(Board, ProcessCanBeAskedWhatTheKernelWouldAnswer) {
    connect();
    auto answer = std::async(std::launch::async, [this] {
        return board.control_to_process({0x80, 6, 0x0100, 0, 8});
    });
    EXPECT_EQ(read_events(), (Bytes{0x80, 6, 0x00, 0x01, 0, 0, 8, 0, 3, 0, 0, 0}));
    EXPECT_EQ(write(control.fd, "12345678", 8), 8);
    EXPECT_EQ(answer.get().data, (Bytes{'1', '2', '3', '4', '5', '6', '7', '8'}));
}

TEST_F(Board, ProcessThatHasLookedOnceIsAsked) {
    write_description();
    listen();
    board.connect();
    auto answer = ask({0x00, 9, 2, 0, 0});
    EXPECT_EQ(read_events(12), kConnectAtHighSpeed);
    EXPECT_EQ(read_events(12), kSetConfiguration2);
    EXPECT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
    EXPECT_EQ(answer.get().status, ControlStatus::kAcknowledged);
}

TEST_F(Board, KernelAnswersWhileNobodyHasReadEvents) {
    write_description();
    EXPECT_TRUE(board.configure());
    EXPECT_EQ(board.control({0x80, 6, 0x0300, 0, 255}).status, ControlStatus::kStalled);
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
    listen();  // there is nothing else
}

class LinuxsHost : public Board {
  protected:
    LinuxsHost() : Board({}) {}
};

TEST_F(LinuxsHost, TakesItsTimeWithANewDevice) {
    using Clock = std::chrono::steady_clock;
    const auto before = Clock::now();
    write_description();
    board.connect();
    EXPECT_GE(Clock::now() - before, Milliseconds(100));
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
    EXPECT_EQ(board.control({0x80, 6, 0x0100, 0, 64}).status, ControlStatus::kAcknowledged);
    EXPECT_GE(Clock::now() - before, Milliseconds(420));
}

TEST_F(LinuxsHost, WaitsForAnAnswerFromItsRequestOn) {
    write_description();
    board.connect();
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
    // Asked to at 100 ms: less than the request itself is away.
    auto answer = ask({0x00, 9, 2, 0, 0}, {}, Milliseconds(300));
    EXPECT_EQ(read_events(), kSetConfiguration2);
    EXPECT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
    EXPECT_EQ(answer.get().status, ControlStatus::kAcknowledged);
}

TEST_F(LinuxsHost, AsksNothingWhereNoDeviceIs) {
    board.connect();
    EXPECT_EQ(board.control({0x80, 6, 0x0100, 0, 64}).status, ControlStatus::kTimedOut);
}

TEST_F(Board, EnumerateAsksInTheOrderOfAHost) {
    write_description();
    listen();
    auto done = std::async(std::launch::async, [this] { return board.enumerate(); });
    Bytes asked;
    for (int strings = 0; strings < 6;) {
        const Bytes events = read_events(12);
        ASSERT_EQ(events.size(), 12U);
        if (events[8] != 3) {
            continue;
        }
        if (events[0] == 0x80) {
            asked.push_back(events[2]);
            ++strings;
            ASSERT_EQ(write(control.fd, "\x02\x03", 2), 2);
        } else {
            asked.push_back(events[1]);
            ASSERT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
        }
    }
    EXPECT_TRUE(done.get());
    EXPECT_EQ(asked, (Bytes{0, 45, 25, 101, 9, 250, 250}));
}

// -- bulk endpoints

TEST_F(ConfiguredBoard, ShowsTheEndpointRecords) {
    EXPECT_EQ(board.endpoint_record("ep6in"), kInRecord);
    EXPECT_EQ(board.endpoint_record("ep2out"), kOutRecord);
    EXPECT_THAT(board.endpoint_record("ep1in"), IsEmpty());
    out.reset();
    const OpenFd again(open("/dev/gadget/ep2out", O_RDWR));
    ASSERT_GE(again.fd, 0);
    EXPECT_THAT(board.endpoint_record("ep2out"), IsEmpty());
}

TEST_F(ConfiguredBoard, BulkOutIsReadTransferByTransfer) {
    Bytes sent(1200);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        sent[i] = static_cast<std::uint8_t>(i % 251);
    }
    ASSERT_TRUE(board.bulk_out(sent));
    Bytes received(1200);
    EXPECT_EQ(read(out.fd, received.data(), 512), 512);
    EXPECT_EQ(read(out.fd, received.data() + 512, 512), 512);
    EXPECT_EQ(read(out.fd, received.data() + 1024, 512 - 336), 176);
    EXPECT_EQ(received, sent);
    EXPECT_TRUE(board.wait_for_bulk_out_taken(kSoon));
}

TEST_F(ConfiguredBoard, BulkOutIsCutAsAsked) {
    ASSERT_TRUE(board.bulk_out(Bytes{1, 2, 3, 4, 5}, 2));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{2, 0}));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{2, 0}));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{1, 0}));
}

TEST_F(ConfiguredBoard, BulkOutWaitsForTheDevice) {
    EXPECT_FALSE(board.bulk_out(Bytes(1000000), 512, Milliseconds(50)));
    EXPECT_FALSE(board.wait_for_bulk_out_taken(Milliseconds(5)));
}

TEST_F(ConfiguredBoard, TransferWithoutBytesReadsAsNone) {
    ASSERT_TRUE(board.bulk_out_empty());
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{0, 0}));
}

TEST_F(ConfiguredBoard, TransferLongerThanTheBufferOverflows) {
    ASSERT_TRUE(board.bulk_out(Bytes(512)));
    EXPECT_EQ(read_from(out.fd, 511), failed(EOVERFLOW));
}

TEST_F(ConfiguredBoard, InjectedFailureIsReadOnce) {
    board.fail_bulk_out(EPROTO);
    ASSERT_TRUE(board.bulk_out(Bytes{7}));
    EXPECT_EQ(read_from(out.fd, 512), failed(EPROTO));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{1, 0}));
}

TEST_F(ConfiguredBoard, BulkInKeepsPacketsApart) {
    EXPECT_EQ(write(in.fd, "first", 5), 5);
    EXPECT_EQ(write(in.fd, "", 0), 0);
    EXPECT_EQ(write(in.fd, "second", 6), 6);
    EXPECT_EQ(board.wait_for_bulk_in(2, kSoon), (Bytes{'s', 'e', 'c', 'o', 'n', 'd'}));
    EXPECT_THAT(board.bulk_in(), ElementsAre(Bytes{'f', 'i', 'r', 's', 't'}, Bytes{},
                                             Bytes{'s', 'e', 'c', 'o', 'n', 'd'}));
    EXPECT_EQ(board.wait_for_bulk_in(3, Milliseconds(1)), std::nullopt);
}

TEST_F(ConfiguredBoard, BulkInBlocksWhileTheHostDoesNotRead) {
    board.hold_bulk_in(true);
    constexpr int kPackets = 1000;
    auto written = std::async(std::launch::async, [this] {
        const Bytes packet(512);
        int count = 0;
        while (count < kPackets && write(in.fd, packet.data(), packet.size()) == 512) {
            ++count;
        }
        return count;
    });
    EXPECT_EQ(written.wait_for(Milliseconds(50)), std::future_status::timeout);
    board.hold_bulk_in(false);
    EXPECT_EQ(written.get(), kPackets);
    EXPECT_TRUE(board.wait_for_bulk_in(kPackets - 1, kSoon));
}

TEST_F(ConfiguredBoard, WrongDirectionIsABadMessage) {
    EXPECT_EQ(read_from(in.fd, 512), failed(EBADMSG));
    EXPECT_EQ(outcome_of(write(out.fd, "x", 1)), failed(EBADMSG));
}

TEST_F(Board, EndpointWithoutItsRecordHasNoTransfers) {
    connect();
    const OpenFd endpoint(open("/dev/gadget/ep2out", O_RDWR));
    EXPECT_EQ(read_from(endpoint.fd, 512), failed(ENODEV));
    EXPECT_FALSE(board.bulk_out(Bytes{1}));
}

TEST_F(Board, EndpointRecordNeedsASpeed) {
    write_description();
    const OpenFd endpoint(open("/dev/gadget/ep2out", O_RDWR));
    ASSERT_GE(endpoint.fd, 0);
    EXPECT_EQ(outcome_of(write(endpoint.fd, kOutRecord.data(), kOutRecord.size())), failed(EINVAL));
}

TEST_F(ConfiguredBoard, DisconnectFailsAPendingRead) {
    auto result = std::async(std::launch::async, [this] { return read_from(out.fd, 512); });
    board.disconnect();
    EXPECT_EQ(result.get(), failed(ESHUTDOWN));
    EXPECT_EQ(read_from(out.fd, 512), failed(ESHUTDOWN));
    EXPECT_EQ(outcome_of(write(in.fd, "x", 1)), failed(ESHUTDOWN));
    EXPECT_FALSE(board.bulk_out(Bytes{1}));
}

TEST_F(ConfiguredBoard, ResetFailsTheEndpointsAndConnectsAgain) {
    board.reset();
    EXPECT_EQ(read_from(out.fd, 512), failed(ESHUTDOWN));
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
}

TEST_F(ConfiguredBoard, DisconnectFailsABlockedWrite) {
    board.hold_bulk_in(true);
    auto error = std::async(std::launch::async, [this] {
        const Bytes packet(512);
        while (write(in.fd, packet.data(), packet.size()) == 512) {
        }
        return errno;
    });
    EXPECT_EQ(error.wait_for(Milliseconds(50)), std::future_status::timeout);
    board.disconnect();
    EXPECT_EQ(error.get(), ESHUTDOWN);
}

TEST_F(ConfiguredBoard, EndpointsOpenAnewAfterADisconnect) {
    board.disconnect();
    in.reset();
    out.reset();
    board.connect();
    in.fd = open_endpoint("/dev/gadget/ep6in", kInRecord);
    out.fd = open_endpoint("/dev/gadget/ep2out", kOutRecord);
    ASSERT_TRUE(board.wait_for_endpoints(kSoon));
    ASSERT_TRUE(board.bulk_out(Bytes{1, 2}));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{2, 0}));
}

TEST_F(ConfiguredBoard, OpenEndpointIsBusy) {
    EXPECT_EQ(outcome_of(open("/dev/gadget/ep2out", O_RDWR)), failed(EBUSY));
}

TEST_F(ConfiguredBoard, ClearHaltIsCountedForEachFile) {
    EXPECT_EQ(ioctl(out.fd, GADGETFS_CLEAR_HALT), 0);
    EXPECT_EQ(ioctl(out.fd, GADGETFS_CLEAR_HALT), 0);
    EXPECT_EQ(ioctl(in.fd, GADGETFS_CLEAR_HALT), 0);
    EXPECT_EQ(ioctl(in.fd, GADGETFS_FIFO_FLUSH), 0);
    // A later answer on the control file says that the notices have come.
    auto answer = ask({0x01, 11, 0, 0, 0});
    read_events();
    EXPECT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
    EXPECT_EQ(answer.get().status, ControlStatus::kAcknowledged);
    EXPECT_EQ(board.clear_halt_count("ep2out"), 2);
    EXPECT_EQ(board.clear_halt_count("ep6in"), 1);
    EXPECT_EQ(board.clear_halt_count("ep1in"), 0);
}

// What the receiver's reader thread does when it is cancelled.
struct Reader {
    int fd;
    bool cleaned_up;
};

void* read_forever(void* argument) {
    auto* const reader = static_cast<Reader*>(argument);
    pthread_cleanup_push([](void* cleaned) { static_cast<Reader*>(cleaned)->cleaned_up = true; },
                         reader);
    char bytes[512];
    while (read(reader->fd, bytes, sizeof bytes) >= 0) {
    }
    pthread_cleanup_pop(0);
    return nullptr;
}

TEST_F(ConfiguredBoard, BlockedReadIsACancellationPoint) {
    Reader reader = {out.fd, false};
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, read_forever, &reader), 0);
    ASSERT_TRUE(board.bulk_out(Bytes(512)));
    ASSERT_TRUE(board.wait_for_bulk_out_taken(kSoon));
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(reader.cleaned_up);
}

TEST_F(ConfiguredBoard, CloseWhileAReadIsUnderWayKeepsTheFileBusyUntilItReturns) {
    auto result = std::async(std::launch::async, [this] {
        char bytes[512];
        const ssize_t first = read(out.fd, bytes, sizeof bytes);
        return first < 0 ? first : read(out.fd, bytes, sizeof bytes);
    });
    ASSERT_TRUE(board.bulk_out(Bytes{1}));
    ASSERT_TRUE(board.wait_for_bulk_out_taken(kSoon));
    // The second read is entered at once; only a sleep can tell that it waits.
    std::this_thread::sleep_for(Milliseconds(50));
    const int fd = out.fd;
    close(fd);
    out.fd = -1;
    auto opened = std::async(std::launch::async, [] { return open("/dev/gadget/ep2out", O_RDWR); });
    EXPECT_EQ(opened.wait_for(Milliseconds(50)), std::future_status::timeout);
    ASSERT_TRUE(board.bulk_out(Bytes{1, 2, 3}));
    EXPECT_EQ(result.get(), 3);
    out.fd = opened.get();
    EXPECT_GE(out.fd, 0);
}

}  // namespace
