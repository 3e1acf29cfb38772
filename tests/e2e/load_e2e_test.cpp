// Both sockets under a flood, while video, telemetry and commands go on.

#include <sched.h>

#include <cstdlib>
#include <optional>
#include <thread>

#include "simulator/simulated_camera.h"
#include "tests/e2e/e2e_support.h"
#include "tests/soak/application_run.h"
#include "tests/soak/datagram_flood.h"
#include "tests/soak/video_run.h"

namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double kDatagramsPerSecond = 1000;  // for a receiver that is that much slower
#else
constexpr double kDatagramsPerSecond = 10000;
#endif
constexpr Milliseconds kCommandPeriod{20};
constexpr Milliseconds kChunkPeriod{33};
constexpr std::size_t kLargestChunk = 48000;
constexpr std::uint16_t kBridgePort = 6000;
constexpr double kTextPeriod = 1000;
constexpr double kStatusPeriod = 200;

// The short run belongs to every build; LOAD_SECONDS=60 is the long one.
std::chrono::seconds load_time() {
    const char* const given = std::getenv("LOAD_SECONDS");
    return std::chrono::seconds(given != nullptr ? std::atoi(given) : 10);
}

// One in four is a command that the camera heeds, beside those whose arrival is watched.
std::vector<Bytes> for_the_application_socket() {
    const std::string command = R"(!{"cmd":"ev","param":"+0.3"})";
    std::vector<Bytes> datagrams = garbage_datagrams(997);
    for (std::size_t i = 0; i < datagrams.size(); i += 4) {
        datagrams[i] = Bytes(command.begin(), command.end());
    }
    return datagrams;
}

std::vector<Bytes> for_the_bridge() {
    std::vector<Bytes> datagrams = garbage_datagrams(997);
    const Bytes on = {1};
    for (std::size_t i = 0; i < datagrams.size(); i += 2) {
        datagrams[i] =
            camera_packet({0x02, 0x01, static_cast<std::uint16_t>(i), 0x40, 0x02, 0x60}, on);
    }
    return datagrams;
}

double mean(const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) {
        sum += value;
    }
    return values.empty() ? 0 : sum / static_cast<double>(values.size());
}

void print(const char* what, const std::vector<double>& values) {
    printf("  %-22s %6zu, mean %8.2f ms, median %8.2f, 99th percentile %8.2f, longest %8.2f\n",
           what, values.size(), mean(values), percentile(values, 50), percentile(values, 99),
           percentile(values, 100));
}

void expect_cadence(const std::vector<double>& pauses, double period, std::size_t expected) {
    EXPECT_GE(pauses.size(), expected * 8 / 10);
    EXPECT_NEAR(mean(pauses), period, 0.2 * period);
    EXPECT_NEAR(percentile(pauses, 1), period, 0.2 * period);
    EXPECT_NEAR(percentile(pauses, 99), period, 0.2 * period);
}

class Load : public ReceiverTest {
  protected:
    // Declared before what uses them; the camera ends before its board.
    MainApplication app;
    CommandWatch commands;
    std::optional<SimulatedCamera> camera;

    // The figures are the receiver's, not those of the compilers that run beside the test: ahead of
    // them, with all that is started from here. Where that is refused, they may show.
    Load() {
        const sched_param lowest = {sched_get_priority_min(SCHED_RR)};
        sched_setscheduler(0, SCHED_RR, &lowest);
    }
    ~Load() override { camera.reset(); }
    void start_camera(const std::vector<Bytes>& strangers) {
        start_configured(app.arguments());
        ASSERT_TRUE(board->wait_for_endpoints(5s));
        camera.emplace(commands.watch(usb_pipes(*board), {strangers.begin(), strangers.end()}));
        camera->link_begins();
    }
};

TEST_F(Load, FloodOnBothSocketsLosesNeitherVideoNorReportsNorCommands) {
    const std::vector<Bytes> to_bridge = for_the_bridge();
    ASSERT_NO_FATAL_FAILURE(start_camera(to_bridge));
    ApplicationRun application(app, commands, kCommandPeriod);
    VideoRun video(*camera, video_chunks(clip("1920x1080-5.h264"), kLargestChunk), kChunkPeriod);
    const auto socket = receiver->app_socket();
    ASSERT_TRUE(socket);

    const auto seconds = load_time();
    application.take_pauses();
    DatagramFlood app_flood(socket->port, kDatagramsPerSecond, for_the_application_socket());
    DatagramFlood bridge_flood(kBridgePort, kDatagramsPerSecond, to_bridge);
    std::this_thread::sleep_for(seconds);
    app_flood.stop();
    bridge_flood.stop();
    const ReportPauses pauses = application.take_pauses();
    application.stop();
    video.finish();
    std::this_thread::sleep_for(500ms);  // for the last command

    const auto drops = receiver->app_socket();
    ASSERT_TRUE(drops) << receiver->output();
    printf("  %lld s of %.0f and %.0f datagrams a second\n",
           static_cast<long long>(seconds.count()), app_flood.rate(), bridge_flood.rate());
    printf("  application's socket   %zu sent, %lu dropped; bridge %zu sent, %zu at the camera\n",
           app_flood.sent(), drops->drops, bridge_flood.sent(), commands.strangers());
    printf("  video parts            %zu sent, %zu lost\n", video.sent(), video.lost());
    printf("  commands               %zu sent, %zu lost\n", commands.sent(),
           commands.lost_in_all());
    print("command to camera", commands.latencies.take());
    print("envelope to ring", video.latencies.take());
    print("text reports", pauses.texts);
    print("status records", pauses.statuses);

    EXPECT_GE(app_flood.rate(), 0.99 * kDatagramsPerSecond);
    EXPECT_GE(bridge_flood.rate(), 0.99 * kDatagramsPerSecond);
    EXPECT_GE(video.sent(), static_cast<std::size_t>(seconds / kChunkPeriod) * 8 / 10);
    EXPECT_EQ(video.lost(), 0U);
    EXPECT_GE(commands.sent(), static_cast<std::size_t>(seconds / kCommandPeriod) * 9 / 10);
    EXPECT_EQ(commands.lost_in_all(), 0U) << drops->drops << " datagrams found no room";
    EXPECT_EQ(camera->taken("iso"), commands.sent());
    EXPECT_EQ(camera->refused(), 0U);
    expect_cadence(pauses.texts, kTextPeriod, static_cast<std::size_t>(seconds / 1s));
    expect_cadence(pauses.statuses, kStatusPeriod, static_cast<std::size_t>(seconds / 200ms));
}

// The bridge's thread is in the middle of its writes when the endpoint is closed under it.
TEST_F(Load, UnpluggedUnderAFloodTheReceiverEndsAsEver) {
    ASSERT_NO_FATAL_FAILURE(start_camera({}));
    ASSERT_TRUE(app.report(5s));
    DatagramFlood bridge_flood(kBridgePort, kDatagramsPerSecond, for_the_bridge());
    ASSERT_TRUE(board->wait_for_bulk_in(1000, 5s));
    board->disconnect();
    expect_link_end("USB connected\nread failed\n");
}

}  // namespace
