#include "tests/monitor/monitor_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "simulator/camera_stream.h"
#include "tests/monitor/own_directory.h"

namespace {

constexpr std::size_t kChunk = 8000;  // several a picture

std::string as_text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

}  // namespace

MonitorTest::MonitorTest() : video(as_text(clip("1280x720-1.h264"))) {
    directory = own_directory("monitor-test");
    board_directory = directory + "/board";
    std::filesystem::create_directory(board_directory);
}

MonitorTest::~MonitorTest() {
    end_camera();
    if (monitor) {
        monitor->signal(SIGTERM);
        EXPECT_EQ(monitor->wait_exit(15s), 0) << monitor->output();
        EXPECT_EQ(monitor->output(), "");
    }
    std::filesystem::remove_all(directory);
}

void MonitorTest::start_monitor(std::vector<std::string> arguments) {
    if (std::count(arguments.begin(), arguments.end(), "--listen") == 0) {
        arguments.insert(arguments.end(), {"--listen", "127.0.0.1:0"});
    }
    arguments.insert(arguments.end(), {"--run-directory", board_directory + "/run/vantarel",
                                       "--page", directory + "/page"});
    monitor =
        std::make_unique<ReceiverProcess>(arguments, std::vector<std::string>{}, MONITOR_PROGRAM);
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (monitor->standard_output().find("/\n") == std::string::npos &&
           std::chrono::steady_clock::now() < end) {
        usleep(10000);
    }
    const std::string address = monitor->standard_output();
    ASSERT_TRUE(address.starts_with("http://")) << monitor->output();
    port = static_cast<std::uint16_t>(atoi(address.c_str() + address.find(':', 5) + 1));
}

void MonitorTest::start_camera() {
    SimulatedBoardOptions options;
    options.root = board_directory;
    start({}, options);
    ASSERT_TRUE(board->wait_for_device(20s)) << receiver->output();
    ASSERT_TRUE(board->configure()) << receiver->output();
    ASSERT_TRUE(board->wait_for_endpoints(20s)) << receiver->output();
    camera.emplace(*board);
    camera->link_begins();
}

void MonitorTest::end_camera() {
    stop_playing();
    camera.reset();
    receiver.reset();
    board.reset();
}

void MonitorTest::play(int pictures_per_second) {
    plays_ = true;
    player_ = std::thread([this, pictures_per_second] {
        std::vector<Bytes> units;
        for (const Bytes& unit : access_units(Bytes(video.begin(), video.end()))) {
            Bytes envelopes;
            for (const Bytes& chunk : video_chunks(unit, kChunk)) {
                const Bytes envelope = video_envelope(chunk);
                envelopes.insert(envelopes.end(), envelope.begin(), envelope.end());
            }
            units.push_back(envelopes);
        }
        for (std::size_t i = 0; plays_; ++i) {
            if (!camera->send(units[i % units.size()])) {
                return;
            }
            usleep(static_cast<useconds_t>(1000000 / pictures_per_second));
        }
    });
}

void MonitorTest::stop_playing() {
    plays_ = false;
    if (player_.joinable()) {
        player_.join();
    }
}

bool MonitorTest::state_says(const std::string& text, std::chrono::milliseconds timeout) const {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (web_get(port, "/api/state").body.find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        usleep(50000);
    }
    return true;
}

std::uint64_t MonitorTest::metric(const std::string& name) const {
    const std::string text = web_get(port, "/metrics").body;
    const std::size_t at = text.find("\nreceiver_monitor_" + name + " ");
    EXPECT_NE(at, std::string::npos) << name << " is not among\n" << text;
    return at == std::string::npos ? 0 : std::stoull(text.substr(text.find(' ', at)));
}

bool MonitorTest::continues_clip(const std::string& bytes, std::size_t* at) const {
    for (const char byte : bytes) {
        if (byte != video[*at]) {
            return false;
        }
        *at = (*at + 1) % video.size();
    }
    return true;
}
