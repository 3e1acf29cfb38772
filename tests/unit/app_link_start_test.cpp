// The main application's side as a whole: channel, messages, telemetry thread, on the real clock.
#include "app/app_link_start.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>

#include "app/millisecond_clock.h"
#include "link/app_link.h"
#include "link/telemetry_thread.h"
#include "link_start_calls.h"
#include "udp_peer.h"

namespace {

using Clock = std::chrono::steady_clock;

// The callbacks tell nobody but standard error; what they precede can be seen in the record.
bool wait_for_presence(bool present) {
    const auto end = Clock::now() + std::chrono::seconds(10);
    while ((app_link.last_receive_ms != 0) != present) {
        if (Clock::now() > end) {
            return false;
        }
        usleep(1000);
    }
    return true;
}

int note_thread(ThreadBody body) {
    fprintf(stderr, body == telemetry_thread ? "telemetry thread\n" : "other thread\n");
    return 0;
}

TEST(AppLinkStartDeathTest, NoSocketFailsTheStartBeforeAnyThread) {
    const auto start_without_descriptors = [] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        thread_hook = note_thread;
        _exit(app_link_start("127.0.0.1", 5000) == -1 ? 0 : 1);
    };
    EXPECT_EXIT(start_without_descriptors(), testing::ExitedWithCode(0), testing::Eq(""));
}

TEST(AppLinkStartDeathTest, ChannelIsOpenedWithAllSetAndTheTelemetryStartsAfterIt) {
    const auto start = [] {
        socket_hook = [](int /*socket*/) {
            fprintf(stderr, "socket, %d bytes, found %d, lost %d\n",
                    app_link.rx_buffer == nullptr ? 0 : app_link.rx_buffer_size,
                    app_link.on_peer_found != nullptr, app_link.on_peer_lost != nullptr);
        };
        thread_hook = note_thread;
        _exit(app_link_start("127.0.0.1", 5000) == 0 ? 0 : 1);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0),
                testing::Eq("socket, 10000 bytes, found 1, lost 1\n"
                            "other thread\n"
                            "telemetry thread\n"));
}

TEST(AppLinkStartDeathTest, WithoutAThreadForTheTelemetryTheStartSucceeds) {
    const auto start = [] {
        thread_hook = [](ThreadBody body) {
            note_thread(body);
            return body == telemetry_thread ? EAGAIN : 0;
        };
        _exit(app_link_start("127.0.0.1", 5000) == 0 ? 0 : 1);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0),
                testing::Eq("other thread\ntelemetry thread\n"));
}

TEST(AppLinkStart, MainApplicationComesAndGoes) {
    testing::internal::CaptureStderr();
    char host[] = "127.0.0.9";
    ASSERT_EQ(app_link_start(host, 4321), 0);
    memset(host, 'x', sizeof(host) - 1);
    EXPECT_STREQ(telemetry_destination.host, "127.0.0.9");
    EXPECT_EQ(telemetry_destination.port, 4321);
    EXPECT_EQ(app_link.rx_buffer_size, 10000);
    EXPECT_EQ(app_link.clear_before_receive, 1);
    const std::uint16_t port = bound_port(app_link.socket);
    ASSERT_NE(port, 0);

    const UdpPeer peer;
    ASSERT_TRUE(peer.send({'!'}, port));
    ASSERT_TRUE(wait_for_presence(true));

    // The presence is looked at once a second and allows for one of silence.
    const std::uint32_t last = app_link.last_receive_ms;
    ASSERT_TRUE(wait_for_presence(false));
    const std::uint32_t silence = clock_ms() - last;
    EXPECT_GT(silence, 1000U);
    EXPECT_LT(silence, 3000U);  // two seconds, and one for a busy machine

    ASSERT_TRUE(peer.send({'!'}, port));
    ASSERT_TRUE(wait_for_presence(true));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Main application found\nMain application lost\nMain application found\n");
}

}  // namespace
