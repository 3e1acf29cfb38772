// The telemetry thread's ticks. Its neighbours tell what they are asked for, and the pause ends the
// thread after so many ticks, so that they take no time.
#include "link/telemetry_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "app/focus_config.h"
#include "app/supervision.h"
#include "fake_clock.h"
#include "link/app_link.h"
#include "protocol/camera_state.h"
#include "tests/cases/report_datagrams.h"

namespace {

struct ThreadStopped {};

std::vector<std::string> events;
std::vector<std::string> datagrams;
std::function<void(int pause)> during_pause;  // after the first pause: 1
int pauses = 0;
int pauses_wanted = 0;
bool link_active_now = true;
ssize_t send_result = 0;

CameraState state;
FocusLimits limits;

}  // namespace

void app_link_check_presence() {
    events.emplace_back("check");
}

bool link_is_active() {
    return link_active_now;
}

ssize_t app_link_send_to(const std::uint8_t* buffer, std::size_t length, const char* host,
                         std::uint16_t port) {
    const std::string kind = buffer[0] == 7 ? "text" : buffer[1] == 0 ? "status" : "block";
    events.push_back(kind + " " + std::to_string(length) + " to " + host + ":" +
                     std::to_string(port));
    datagrams.emplace_back(buffer, buffer + length);
    return send_result;
}

extern "C" int usleep(useconds_t microseconds) {
    events.push_back("pause " + std::to_string(microseconds));
    fake_clock_ms += microseconds / 1000;
    ++pauses;
    if (during_pause) {
        during_pause(pauses);
    }
    if (pauses == pauses_wanted) {
        throw ThreadStopped();
    }
    return 0;
}

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

using Events = std::vector<std::string>;

constexpr std::uint32_t kNow = 1700000000U;
const std::string kText = "text 315 to 10.0.0.7:5001";
const std::string kStatus = "status 37 to 10.0.0.7:5001";
const std::string kBlock = "block 66 to 10.0.0.7:5001";
const std::string kPause = "pause 100000";

template <std::size_t N>
std::string datagram(const std::uint8_t (&bytes)[N]) {
    return {std::begin(bytes), std::end(bytes)};
}

class TelemetryThread : public testing::Test {
  protected:
    void SetUp() override {
        events.clear();
        datagrams.clear();
        during_pause = nullptr;
        pauses = 0;
        link_active_now = true;
        send_result = 0;
        state = CameraState{};
        limits.mf_min = limits.mf_max = 0;
        fake_clock_ms = kNow;
        telemetry_set_sources(&limits, &state);
        telemetry_set_destination("10.0.0.7", 5001);
    }

    static void unset_destination() {
        free(telemetry_destination.host);
        telemetry_destination = {};
    }

    // What happens up to the end of the pause with that number.
    static const Events& run_ticks(int count) {
        pauses_wanted = count;
        EXPECT_THROW(telemetry_thread(nullptr), ThreadStopped);
        return events;
    }

    // The numbers of the ticks, from 0, in which the event came.
    static std::vector<int> ticks_with(const std::string& event) {
        std::vector<int> ticks;
        int tick = 0;
        for (const std::string& each : events) {
            if (each == event) {
                ticks.push_back(tick);
            }
            if (each == kPause) {
                ++tick;
            }
        }
        return ticks;
    }
};

TEST_F(TelemetryThread, ReportsTextEveryTenthAndStatusEverySecondTick) {
    EXPECT_THAT(run_ticks(22), ElementsAre("check", kText, kStatus, kPause,  // 0
                                           kPause, kStatus, kPause,          // 1, 2
                                           kPause, kStatus, kPause,          // 3, 4
                                           kPause, kStatus, kPause,          // 5, 6
                                           kPause, kStatus, kPause,          // 7, 8
                                           kPause,                           // 9
                                           "check", kText, kStatus, kPause,  // 10
                                           kPause, kStatus, kPause,          // 11, 12
                                           kPause, kStatus, kPause,          // 13, 14
                                           kPause, kStatus, kPause,          // 15, 16
                                           kPause, kStatus, kPause,          // 17, 18
                                           kPause,                           // 19
                                           "check", kText, kStatus, kPause,  // 20
                                           kPause));
}

TEST_F(TelemetryThread, SendsAFreshParameterBlockBehindEachStatusRecord) {
    during_pause = [](int) { state.params_time_ms = kNow + 100; };
    EXPECT_THAT(run_ticks(12), ElementsAre("check", kText, kStatus, kPause,  // 0: none has come yet
                                           kPause, kStatus, kBlock, kPause,  // 1, 2
                                           kPause, kStatus, kBlock, kPause,  // 3, 4
                                           kPause, kStatus, kBlock, kPause,  // 5, 6
                                           kPause, kStatus, kBlock, kPause,  // 7, 8
                                           kPause,                           // 9
                                           "check", kText, kStatus, kBlock, kPause,  // 10
                                           kPause));
}

TEST_F(TelemetryThread, SendsTheStatesThreeReports) {
    fill_reported_state(state, limits);
    state.params_time_ms = kNow;
    run_ticks(1);
    EXPECT_THAT(datagrams, ElementsAre(kReportedText, datagram(kReportedStatus),
                                       datagram(kReportedParameters)));
}

TEST_F(TelemetryThread, ChecksThePresenceWithoutACameraButSendsNothing) {
    link_active_now = false;
    state.params_time_ms = kNow;
    Events ten_pauses(10, kPause);
    Events expected;
    for (int second = 0; second < 2; ++second) {
        expected.emplace_back("check");
        expected.insert(expected.end(), ten_pauses.begin(), ten_pauses.end());
    }
    expected.emplace_back("check");
    expected.push_back(kPause);
    EXPECT_THAT(run_ticks(21), ElementsAreArray(expected));
}

TEST_F(TelemetryThread, CameraThatComesBetweenTwoTextsIsReportedByItsStatusFirst) {
    link_active_now = false;
    during_pause = [](int pause) { link_active_now = pause >= 3; };
    run_ticks(12);
    EXPECT_THAT(ticks_with(kStatus), ElementsAre(4, 6, 8, 10));
    EXPECT_THAT(ticks_with(kText), ElementsAre(10));
    EXPECT_THAT(ticks_with("check"), ElementsAre(0, 10));
}

TEST_F(TelemetryThread, CameraThatGoesEndsTheReportsWithTheNextTick) {
    during_pause = [](int pause) { link_active_now = pause < 4; };
    run_ticks(21);
    EXPECT_THAT(ticks_with(kStatus), ElementsAre(0, 2));
    EXPECT_THAT(ticks_with(kText), ElementsAre(0));
    EXPECT_THAT(ticks_with("check"), ElementsAre(0, 10, 20));
}

TEST_F(TelemetryThread, ParameterBlockEndsThreeSecondsAfterItCame) {
    state.params_time_ms = kNow;
    run_ticks(40);
    // At tick 30 it is exactly 3000 ms old.
    EXPECT_THAT(ticks_with(kBlock),
                ElementsAre(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30));
    EXPECT_EQ(state.params_time_ms, 0U);
}

TEST_F(TelemetryThread, EachNewParameterBlockBeginsThreeSecondsAnew) {
    state.params_time_ms = kNow;
    during_pause = [](int pause) {
        if (pause == 20) {
            state.params_time_ms = kNow + 2000;
        }
    };
    run_ticks(60);
    EXPECT_EQ(ticks_with(kBlock).back(), 50);
    EXPECT_EQ(ticks_with(kBlock).size(), 26U);
}

TEST_F(TelemetryThread, ForgetsOldParametersAlsoWithoutACamera) {
    link_active_now = false;
    state.params_time_ms = kNow;
    run_ticks(31);
    EXPECT_EQ(state.params_time_ms, kNow);
    SetUp();
    link_active_now = false;
    state.params_time_ms = kNow;
    run_ticks(32);
    EXPECT_EQ(state.params_time_ms, 0U);
}

TEST_F(TelemetryThread, ParametersMayBe3000MsOldAndNoMore) {
    // clang-format off
    const struct { std::int64_t now; std::uint32_t arrived; bool fresh; } kCases[] = {
        {kNow,               kNow,            true },
        {kNow,               kNow - 3000,     true },
        {kNow,               kNow - 3001,     false},
        {kNow,               kNow + 1,        false},   // the clock was set back
        {(1LL << 32) + 2744, 0xFFFFFF00U,     true },   // 2744 + 256 ms: across the wrap
        {(1LL << 32) + 2745, 0xFFFFFF00U,     false},
        {(1LL << 32) + 3001, 1,               true },
        {(1LL << 32) + 3002, 1,               false},
        {(1LL << 32) + 1000, 0,               false},   // none ever came
    };
    // clang-format on
    for (const auto& row : kCases) {
        // Before the first tick ...
        SetUp();
        fake_clock_ms = row.now;
        state.params_time_ms = row.arrived;
        run_ticks(1);
        EXPECT_EQ(ticks_with(kBlock).size(), row.fresh ? 1U : 0U) << row.now << " " << row.arrived;

        // ... and after each pause.
        SetUp();
        during_pause = [&](int) {
            fake_clock_ms = row.now;
            state.params_time_ms = row.arrived;
        };
        run_ticks(4);
        EXPECT_EQ(ticks_with(kBlock).size(), row.fresh ? 1U : 0U) << row.now << " " << row.arrived;
    }
}

TEST_F(TelemetryThread, SendsNothingWithoutADestination) {
    state.params_time_ms = kNow;
    unset_destination();
    run_ticks(2);
    EXPECT_THAT(events, ElementsAre("check", kPause, kPause));

    for (const int port : {0, 65536, -65536}) {
        SetUp();
        telemetry_set_destination("10.0.0.7", port);
        state.params_time_ms = kNow;
        run_ticks(2);
        EXPECT_THAT(events, ElementsAre("check", kPause, kPause)) << port;
    }
}

TEST_F(TelemetryThread, TextReportReturnsItsLengthWhereItIsNotSent) {
    fill_reported_state(state, limits);
    telemetry_set_destination("10.0.0.7", 0);
    EXPECT_EQ(telemetry_send_report(state), 468);
    unset_destination();
    telemetry_destination.port = 5000;
    EXPECT_EQ(telemetry_send_report(state), 468);
    EXPECT_THAT(events, ElementsAre());
}

TEST_F(TelemetryThread, TextReportReturnsWhatTheSocketSays) {
    for (const ssize_t result : {315, -1}) {
        send_result = result;
        EXPECT_EQ(telemetry_send_report(state), result);
    }
    EXPECT_THAT(events, ElementsAre(kText, kText));
}

TEST_F(TelemetryThread, TextReportTellsOfTheGivenState) {
    CameraState other{};
    other.shots_left = 77;
    telemetry_send_report(other);
    EXPECT_THAT(datagrams, ElementsAre(testing::HasSubstr(",shots_left=77,")));
}

TEST_F(TelemetryThread, LowBitsOfThePortCount) {
    // clang-format off
    const struct { std::int32_t port; const char* event; } kCases[] = {
        {1,     "text 315 to 10.0.0.7:1"    },
        {65535, "text 315 to 10.0.0.7:65535"},
        {65537, "text 315 to 10.0.0.7:1"    },
        {-1,    "text 315 to 10.0.0.7:65535"},
    };
    // clang-format on
    for (const auto& row : kCases) {
        SetUp();
        telemetry_set_destination("10.0.0.7", row.port);
        telemetry_send_report(state);
        EXPECT_THAT(events, ElementsAre(row.event));
    }
}

TEST(TelemetryDestination, IsACopy) {
    char host[] = "192.168.1.20";
    telemetry_set_destination(host, 5000);
    host[0] = 'x';
    EXPECT_STREQ(telemetry_destination.host, "192.168.1.20");
    EXPECT_EQ(telemetry_destination.port, 5000);
    telemetry_set_destination("", -1);
    EXPECT_STREQ(telemetry_destination.host, "");
    EXPECT_EQ(telemetry_destination.port, -1);
}

}  // namespace
