// The main application's side as a whole: channel, messages, telemetry thread, on the real clock.
// The remote control and what carries commands out are replaced.
#include "app/app_link_start.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "app/focus_config.h"
#include "app/millisecond_clock.h"
#include "app/supervision.h"
#include "control/app_command_dispatch.h"
#include "control/rc_thread.h"
#include "event_list.h"
#include "link/app_link.h"
#include "link/telemetry_thread.h"
#include "link_start_calls.h"
#include "protocol/camera_state.h"
#include "udp_peer.h"

namespace {

std::atomic<bool> camera_is_there;
EventList<std::string> commands;

}  // namespace

int rc_thread_start() {
    // There is nowhere to send a report to yet, so that only its length comes back.
    const ssize_t length =
        telemetry_destination.host == nullptr ? telemetry_send_report(camera_state) : -1;
    fprintf(stderr, "remote control, report of %zd bytes\n", length);
    return 0;
}

void app_command_dispatch(const std::uint8_t* buffer, std::uint16_t length, const char* host,
                          std::uint16_t /*port*/) {
    commands.add(std::string(buffer, buffer + length) + " from " + host);
}

bool link_is_active() {
    return camera_is_there;
}

namespace {

using Clock = std::chrono::steady_clock;

// An empty report has 315 bytes; these limits have three and four digits more than its zeros.
constexpr char kRemoteControlLine[] = "remote control, report of 322 bytes\n";

void set_focus_limits() {
    focus_config_get()->mf_min = 1234;
    focus_config_get()->mf_max = 56789;
}

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

TEST(AppLinkStartDeathTest, NoSocketFailsTheStartBeforeTheTelemetryThread) {
    const auto start_without_descriptors = [] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        thread_hook = note_thread;
        set_focus_limits();
        _exit(app_link_start("127.0.0.1", 5000) == -1 ? 0 : 1);
    };
    EXPECT_EXIT(start_without_descriptors(), testing::ExitedWithCode(0),
                testing::Eq(kRemoteControlLine));
}

TEST(AppLinkStartDeathTest, RemoteControlThenTheChannelWithAllSetThenTheTelemetry) {
    const auto start = [] {
        socket_hook = [](int /*socket*/) {
            fprintf(stderr, "socket, %d bytes, found %d, lost %d, datagram %d, reports to %s:%d\n",
                    app_link.rx_buffer == nullptr ? 0 : app_link.rx_buffer_size,
                    app_link.on_peer_found != nullptr, app_link.on_peer_lost != nullptr,
                    app_link.on_datagram == app_command_dispatch, telemetry_destination.host,
                    telemetry_destination.port);
        };
        thread_hook = note_thread;
        set_focus_limits();
        _exit(app_link_start("127.0.0.1", 5000) == 0 ? 0 : 1);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0),
                testing::Eq(std::string(kRemoteControlLine) +
                            "socket, 10000 bytes, found 1, lost 1, datagram 1, "
                            "reports to 127.0.0.1:5000\n"
                            "other thread\n"
                            "telemetry thread\n"));
}

TEST(AppLinkStartDeathTest, WithoutAThreadForTheTelemetryTheStartSucceeds) {
    const auto start = [] {
        set_focus_limits();
        thread_hook = [](ThreadBody body) {
            note_thread(body);
            return body == telemetry_thread ? EAGAIN : 0;
        };
        _exit(app_link_start("127.0.0.1", 5000) == 0 ? 0 : 1);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(0),
                testing::Eq(std::string(kRemoteControlLine) + "other thread\n"
                                                              "telemetry thread\n"));
}

TEST(AppLinkStart, MainApplicationComesAndGoes) {
    testing::internal::CaptureStderr();
    set_focus_limits();
    UdpPeer peer;
    char host[] = "127.0.0.1";
    ASSERT_EQ(app_link_start(host, peer.port()), 0);
    memset(host, 'x', sizeof(host) - 1);
    EXPECT_STREQ(telemetry_destination.host, "127.0.0.1");
    EXPECT_EQ(telemetry_destination.port, peer.port());
    EXPECT_EQ(app_link.rx_buffer_size, 10000);
    EXPECT_EQ(app_link.clear_before_receive, 1);
    const std::uint16_t port = bound_port(app_link.socket);
    ASSERT_NE(port, 0);

    // The presence is looked at once a second and allows for one of silence. A pause of the machine
    // makes it longer, never shorter: one presence of some without a pause shows how long it is.
    std::string expected = kRemoteControlLine;
    std::vector<std::string> expected_commands;
    std::uint32_t silence = UINT32_MAX;
    for (int presence = 0; presence < 5 && silence >= 3000U; ++presence) {
        ASSERT_TRUE(peer.send({'!', '1'}, port));
        ASSERT_TRUE(wait_for_presence(true));
        expected_commands.emplace_back("!1 from 127.0.0.1");
        EXPECT_EQ(commands.wait_for(expected_commands.size()), expected_commands);
        const std::uint32_t last = app_link.last_receive_ms;
        ASSERT_TRUE(wait_for_presence(false));
        silence = clock_ms() - last;
        EXPECT_GT(silence, 1000U);
        expected += "Main application found\nMain application lost\n";
    }
    EXPECT_LT(silence, 3000U);  // two seconds, and one for a busy machine

    // Reports come with the camera, from the port that commands go to.
    EXPECT_EQ(peer.receive(0), std::nullopt);
    camera_is_there = true;
    const auto report = peer.receive();
    ASSERT_TRUE(report.has_value());
    EXPECT_THAT(report->front(), testing::AnyOf(6, 7));
    EXPECT_EQ(ntohs(peer.last_source.sin_port), port);

    ASSERT_TRUE(peer.send({'!', '2'}, port));
    ASSERT_TRUE(wait_for_presence(true));
    expected_commands.emplace_back("!2 from 127.0.0.1");
    EXPECT_EQ(commands.wait_for(expected_commands.size()), expected_commands);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expected + "Main application found\n");
}

}  // namespace
