// Both watches over the camera link, on a clock that the pauses move. The link itself is replaced.
#include "app/supervision.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "fake_clock.h"
#include "usb/gadget.h"

namespace {

using testing::Eq;
using testing::ExitedWithCode;

constexpr std::int64_t kStartMs = 1700000000123;
constexpr std::int64_t kWrapMs = 400 * (std::int64_t{1} << 32);  // the low 32 bits are zero

// The link: data arrives during the pauses up to that one, and the poll says stop at that call.
std::int64_t last_rx_ms = kStartMs;
int passes_with_data = 0;
int poll_stops_at = 1000;
int polls = 0;
int passes = 0;
int passes_allowed = 100000;
bool print_calls = true;

}  // namespace

bool gadget_is_receiving() {
    return passes_with_data > passes;
}

std::uint32_t gadget_last_rx_ms() {
    return static_cast<std::uint32_t>(last_rx_ms);
}

int gadget_poll() {
    fprintf(stderr, "poll (active %d)\n", link_is_active());
    return ++polls == poll_stops_at ? 0 : 1;
}

void gadget_exit() {
    fprintf(stderr, "gadget_exit()\n");
}

extern "C" int usleep(useconds_t microseconds) {
    if (print_calls) {
        fprintf(stderr, "pause %u (active %d)\n", microseconds, link_is_active());
    }
    if (++passes == passes_allowed) {
        _exit(99);
    }
    fake_clock_ms += microseconds / 1000;
    if (gadget_is_receiving()) {
        last_rx_ms = fake_clock_ms;
    }
    return 0;
}

namespace {

void watch() {
    fake_clock_ms = kStartMs;
    usb_watchdog_thread(nullptr);
}

void supervise_silently_paused() {
    print_calls = false;
    fake_clock_ms = kStartMs;
    supervise();
}

TEST(SuperviseDeathTest, SilenceOfMoreThanFiveSecondsEndsTheProcess) {
    EXPECT_EXIT(supervise_silently_paused(), ExitedWithCode(2),
                Eq("delta 0\ndelta 1000\ndelta 2000\ndelta 3000\ndelta 4000\ndelta 5000\n"
                   "delta 6000\nCamera connection timeout\n"));
}

TEST(SuperviseDeathTest, FirstPassComesWithoutAPause) {
    const auto start_late = [] {
        last_rx_ms = kStartMs - 5001;
        fake_clock_ms = kStartMs;
        supervise();
    };
    EXPECT_EXIT(start_late(), ExitedWithCode(2), Eq("delta 5001\nCamera connection timeout\n"));
}

TEST(SuperviseDeathTest, PausesOneSecond) {
    const auto start_late = [] {
        last_rx_ms = kStartMs - 5000;
        fake_clock_ms = kStartMs;
        supervise();
    };
    EXPECT_EXIT(
        start_late(), ExitedWithCode(2),
        Eq("delta 5000\npause 1000000 (active 0)\ndelta 6000\nCamera connection timeout\n"));
}

TEST(SuperviseDeathTest, DataPutsTheTimeoutOff) {
    const auto with_data = [] {
        passes_with_data = 4;
        supervise_silently_paused();
    };
    EXPECT_EXIT(with_data(), ExitedWithCode(2),
                Eq("delta 0\ndelta 0\ndelta 0\ndelta 0\ndelta 1000\ndelta 2000\ndelta 3000\n"
                   "delta 4000\ndelta 5000\ndelta 6000\nCamera connection timeout\n"));
}

TEST(SuperviseDeathTest, ClockSetBackIsNoSilence) {
    const auto set_back = [] {
        last_rx_ms = kStartMs + 3600000;
        passes_with_data = 1;
        supervise_silently_paused();
    };
    EXPECT_EXIT(set_back(), ExitedWithCode(2), testing::StartsWith("delta -3600000\n"));
}

TEST(SuperviseDeathTest, WrapOfTheClockIsNoSilence) {
    const auto over_the_wrap = [] {
        print_calls = false;
        fake_clock_ms = kWrapMs - 2500;
        last_rx_ms = fake_clock_ms;
        supervise();
    };
    EXPECT_EXIT(over_the_wrap(), ExitedWithCode(2),
                Eq("delta 0\ndelta 1000\ndelta 2000\ndelta 3000\ndelta 4000\ndelta 5000\n"
                   "delta 6000\nCamera connection timeout\n"));
}

// Zero is what the end of the link leaves. The silence is then the clock's low 32 bits as a signed
// number: for 24.8 days more than the limit, for the next 24.8 below zero.
void supervise_after_the_link_at(std::int64_t now_ms) {
    last_rx_ms = 0;
    passes_allowed = 2;
    print_calls = false;
    fake_clock_ms = now_ms;
    supervise();
}

TEST(SuperviseDeathTest, EndOfTheLinkIsSilenceWhileTheClockIsPositive) {
    EXPECT_EXIT(supervise_after_the_link_at(kWrapMs + 5001), ExitedWithCode(2),
                Eq("delta 5001\nCamera connection timeout\n"));
    EXPECT_EXIT(supervise_after_the_link_at(kWrapMs + 0x7FFFFFFF), ExitedWithCode(2),
                Eq("delta 2147483647\nCamera connection timeout\n"));
}

TEST(SuperviseDeathTest, EndOfTheLinkIsNoSilenceWhileTheClockIsNegative) {
    EXPECT_EXIT(supervise_after_the_link_at(kWrapMs + 0x80000000), ExitedWithCode(99),
                Eq("delta -2147483648\ndelta -2147482648\n"));
    EXPECT_EXIT(supervise_after_the_link_at(kWrapMs - 1001), ExitedWithCode(99),
                Eq("delta -1001\ndelta -1\n"));
}

TEST(WatchdogDeathTest, PollsUntilTheLinkIsFinished) {
    poll_stops_at = 3;
    EXPECT_EXIT(watch(), ExitedWithCode(1),
                Eq("poll (active 0)\npause 500000 (active 0)\n"
                   "poll (active 0)\npause 500000 (active 0)\n"
                   "poll (active 0)\ngadget_exit()\nUSB receiver exit\n"));
    poll_stops_at = 1000;
}

TEST(WatchdogDeathTest, DoesNotPollWhileDataFlows) {
    passes_with_data = 3;
    poll_stops_at = 1;
    EXPECT_EXIT(watch(), ExitedWithCode(1),
                Eq("pause 500000 (active 1)\npause 500000 (active 1)\npause 500000 (active 1)\n"
                   "poll (active 0)\ngadget_exit()\nUSB receiver exit\n"));
    passes_with_data = 0;
    poll_stops_at = 1000;
}

TEST(WatchdogDeathTest, SilenceOfMoreThanFiveSecondsEndsTheProcessAfterAPoll) {
    std::string passes_text;
    for (int i = 0; i < 11; ++i) {  // 0, 500, ... 5000 ms of silence
        passes_text += "poll (active 0)\npause 500000 (active 0)\n";
    }
    EXPECT_EXIT(watch(), ExitedWithCode(2),
                Eq(passes_text + "poll (active 0)\nTelemetry receiving timeout\n"));
}

TEST(WatchdogDeathTest, SilenceIsWatchedWhileTheLinkIsActive) {
    const auto stuck = [] {
        passes_with_data = 1000;
        last_rx_ms = kStartMs - 5001;
        watch();
    };
    EXPECT_EXIT(stuck(), ExitedWithCode(2), Eq("Telemetry receiving timeout\n"));
}

TEST(WatchdogDeathTest, EndOfTheLinkComesBeforeTheSilence) {
    const auto finished = [] {
        poll_stops_at = 1;
        last_rx_ms = kStartMs - 5001;
        watch();
    };
    EXPECT_EXIT(finished(), ExitedWithCode(1),
                Eq("poll (active 0)\ngadget_exit()\nUSB receiver exit\n"));
}

TEST(WatchdogDeathTest, ClockSetBackIsNoSilence) {
    const auto set_back = [] {
        last_rx_ms = kStartMs + 3600000;
        poll_stops_at = 2;
        watch();
    };
    EXPECT_EXIT(set_back(), ExitedWithCode(1),
                Eq("poll (active 0)\npause 500000 (active 0)\n"
                   "poll (active 0)\ngadget_exit()\nUSB receiver exit\n"));
}

void watch_after_the_link_at(std::int64_t now_ms) {
    last_rx_ms = 0;
    passes_allowed = 2;
    print_calls = false;
    fake_clock_ms = now_ms;
    usb_watchdog_thread(nullptr);
}

TEST(WatchdogDeathTest, EndOfTheLinkIsSilenceWhileTheClockIsPositive) {
    EXPECT_EXIT(watch_after_the_link_at(kWrapMs + 0x7FFFFFFF), ExitedWithCode(2),
                Eq("poll (active 0)\nTelemetry receiving timeout\n"));
}

TEST(WatchdogDeathTest, EndOfTheLinkIsNoSilenceWhileTheClockIsNegative) {
    EXPECT_EXIT(watch_after_the_link_at(kWrapMs + 0x80000000), ExitedWithCode(99),
                Eq("poll (active 0)\npoll (active 0)\n"));
}

TEST(Watchdog, LinkIsNotActiveBeforeItRuns) {
    EXPECT_FALSE(link_is_active());
}

}  // namespace
