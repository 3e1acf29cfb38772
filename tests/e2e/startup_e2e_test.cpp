// From the command line to each of the process's ends.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/e2e/e2e_support.h"

namespace {

constexpr char kUsage[] =
    "DJI Osmo Pro/RAW Wired USB receiver\n"
    "Usage:\n"
    "-d | --dst-host=<destination_host>\n"
    "-s | --dst-port=<destination_port>\n"
    "-v | --verbose\n"
    "-? | --help - show this help\n";

using StartUp = ReceiverTest;

TEST_F(StartUp, SilentCameraEndsWithStatus2AfterTheseLines) {
    start();
    ASSERT_EQ(receiver->wait_exit(15s), 2) << receiver->output();

    // Both watches look every so often; whichever looks first ends the process.
    const std::string lines = receiver->lines_without_delta();
    EXPECT_TRUE(lines == kStartLines + "Camera connection timeout\n" ||
                lines == kStartLines + "Telemetry receiving timeout\n" ||
                lines == kStartLines + "Camera connection timeout\nTelemetry receiving timeout\n" ||
                lines == kStartLines + "Telemetry receiving timeout\nCamera connection timeout\n")
        << lines;
    EXPECT_EQ(receiver->standard_output(), "");
    EXPECT_EQ(file("/run/vantarel/board_supported"), "1");
    EXPECT_EQ(board->shell_commands(),
              (std::vector<std::string>{"modprobe gadgetfs", "mkdir /dev/gadget",
                                        "mount -t gadgetfs none /dev/gadget"}));
}

// A pause of the machine makes a step longer, never shorter: one start of some without a pause
// shows how long they are.
TEST_F(StartUp, DeltaGrowsByASecondEachSecondFromNearZero) {
    constexpr int kStarts = 4;
    std::string printed;
    for (int start_number = 1; start_number <= kStarts; ++start_number) {
        start();
        ASSERT_TRUE(receiver->wait_exit(30s).has_value());
        printed = receiver->output();
        std::vector<int> deltas;
        std::istringstream lines(printed);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("delta ")) {
                deltas.push_back(std::stoi(line.substr(6)));
            }
        }
        // 0, 1000, ... 5000: the pass at five seconds may fall on either side of the limit.
        bool near = deltas.size() >= 5 && deltas.size() <= 7;
        for (std::size_t i = 0; i < deltas.size(); ++i) {
            const int expected = static_cast<int>(i) * 1000;
            EXPECT_GT(deltas[i], expected - 500) << i;
            near = near && deltas[i] < expected + 500;
        }
        if (near) {
            return;
        }
    }
    FAIL() << printed;
}

TEST_F(StartUp, VerboseAddsItsMessages) {
    start({"-v", "-d", "127.0.0.2", "-s", "5005"});
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 10s)) << receiver->output();
    EXPECT_EQ(receiver->lines_without_delta(),
              std::string(kLinesBeforeOptions) + kLinesOfTheBuffers +
                  "Init connection to main application 127.0.0.2:5005\n" + kLineOfTheRemoteControl +
                  "Done\n"
                  "Init connection to camera\n" +
                  kLinesOfTheDevice);
}

TEST_F(StartUp, LongHostIsCutAndLeavesThePort) {
    start({"-v", "--dst-host=12345678901234567890", "--dst-port=77"});
    EXPECT_TRUE(
        receiver->wait_for("Init connection to main application 1234567890123456789:77\n", 10s))
        << receiver->output();
}

TEST_F(StartUp, HostOf19CharactersIsTakenWhole) {
    start({"-v", "-d", "255.255.255.255.255", "-d", "1234567890123456789"});
    EXPECT_TRUE(
        receiver->wait_for("Init connection to main application 1234567890123456789:5000\n", 10s))
        << receiver->output();
}

TEST_F(StartUp, EmptyHostIsNotLookedAt) {
    start({"-v", "-d", ""});
    EXPECT_TRUE(receiver->wait_for("Init connection to main application :5000\n", 10s))
        << receiver->output();
}

TEST_F(StartUp, HelpPrintsTheUsage) {
    for (const char* help : {"-?", "--help"}) {
        start({help});
        ASSERT_EQ(receiver->wait_exit(5s), 1) << help;
        EXPECT_EQ(receiver->output(), std::string(kLinesBeforeOptions) + kUsage) << help;
    }
}

TEST_F(StartUp, UnknownOptionEndsInTheUsage) {
    for (const char* unknown : {"-x", "--nonsense"}) {
        start({unknown});
        ASSERT_EQ(receiver->wait_exit(5s), 1) << unknown;
        // The C library may say a line of its own before it.
        EXPECT_TRUE(receiver->output().starts_with(kLinesBeforeOptions)) << receiver->output();
        EXPECT_TRUE(receiver->output().ends_with(kUsage)) << receiver->output();
    }
}

TEST_F(StartUp, PortsThatReadAsZeroAreRefused) {
    for (const char* port : {"0", "", "port", "4294967296"}) {
        start({"-s", port});
        ASSERT_EQ(receiver->wait_exit(5s), 1) << port;
        EXPECT_EQ(receiver->output(),
                  std::string(kLinesBeforeOptions) + "Destination host or port not set\n")
            << port;
    }
}

TEST_F(StartUp, HugeAndNegativePortsDoNoHarm) {
    for (const char* port : {"99999999999999999999999", "-1", "70000"}) {
        start({"-v", "-s", port, "no-option"});
        EXPECT_TRUE(receiver->wait_for("Gadget init done\n", 10s)) << port << receiver->output();
    }
}

struct Board {
    const char* model;
    bool supported;
};

class BoardCheck : public ReceiverTest, public testing::WithParamInterface<Board> {};

TEST_P(BoardCheck, DecidesByTheModelText) {
    SimulatedBoardOptions options;
    options.board_model = GetParam().model;
    start({"-s", "0"}, options);
    ASSERT_EQ(receiver->wait_exit(5s), 1);
    const std::string printed =
        std::string("DJI Osmo Pro/RAW Wired USB receiver\nBoard model: ") + GetParam().model + "\n";
    if (GetParam().supported) {
        EXPECT_EQ(receiver->output(), printed +
                                          "Board supported\n"
                                          "Loading camera config file... failed\n"
                                          "Destination host or port not set\n");
        EXPECT_EQ(file("/run/vantarel/board_supported"), "1");
    } else {
        EXPECT_EQ(receiver->output(), printed + "Board not supported\n");
        EXPECT_EQ(file("/run/vantarel/board_supported"), "0");
    }
}

INSTANTIATE_TEST_SUITE_P(Models, BoardCheck,
                         testing::Values(Board{"Raspberry Pi 4 Model B Rev 1.4", true},
                                         Board{"Raspberry Pi 3 Model A Plus Rev 1.0", true},
                                         Board{"Raspberry Pi 3 Model B Plus Rev 1.3", false},
                                         Board{"Raspberry Pi 5 Model B Rev 1.0", false},
                                         Board{"", false}));

TEST_F(StartUp, BoardWithoutAModelFileIsRefused) {
    make_board();
    std::filesystem::remove(board->path("/sys/firmware/devicetree/base/model"));
    start_on_board();
    ASSERT_EQ(receiver->wait_exit(5s), 1);
    EXPECT_EQ(receiver->output(),
              "DJI Osmo Pro/RAW Wired USB receiver\nBoard model: \nBoard not supported\n");
    EXPECT_EQ(file("/run/vantarel/board_supported"), "0");
}

TEST_F(StartUp, MissingRunDirectoryIsNoHindrance) {
    SimulatedBoardOptions options;
    options.with_run_directory = false;
    start({}, options);
    EXPECT_TRUE(receiver->wait_for("Gadget init done\n", 10s)) << receiver->output();
}

TEST_F(StartUp, FocusFileIsLoaded) {
    make_board();
    write_file("/boot/osmo-usb.conf",
               "# Osmo USB config file\r\n\r\nmf_min=500\r\nmf_max=2000\r\n");
    start_on_board({"-s", "0"});
    ASSERT_EQ(receiver->wait_exit(5s), 1);
    EXPECT_EQ(receiver->count("Loading camera config file... done\n"), 1) << receiver->output();
}

TEST_F(StartUp, StrangeFocusFilesDoNoHarm) {
    const std::string place = "/boot/osmo-usb.conf";
    struct Case {
        const char* name;
        void (*make)(const std::string& path);
    };
    const Case cases[] = {
        {"directory", [](const std::string& path) { std::filesystem::create_directory(path); }},
        {"empty", [](const std::string& path) { std::ofstream out(path); }},
        {"binary",
         [](const std::string& path) {
             std::ofstream out(path);
             for (int i = 0; i < 100000; ++i) {
                 out.put(static_cast<char>(i * 31));
             }
         }},
        {"values beyond 32 bits",
         [](const std::string& path) {
             std::ofstream out(path);
             out << "mf_min=99999999999999999999\nmf_max=-99999999999\n";
         }},
        {"1 GB of nothing",
         [](const std::string& path) {
             std::ofstream(path).close();
             std::filesystem::resize_file(path, 1U << 30);
         }},
    };
    for (const Case& c : cases) {
        make_board();
        c.make(board->path(place));
        start_on_board({"-s", "0"});
        ASSERT_EQ(receiver->wait_exit(60s), 1) << c.name << receiver->output();
        EXPECT_EQ(receiver->output(),
                  "DJI Osmo Pro/RAW Wired USB receiver\n"
                  "Board model: Raspberry Pi 4 Model B Rev 1.4\n"
                  "Board supported\n"
                  "Loading camera config file... done\n"
                  "Destination host or port not set\n")
            << c.name;
    }
}

TEST_F(StartUp, EachHandledSignalEndsWithStatus1) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGPIPE, SIGABRT, SIGSEGV}) {
        start();
        ASSERT_TRUE(receiver->wait_for("camera config file... failed\n", 5s));
        // Well into the pause that follows: the thread sanitizer loses a signal that comes while a
        // thread enters its first blocking call, and it hands SIGSEGV over at once, wherever it is.
        std::this_thread::sleep_for(200ms);
        receiver->signal(number);
        ASSERT_EQ(receiver->wait_exit(5s), 1) << number << receiver->output();
        EXPECT_EQ(receiver->output(),
                  kLinesBeforeOptions + ("signal " + std::to_string(number) + " handler\n"));
    }
}

TEST_F(StartUp, SharedMemoryThatCannotBeHadEndsWithStatus2) {
    // A directory of the object's name: it can be neither opened nor created.
    ASSERT_EQ(mkdir("/dev/shm/vantarel_framebuffer", 0700), 0);
    start();
    const std::optional<int> status = receiver->wait_exit(10s);
    rmdir("/dev/shm/vantarel_framebuffer");
    ASSERT_EQ(status, 2) << receiver->output();
    EXPECT_EQ(receiver->output(), std::string(kLinesBeforeOptions) +
                                      "Init telemetry buffer\n"
                                      "Init frame buffer 60003624 bytes\n"
                                      "Failed to init telemetry buffer\n");
}

// The one descriptor that it is left with beyond its standard files goes to the remote control's
// block, which is kept open: there is none for the channel's socket.
class RefusedChannel : public ReceiverTest {
  protected:
    void start_with(const char* option) {
        make_board();
        // The shell itself is to know nothing of the board.
        std::vector<std::string> arguments = board->environment();
        arguments.insert(arguments.begin(),
                         {"-c", "exec 3>&-; ulimit -n 4; exec env \"$@\"", "sh"});
        arguments.insert(arguments.end(), {RECEIVER_PROGRAM, option});
        receiver =
            std::make_unique<ReceiverProcess>(arguments, std::vector<std::string>{}, "/bin/sh");
    }
};

TEST_F(RefusedChannel, EndsWithStatus1) {
    start_with("--dst-port=5000");
    ASSERT_EQ(receiver->wait_exit(10s), 1) << receiver->output();
    EXPECT_EQ(receiver->output(),
              std::string(kLinesBeforeOptions) + kLinesOfTheBuffers + kLineOfTheRemoteControl);
}

TEST_F(RefusedChannel, SaysFailedWhereItIsVerbose) {
    start_with("--verbose");
    ASSERT_EQ(receiver->wait_exit(10s), 1) << receiver->output();
    EXPECT_EQ(receiver->output(), std::string(kLinesBeforeOptions) + kLinesOfTheBuffers +
                                      "Init connection to main application 127.0.0.1:5000\n" +
                                      kLineOfTheRemoteControl + "Failed\n");
}

TEST_F(StartUp, ObjectOfAnEarlierRunIsTakenOver) {
    const int fd = shm_open("vantarel_framebuffer", O_RDWR | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    const Bytes rubbish(100000, 0xA5);
    ASSERT_EQ(write(fd, rubbish.data(), rubbish.size()), static_cast<ssize_t>(rubbish.size()));
    start();
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 10s));
    struct stat status {};
    ASSERT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_size, 60003624);
    Bytes content(60003624);
    ASSERT_EQ(pread(fd, content.data(), content.size(), 0), 60003624);
    close(fd);
    EXPECT_EQ(content[0], 1);
    EXPECT_EQ(std::count(content.begin(), content.end(), 0), 60003623);
}

TEST_F(StartUp, ChannelBlockOfARunningRemoteControlIsOpened) {
    const int fd = shm_open("shared_rc_raw", O_RDWR | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    close(fd);
    start();
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 10s)) << receiver->output();
    EXPECT_EQ(receiver->lines_without_delta(),
              std::string(kLinesBeforeOptions) + kLinesOfTheBuffers + "Shared raw RC mem opened\n" +
                  kLinesOfTheDevice);
}

TEST_F(StartUp, BoardWithoutAControllerFailsToInitTheGadget) {
    SimulatedBoardOptions options;
    options.controller = "some-other-udc";
    start({}, options);
    ASSERT_EQ(receiver->wait_exit(10s), 1);
    EXPECT_EQ(receiver->output(), std::string(kLinesBeforeOptions) + kLinesOfTheBuffers +
                                      kLineOfTheRemoteControl +
                                      "Mounting gadgetfs\n"
                                      "Couldn't open USB device\n"
                                      "Gadget init failed\n");
}

TEST_F(StartUp, Port6000InUseIsNoHindrance) {
    const UdpPeer holder("0.0.0.0", 6000);
    start();
    EXPECT_TRUE(receiver->wait_for("Gadget init done\n", 10s)) << receiver->output();
}

}  // namespace
