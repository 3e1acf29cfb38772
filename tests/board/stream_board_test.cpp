// The main job as it is in the field, on an honest clock: the camera's stream in on the USB port,
// the video out of shared memory, reports out and commands in by UDP and by the channel block, all
// at once and each in a process of its own.

#include <signal.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <tuple>

#include "simulator/camera_stream.h"
#include "tests/board/board_support.h"
#include "tests/board/report_listener.h"
#include "tests/e2e/remote_control.h"
#include "tests/e2e/udp_peer.h"

namespace {

using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;

// 60 seconds at 30 pictures a second, made by make-clips.sh; as the board sees it.
constexpr char kClip[] = "/mnt/build/clips/minute-8-mbit.h264";
constexpr auto kLastPicture = 1799 * 1000ms / 30;
constexpr std::size_t kChunk = 48000;  // camera-simulator's, where nothing else is asked for
constexpr char kVideo[] = "/tmp/video.h264";
constexpr char kPackets[] = "/tmp/packets";

// What is sent in turn: packets for single commands, some for the stick, and a few a second apart.
constexpr std::size_t kFirstPackets = 12;
constexpr char kTurned[] = "55170438020440040A7CFC000000006400E004";
constexpr char kAtRest[] = "55170438020440040A0000000000006400E004";
constexpr std::size_t kSteady = 20;

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::unique_ptr<ReceiverProcess> run_tool(const std::string& name, const Strings& arguments) {
    return std::make_unique<ReceiverProcess>(arguments, Strings{}, "/mnt/build/simulator/" + name);
}

// What the receiver has sent, as the camera has recorded it: each packet a line of hex digits.
Strings packets() {
    std::istringstream lines(contents(kPackets));
    Strings read;
    for (std::string line; std::getline(lines, line);) {
        read.push_back(line);
    }
    return read;
}

// A packet without its number and its second checksum.
std::string unnumbered(const std::string& packet) {
    return packet.substr(0, 12) + packet.substr(16, packet.size() - 20);
}

unsigned number(const std::string& packet) {
    return static_cast<unsigned>(
        std::stoul(packet.substr(14, 2) + packet.substr(12, 2), nullptr, 16));
}

std::string repeated(const std::string& text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

std::string without(std::string text, const std::string& line) {
    for (std::size_t at; (at = text.find(line)) != std::string::npos;) {
        text.erase(at, line.size());
    }
    return text;
}

class MainJob : public BoardTest {
  protected:
    bool camera_says(const std::string& text, std::chrono::milliseconds timeout) {
        return ear.until([&] { return camera->standard_output().find(text) != std::string::npos; },
                         timeout);
    }
    bool packets_are(std::size_t count) {
        return ear.until([&] { return packets().size() >= count; }, 15s);
    }
    void command(const std::string& json) { EXPECT_TRUE(ear.app.command(json)); }

    // All are in place before the board can be seen on its port.
    void start_all();
    void send_by_bridge();
    void send_by_json();
    void press_buttons();
    void turn_stick();
    void send_steadily();

    void expect_packets() const;
    void expect_video() const;
    void expect_reports(std::chrono::duration<double> time) const;
    void expect_lines() const;

    ReportListener ear;
    std::optional<RemoteControl> remote;
    std::unique_ptr<ReceiverProcess> camera;
    std::unique_ptr<ReceiverProcess> recorder;

    std::size_t turns = 0;  // packets of the stick out of its rest
};

// The camera looks at its port once it has read its file.
void MainJob::start_all() {
    camera = run_tool("camera-simulator",
                      {"--usb", "--h264", kClip, "--pace", "realtime", "--record", kPackets});
    ASSERT_TRUE(camera_says("waiting for the receiver's device", 60s)) << camera->output();
    start(ear.app.arguments());
    ASSERT_TRUE(receiver->wait_for("Mounting gadgetfs\n", 20s)) << receiver->output();
    recorder = run_tool("video-ring-recorder", {"--output", kVideo});
    remote.emplace();
    ASSERT_TRUE(camera_says("interface claimed, configuration 2\n", 20s)) << receiver->output();
}

void MainJob::send_by_bridge() {
    const UdpPeer bridge;
    ASSERT_TRUE(bridge.send(6000, {0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0x00, 0x00, 0x40, 0x02, 0x02,
                                   0x01, 0x08, 0x44}));
    EXPECT_TRUE(ear.until_recording_is(true));
    EXPECT_TRUE(ear.until([&] { return ear.item("rec_time") > "00:00:00"; }, 15s));
    ASSERT_TRUE(bridge.send(6000, {0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0x01, 0x00, 0x40, 0x02, 0x02,
                                   0x00, 0xAA, 0x51}));
    EXPECT_TRUE(ear.until_recording_is(false));
}

void MainJob::send_by_json() {
    command(R"({"cmd":"record","param":"start"})");
    EXPECT_TRUE(ear.until_recording_is(true));
    command(R"({"cmd":"record","param":"stop"})");
    EXPECT_TRUE(ear.until_recording_is(false));
    command(R"({"cmd":"shutter","param":"1/100"})");
    EXPECT_TRUE(ear.until_item_is("shutter", "1/100"));
    command(R"({"cmd":"wb","param":"custom","value":"4200"})");
    EXPECT_TRUE(ear.until_item_is("wb_temp", "4200"));
    command(R"({"cmd":"iso","param":"800"})");
    EXPECT_TRUE(ear.until_item_is("iso_set", "800"));
    command(R"({"cmd":"set","name":"movement","value":"abs"})");  // the receiver's own matter
}

void MainJob::press_buttons() {
    remote->set(kIso, 1.0);
    EXPECT_TRUE(ear.until_item_is("iso_set", "1600"));
    remote->set(kMode, 1.0);
    EXPECT_TRUE(ear.until_item_is("camera_mode", "photo"));
    remote->set(kMode, -1.0);
    EXPECT_TRUE(ear.until_item_is("camera_mode", "video"));
    remote->set(kRecord, 1.0);
    EXPECT_TRUE(ear.until_recording_is(true));
    remote->set(kRecord, 0.0);
    EXPECT_TRUE(ear.until_recording_is(false));
}

// A packet in each cycle, and three at rest. The camera may record a packet after it has acted on
// it.
void MainJob::turn_stick() {
    ASSERT_TRUE(packets_are(kFirstPackets));
    remote->set(kPan, -0.5);
    ASSERT_TRUE(packets_are(kFirstPackets + 10));
    remote->set(kPan, 0.0);
    ASSERT_TRUE(
        ear.until([] { return unnumbered(packets().at(packets().size() - 3)) == kAtRest; }, 15s));
    turns = packets().size() - kFirstPackets - 3;
}

void MainJob::send_steadily() {
    std::size_t count = packets().size();
    for (std::size_t i = 0; i < kSteady; ++i) {
        command(i % 2 == 0 ? R"({"cmd":"iso","param":"100"})" : R"({"cmd":"iso","param":"200"})");
        ear.listen(1s);
        EXPECT_TRUE(packets_are(++count));
    }
}

void MainJob::expect_packets() const {
    // clang-format off
    const Strings first = {
        "550E046602010000400202010844",            // by the bridge, numbers as they were sent: record
        "550E04660201010040020200AA51",            // stop
        "550E046602010000400202010844",            // by JSON, the receiver's own numbers: record
        "550E04660201010040020200AA51",            // stop
        "5511049202010200400228016480006A31",      // shutter 1/100
        "550F04A20201030040022C062A5632",          // white balance 4200
        "550E04660201040040022A06E8CD",            // ISO 800
        "550E04660201050040022A074AD8",            // by the buttons: ISO 1600
        "550E04660901060040021000364C",            // photo
        "550E046609010700400210019459",            // video
        "550E046602010800400202015065",            // record
        "550E04660201090040020200F270",            // stop
    };
    // clang-format on
    const Strings read = packets();
    ASSERT_EQ(read.size(), kFirstPackets + turns + 3 + kSteady);
    EXPECT_EQ(Strings(read.begin(), read.begin() + kFirstPackets), first);

    // Then the stick, turned and at rest, and the steady commands: ISO 100 and 200.
    Strings rest(turns, kTurned);
    rest.insert(rest.end(), 3, kAtRest);
    for (std::size_t i = 0; i < kSteady; ++i) {
        rest.emplace_back(i % 2 == 0 ? "550E0466020140022A03" : "550E0466020140022A04");
    }
    unsigned next = 10;
    for (std::size_t i = 0; i < rest.size(); ++i, ++next) {
        const std::string& packet = read[kFirstPackets + i];
        EXPECT_EQ(unnumbered(packet), rest[i]);
        EXPECT_EQ(number(packet), next) << packet;
    }
}

void MainJob::expect_video() const {
    EXPECT_EQ(contents("/run/vantarel/video_width"), "1920");
    EXPECT_EQ(contents("/run/vantarel/video_height"), "1080");
    const std::string clip = contents(kClip);
    ASSERT_FALSE(clip.empty());
    // Behind the priming frame.
    const std::size_t parts = 1 + video_chunks(Bytes(clip.begin(), clip.end()), kChunk).size();
    EXPECT_TRUE(recorder->standard_output().ends_with("video    | " + std::to_string(parts) +
                                                      " parts, " + std::to_string(clip.size()) +
                                                      " bytes, 0 missed, 1920x1080\n"))
        << recorder->standard_output();
    EXPECT_TRUE(contents(kVideo) == clip) << "other bytes than were sent";
}

// One report a second, and five of the others; fewer on a board that is short of time.
void MainJob::expect_reports(std::chrono::duration<double> time) const {
    for (const auto& [name, arrivals, a_second] :
         {std::tuple("reports", &ear.reports(), 1.0),
          std::tuple("status records", &ear.status_records(), 5.0),
          std::tuple("parameter blocks", &ear.parameter_blocks(), 5.0)}) {
        const double pause = arrivals->longest_pause.count();
        printf("%s: %d, longest pause %.2f s\n", name, arrivals->count, pause);
        EXPECT_GE(arrivals->count, time.count() * a_second * 0.8) << name;
        EXPECT_LT(pause, 2.5) << name;
    }
}

void MainJob::expect_lines() const {
    std::string lines = lines_after_start();
    EXPECT_TRUE(lines.find("Main application found\n") != std::string::npos);
    // The application is lost in each pause between its commands.
    lines = without(without(lines, "Main application found\n"), "Main application lost\n");
    const std::string expected =
        std::string("USB connected\n") + kFirstVideoLines +
        "Live stream video resolution changed to 1920x1080\n"
        "JSON commands from app: {\"cmd\":\"record\",\"param\":\"start\"}\n"
        "Record start\n"
        "JSON commands from app: {\"cmd\":\"record\",\"param\":\"stop\"}\n"
        "Record stop\n"
        "JSON commands from app: {\"cmd\":\"shutter\",\"param\":\"1/100\"}\n"
        "Camera set shutter 1/100\n"
        "JSON commands from app: {\"cmd\":\"wb\",\"param\":\"custom\",\"value\":\"4200\"}\n"
        "Camera set WB custom\n"
        "Camera set WB temperature 4200\n"
        "JSON commands from app: {\"cmd\":\"iso\",\"param\":\"800\"}\n"
        "Camera set iso 800\n"
        "Camera set next ISO\n"
        "Camera set iso 1600\n"
        "Camera set mode photo\n"
        "Camera set mode video\n"
        "Record start\n"
        "Record stop\n" +
        repeated("abs position pan -900 tilt 0 dutch 0\n", turns) +
        repeated("abs position pan 0 tilt 0 dutch 0\n", 3) +
        repeated(
            "JSON commands from app: {\"cmd\":\"iso\",\"param\":\"100\"}\n"
            "Camera set iso 100\n"
            "JSON commands from app: {\"cmd\":\"iso\",\"param\":\"200\"}\n"
            "Camera set iso 200\n",
            kSteady / 2);
    ASSERT_TRUE(lines.starts_with(expected)) << lines;
    const std::string main = "Camera connection timeout\n";
    const std::string watchdog = "Telemetry receiving timeout\n";
    EXPECT_THAT(lines.substr(expected.size()),
                testing::AnyOf(main, watchdog, main + watchdog, watchdog + main));
}

TEST_F(MainJob, MinuteOfVideoWithReportsAndCommands) {
    ASSERT_NO_FATAL_FAILURE(start_all());
    const auto begin = Clock::now();
    EXPECT_TRUE(ear.until_item_is("camera_detected", "1")) << receiver->output();
    EXPECT_TRUE(ear.until_item_is("format", "1920x1080@30"));
    ASSERT_NO_FATAL_FAILURE(send_by_bridge());
    send_by_json();
    press_buttons();
    ASSERT_NO_FATAL_FAILURE(turn_stick());
    send_steadily();

    std::optional<int> camera_status;
    ear.until([&] { return (camera_status = camera->wait_exit(0ms)).has_value(); }, 200s);
    const auto time = Clock::now() - begin;
    printf("%.1f s of playing\n", std::chrono::duration<double>(time).count());
    EXPECT_EQ(camera_status, 0) << camera->standard_output() << camera->output();
    EXPECT_GT(time, kLastPicture - 1s);  // the beginning is seen a little late
    EXPECT_LT(time, kLastPicture + 6s) << "the board does not keep up";
    EXPECT_TRUE(camera->standard_output().ends_with("\ncommands refused: 0\n"))
        << camera->standard_output();
    expect_reports(time);

    // Now the camera is silent.
    EXPECT_EQ(receiver->wait_exit(15s), 2);
    expect_lines();
    recorder->signal(SIGTERM);
    EXPECT_EQ(recorder->wait_exit(10s), 0);
    expect_video();
    expect_packets();
}

}  // namespace
