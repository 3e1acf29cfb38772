// The web side with times that a test can wait for.
#include "monitor/web_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <functional>

#include "tests/monitor/web_client.h"

namespace {

using namespace std::chrono_literals;

class WebServerTest : public testing::Test {
  protected:
    WebServerTest() : block_(shm_open("shared_rc_raw", O_CREAT | O_RDWR | O_CLOEXEC, 0600)) {
        EXPECT_EQ(ftruncate(block_, 1504), 0);
    }
    void SetUp() override { ASSERT_TRUE(server.start()); }
    ~WebServerTest() override {
        video.stop();
        server.stop();
        close(block_);
        shm_unlink("shared_rc_raw");
    }
    static bool comes_true(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (!condition() && std::chrono::steady_clock::now() < end) {
            usleep(10000);
        }
        return condition();
    }
    bool viewers_become(std::size_t count) {
        return comes_true([&] { return video.fanout().viewers() == count; });
    }
    bool pan_becomes(double value) const {
        return comes_true([&] {
            double pan = 0;
            EXPECT_EQ(pread(block_, &pan, sizeof pan, 1056), static_cast<ssize_t>(sizeof pan));
            return pan == value;
        });
    }

    TelemetryStore store;
    Sticks sticks{60s};
    VideoHub video{"/nonexistent"};
    Mp4Recorder recorder{video.fanout(), store, ""};
    ReceiverLink link{store, {}};
    HeldZoom zoom{link};
    CommandSender commands{store, zoom};
    WebServer server{{video, store, zoom, commands, sticks, recorder, 500ms},
                     {"127.0.0.1", 0, "", ""}};

  private:
    const int block_;
};

constexpr char kPan[] = R"({"sticks":{"pan":0.5,"tilt":0,"dutch":0}})";

TEST_F(WebServerTest, SticksOfAViewerThatLeavesComeToRestAtOnce) {
    {
        const LiveClient live(server.port());
        live.send_text(kPan);
        ASSERT_TRUE(pan_becomes(0.5));
    }
    EXPECT_TRUE(pan_becomes(0));
}

// It left its network: nothing tells of its end.
TEST_F(WebServerTest, ViewerThatVanishesIsLetGo) {
    const LiveClient live(server.port());
    ASSERT_EQ(live.status(), 101);
    ASSERT_TRUE(viewers_become(1));
    live.send_text(kPan);
    ASSERT_TRUE(pan_becomes(0.5));
    live.vanish();
    EXPECT_TRUE(viewers_become(0));
    EXPECT_TRUE(pan_becomes(0));
}

TEST_F(WebServerTest, PlayerThatVanishesIsLetGo) {
    const WebConnection player(server.port());
    player.send("GET /video.h264 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    ASSERT_TRUE(viewers_become(1));
    player.vanish();
    EXPECT_TRUE(viewers_become(0));
}

TEST_F(WebServerTest, ViewerThatOnlyListensStays) {
    const LiveClient live(server.port());
    ASSERT_TRUE(viewers_become(1));
    usleep(2500000);
    EXPECT_EQ(video.fanout().viewers(), 1U);
}

}  // namespace
