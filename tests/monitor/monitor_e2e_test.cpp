// The monitor at work: what a browser, a player and a script see of camera and receiver.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/monitor/monitor_fixture.h"

namespace {

using namespace std::string_literals;

constexpr std::size_t kHeader = 9;  // of a picture's message

TEST_F(MonitorTest, StreamIsTheClipFromAKeyFrameOn) {
    start_monitor();
    start_camera();
    play(60);
    WebConnection connection(port);
    ASSERT_TRUE(connection.send("GET /video.h264 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
    std::string stream;
    while (stream.size() < 3 * video.size()) {
        const std::string more = connection.receive(20s);
        ASSERT_FALSE(more.empty());
        stream += more;
    }
    stream.erase(0, stream.find("\r\n\r\n") + 4);
    // Zeros tell a client that the stream stands still; the receiver's stored key frame is not in
    // it, though the stream may have begun in time to see it.
    const std::size_t begin = stream.find(video.substr(0, 64));
    ASSERT_NE(begin, std::string::npos);
    EXPECT_EQ(stream.substr(0, begin), std::string(begin, '\0'));
    std::size_t at = 0;
    EXPECT_TRUE(continues_clip(stream.substr(begin), &at));
}

TEST_F(MonitorTest, LiveBeginsWithStateThenFormatThenAKeyFrame) {
    start_monitor();
    start_camera();
    play(60);
    ASSERT_TRUE(state_says("\"video_width\":1280", 20s));
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    LiveClient live(port);
    ASSERT_EQ(live.status(), 101);
    const auto first = live.next(10s);
    ASSERT_TRUE(first);
    EXPECT_TRUE(first->bytes.starts_with("{\"state\":{")) << first->bytes;
    EXPECT_NE(first->bytes.find("\"camera_model\":\"DJI Osmo"), std::string::npos);
    EXPECT_TRUE(live.says("{\"video\":{\"codec\":\"avc1.", 10s));
    const auto picture = live.next(10s);
    ASSERT_TRUE(picture && !picture->is_text);
    EXPECT_EQ(picture->bytes[0], 1);
    std::size_t at = 0;
    EXPECT_TRUE(continues_clip(picture->bytes.substr(kHeader), &at));
    for (int i = 0; i < 30; ++i) {
        const auto next = live.next_picture(10s);
        ASSERT_TRUE(next);
        EXPECT_EQ((*next)[0], at == 0 ? 1 : 0);
        EXPECT_TRUE(continues_clip(next->substr(kHeader), &at));
    }
}

TEST_F(MonitorTest, CommandReachesTheCameraAndItsAnswerTheViewer) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    LiveClient live(port);
    ASSERT_TRUE(live.send_text(R"({"command":{"cmd":"iso","param":"400"}})"));
    EXPECT_TRUE(live.says(R"({"sent":{"cmd":"iso","param":"400"}})", 10s));
    EXPECT_TRUE(live.says(R"("iso_set":"400")", 10s));
    EXPECT_EQ(camera->get("iso_set"), "400");

    const WebAnswer answer = web_post(port, "/api/command", R"({"cmd":"iso","param":"800"})");
    EXPECT_EQ(answer.status, 200) << answer.body;
    EXPECT_TRUE(live.says(R"("iso_set":"800")", 10s));
}

TEST_F(MonitorTest, ZoomReachesTheCamera) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    EXPECT_EQ(
        web_post(port, "/api/command", R"({"cmd":"zoom","param":"optical","value":"1"})").status,
        200);
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (camera->counts().taken.empty() && std::chrono::steady_clock::now() < end) {
        usleep(10000);
    }
    EXPECT_FALSE(camera->counts().taken.empty());
    EXPECT_EQ(camera->refused(), 0U);
}

constexpr char kZoomIn[] = R"({"command":{"cmd":"zoom","param":"optical","value":"1"}})";

TEST_F(MonitorTest, ZoomOfAViewerThatLeavesStops) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    {
        LiveClient live(port);
        live.send_text(kZoomIn);
        ASSERT_TRUE(camera->wait_for("zoom_direction", "1", 10s));
    }
    EXPECT_TRUE(camera->wait_for("zoom_direction", "0", 10s));
    LiveClient other(port);
    EXPECT_TRUE(other.says("zoom stopped", 10s));
}

TEST_F(MonitorTest, ZoomOfAViewerStopsWhenTheMonitorEnds) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    LiveClient live(port);
    live.send_text(kZoomIn);
    ASSERT_TRUE(camera->wait_for("zoom_direction", "1", 10s));
    monitor->signal(SIGTERM);
    EXPECT_EQ(monitor->wait_exit(15s), 0);
    EXPECT_TRUE(camera->wait_for("zoom_direction", "0", 10s));
    monitor.reset();
}

TEST_F(MonitorTest, ZoomGoesOnWhenAnotherViewerLeaves) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    LiveClient hand(port);
    {
        LiveClient other(port);
        other.send_text(kZoomIn);
        ASSERT_TRUE(camera->wait_for("zoom_direction", "1", 10s));
        hand.send_text(R"({"command":{"cmd":"zoom","param":"optical","value":"-1"}})");
        ASSERT_TRUE(camera->wait_for("zoom_direction", "-1", 10s));
    }
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (metric("viewers") != 1 && std::chrono::steady_clock::now() < end) {
        usleep(50000);
    }
    // What the leaving had sent would be there by now.
    ASSERT_EQ(web_post(port, "/api/command", R"({"cmd":"iso","param":"800"})").status, 200);
    ASSERT_TRUE(camera->wait_for("iso_set", "800", 10s));
    EXPECT_EQ(camera->get("zoom_direction"), "-1");
}

// The simulated camera sends them while its histogram is on.
TEST_F(MonitorTest, ParametersAreAmongTheValues) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(camera->set("histogram", "1"));
    const std::string key = "\"parameters\":\"";
    LiveClient live(port);
    ASSERT_TRUE(live.says(key, 20s));
    const std::string state = web_get(port, "/api/state").body;
    const std::size_t begin = state.find(key) + key.size();
    EXPECT_EQ(state.find_first_not_of("0123456789abcdef", begin), begin + std::size_t{2} * 53);
}

double pan_channel() {
    const int fd = shm_open("shared_rc_raw", O_RDONLY, 0);
    double pan = 0;
    EXPECT_EQ(pread(fd, &pan, sizeof pan, 1056), static_cast<ssize_t>(sizeof pan));
    close(fd);
    return pan;
}

bool pan_becomes(double value) {
    const auto end = std::chrono::steady_clock::now() + 5s;
    while (pan_channel() != value && std::chrono::steady_clock::now() < end) {
        usleep(1000);
    }
    return pan_channel() == value;
}

TEST_F(MonitorTest, SticksTurnTheGimbalAndComeToRestWhenTheHandIsGone) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    LiveClient live(port);
    live.send_text(R"({"command":{"cmd":"set","name":"movement","value":"rel"}})");
    ASSERT_TRUE(live.says("{\"sent\":", 10s));
    const auto yaw = camera->get("yaw");
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (camera->get("yaw") == yaw && std::chrono::steady_clock::now() < end) {
        live.send_text(R"({"sticks":{"pan":0.5,"tilt":0,"dutch":0}})");
        usleep(100000);
    }
    EXPECT_NE(camera->get("yaw"), yaw);
    while (pan_channel() != 0 && std::chrono::steady_clock::now() < end) {
        usleep(100000);
    }
    EXPECT_EQ(pan_channel(), 0);
    live.send_text(R"({"sticks":{"pan":1.5,"tilt":0,"dutch":0}})");
    EXPECT_TRUE(live.says("{\"refused\":\"a stick goes from -1 to 1\",\"of\":\"sticks\"}", 10s));
    live.send_text(R"({"sticks":{"pan":1}})");
    EXPECT_TRUE(live.says("{\"refused\":", 10s));
    EXPECT_EQ(pan_channel(), 0);
}

TEST_F(MonitorTest, HandThatHoldsTheSticksIsNotStoppedByAnotherThatLeaves) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(state_says("\"receiver\":\"present\"", 20s));
    LiveClient hand(port);
    {
        LiveClient other(port);
        other.send_text(R"({"sticks":{"pan":0.25,"tilt":0,"dutch":0}})");
        EXPECT_TRUE(pan_becomes(0.25));
        hand.send_text(R"({"sticks":{"pan":0.5,"tilt":0,"dutch":0}})");
        EXPECT_TRUE(pan_becomes(0.5));
    }
    const auto end = std::chrono::steady_clock::now() + 3s;
    while (metric("viewers") != 1 && std::chrono::steady_clock::now() < end) {
        hand.send_text(R"({"sticks":{"pan":0.5,"tilt":0,"dutch":0}})");
        EXPECT_EQ(pan_channel(), 0.5);
    }
    EXPECT_EQ(pan_channel(), 0.5);
}

// A gimbal would turn on.
TEST_F(MonitorTest, SticksAreAtRestWhenTheTerminalIsClosedAndAfterAMonitorThatWasKilled) {
    start_monitor();
    start_camera();
    ASSERT_TRUE(state_says("\"receiver\":\"present\"", 20s));
    for (const int signal : {SIGHUP, SIGKILL}) {
        LiveClient live(port);
        live.send_text(R"({"sticks":{"pan":0.5,"tilt":0,"dutch":0}})");
        ASSERT_TRUE(pan_becomes(0.5));
        monitor->signal(signal);
        EXPECT_EQ(monitor->wait_exit(15s), signal == SIGHUP ? 0 : -SIGKILL);
        EXPECT_EQ(pan_channel(), signal == SIGHUP ? 0 : 0.5);
        start_monitor();
        EXPECT_EQ(pan_channel(), 0);
    }
}

TEST_F(MonitorTest, ReceiverThatEndsIsLostAndItsViewersSeeTheNextOne) {
    start_monitor();
    start_camera();
    play(30);
    LiveClient live(port);
    ASSERT_TRUE(live.next_picture(20s));
    ASSERT_TRUE(live.says("\"receiver\":\"present\"", 20s));
    end_camera();
    EXPECT_TRUE(live.says("\"receiver\":\"lost\"", 20s));
    EXPECT_EQ(web_post(port, "/api/command", R"({"cmd":"shot"})").status, 503);
    start_camera();
    play(30);
    EXPECT_TRUE(live.says("\"receiver\":\"present\"", 20s));
    EXPECT_TRUE(live.next_picture(20s));
    EXPECT_EQ(web_post(port, "/api/command", R"({"cmd":"shot"})").status, 200);
    EXPECT_TRUE(camera->wait_for_taken("shot", 1, 10s));
}

TEST_F(MonitorTest, CameraThatFallsSilentIsLostWhileTheReceiverIsThere) {
    start_monitor();
    start_camera();
    play(30);
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    ASSERT_TRUE(LiveClient(port).next_picture(20s));
    stop_playing();
    camera->link_ends();
    EXPECT_TRUE(state_says("\"camera\":\"lost\"", 4900ms));
    EXPECT_TRUE(state_says("\"receiver\":\"present\"", 0s));
    camera->link_begins();
    play(30);
    EXPECT_TRUE(state_says("\"camera\":\"present\"", 5s));
    EXPECT_TRUE(state_says("\"receiver\":\"present\"", 0s));
}

TEST_F(MonitorTest, ViewerThatReadsNothingLosesPicturesAndNobodyElseDoes) {
    start_monitor();
    start_camera();
    play(60);
    const LiveClient asleep(port);
    ASSERT_EQ(asleep.status(), 101);
    LiveClient awake(port);
    auto picture = awake.next_picture(20s);
    ASSERT_TRUE(picture);
    while ((*picture)[0] != 1 || picture->size() < 1000) {  // the receiver's own is smaller
        picture = awake.next_picture(20s);
        ASSERT_TRUE(picture);
    }
    std::size_t at = 0;
    const auto end = std::chrono::steady_clock::now() + 60s;
    bool dropped = false;
    for (int i = 0; !dropped && std::chrono::steady_clock::now() < end; ++i) {
        ASSERT_TRUE(continues_clip(picture->substr(kHeader), &at)) << "picture " << i;
        picture = awake.next_picture(20s);
        ASSERT_TRUE(picture);
        dropped = i % 60 == 0 && metric("viewer_dropped_pictures_total") > 0;
    }
    EXPECT_TRUE(dropped);
}

// What came behind a part of a picture would be taken for its rest.
TEST_F(MonitorTest, ViewerThatStallsWithinAPictureGetsNothingBehindIt) {
    start_monitor();
    start_camera();
    play(120);
    LiveClient live(port);
    ASSERT_TRUE(live.next_picture(20s));
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (metric("viewer_dropped_pictures_total") == 0) {
        ASSERT_LT(std::chrono::steady_clock::now(), end);
        usleep(100000);
    }
    // The picture has ten seconds to go on, and has waited for some of them.
    const auto let_go = std::chrono::steady_clock::now() + 14s;
    while (metric("viewers") != 0 && std::chrono::steady_clock::now() < let_go) {
        usleep(100000);
    }
    EXPECT_EQ(metric("viewers"), 0U);
    while (const auto message = live.next(5s)) {
        EXPECT_TRUE(message->is_text ? message->bytes.starts_with("{")
                                     : message->bytes.substr(kHeader).starts_with("\0\0\0\x01"s));
    }
    EXPECT_TRUE(live.ends(5s));
}

TEST_F(MonitorTest, PlayerThatReadsNothingIsLetGoAndNobodyElseLosesAPicture) {
    start_monitor();
    start_camera();
    play(60);
    const WebConnection asleep(port);
    asleep.send("GET /video.h264 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    LiveClient awake(port);
    std::size_t at = 0;
    bool in_clip = false;
    const auto end = std::chrono::steady_clock::now() + 60s;
    for (int i = 0; i % 60 != 59 || metric("viewers") != 1; ++i) {
        ASSERT_LT(std::chrono::steady_clock::now(), end);
        const auto picture = awake.next_picture(20s);
        ASSERT_TRUE(picture);
        in_clip = in_clip || ((*picture)[0] == 1 && picture->size() > 1000);
        ASSERT_TRUE(!in_clip || continues_clip(picture->substr(kHeader), &at));
    }
    EXPECT_GT(metric("viewer_dropped_pictures_total"), 0U);
}

TEST_F(MonitorTest, MonitorThatComesLaterSeesTheCamera) {
    start_camera();
    play(30);
    usleep(2000000);
    start_monitor();
    LiveClient live(port);
    EXPECT_TRUE(live.says("\"camera\":\"present\"", 10s));
    EXPECT_TRUE(live.next_picture(10s));
    EXPECT_EQ(web_post(port, "/api/command", R"({"cmd":"shot"})").status, 200);
    EXPECT_TRUE(camera->wait_for_taken("shot", 1, 10s));
}

TEST_F(MonitorTest, RingThatIsClearedCostsNoMoreThanTheNextKeyFrame) {
    start_monitor();
    start_camera();
    play(60);
    LiveClient live(port);
    ASSERT_TRUE(live.next_picture(20s));
    const int fd = shm_open("vantarel_framebuffer", O_RDWR, 0);
    const std::uint16_t clear = 1;
    std::size_t at = 0;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(pwrite(fd, &clear, sizeof clear, 0), static_cast<ssize_t>(sizeof clear));
        usleep(200000);
        auto picture = live.next_picture(20s);
        while (picture && ((*picture)[0] != 1 || picture->size() < 1000)) {
            picture = live.next_picture(20s);
        }
        ASSERT_TRUE(picture) << i;
        at = 0;
        EXPECT_TRUE(continues_clip(picture->substr(kHeader), &at)) << i;
    }
    close(fd);
}

TEST_F(MonitorTest, FiftyViewersSeeEveryPicture) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer makes each of them too slow";
#endif
    start_monitor();
    start_camera();
    play(30);
    ASSERT_TRUE(state_says("\"video_width\":1280", 20s));
    std::atomic<int> satisfied{0};
    std::atomic<bool> failed{false};
    std::atomic<bool> stop{false};
    // Who has seen enough still reads, as a browser does, until all have.
    const auto view = [&] {
        LiveClient viewer(port);
        std::size_t at = 0;
        for (int i = 1; !stop && !failed; ++i) {
            const auto picture = viewer.next_picture(30s);
            if (!picture || !continues_clip(picture->substr(kHeader), &at)) {
                failed = true;
            }
            satisfied += i == 90 && !failed ? 1 : 0;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 50; ++i) {
        threads.emplace_back(view);
    }
    while (satisfied < 50 && !failed) {
        usleep(10000);
    }
    EXPECT_EQ(satisfied, 50);
    EXPECT_EQ(metric("viewers"), 50U);
    EXPECT_EQ(metric("viewer_dropped_pictures_total"), 0U);
    EXPECT_EQ(metric("missed_parts_total"), 0U);
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
