// Steps of the real-time clock, which is the millisecond clock of all time-outs. It has 32 bits.

#include <gtest/gtest.h>
#include <time.h>

#include <thread>

#include "tests/faults/fault_table.h"
#include "tests/faults/isolated_jobs.h"
#include "tests/faults/live_receiver.h"

namespace {

constexpr std::int64_t kSecond = 1000;
constexpr std::int64_t kHour = 3600 * kSecond;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kWrap = std::int64_t{1} << 32;

constexpr char kTimedOut[] = "times out";

// Both watches look every so often; whichever looks first ends the process.
std::string short_form(const std::string& outcome) {
    return outcome == "ends 2: Camera connection timeout" ||
                   outcome == "ends 2: Telemetry receiving timeout"
               ? kTimedOut
               : outcome;
}

struct Step {
    std::int64_t ms;
    const char* outcome;
};

void expect_steps(const std::vector<Step>& steps, std::string (*run)(std::int64_t)) {
    std::vector<Job> jobs;
    for (const Step& step : steps) {
        jobs.emplace_back([&step, run] { return short_form(run(step.ms)); });
    }
    const std::vector<std::string> outcomes = run_isolated(jobs);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        EXPECT_EQ(outcomes[i], steps[i].outcome) << "a step of " << steps[i].ms << " ms";
    }
}

// Starts, and is at work.
void start_work(LiveReceiver& receiver) {
    receiver.start();
    if (receiver.outcome() != "carries on") {
        throw std::runtime_error("not at work:\n" + receiver.output());
    }
}

// Puts the clock so that its low 32 bits have this value in so many milliseconds.
std::int64_t offset_to(std::int64_t value, std::int64_t in_ms) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return value - in_ms - (now.tv_sec * 1000 + now.tv_nsec / 1000000) % kWrap;
}

// A clock whose low 32 bits are small: 25 days forwards do not bring it across the wrap, 24 days
// backwards do.
std::string step_in_silence(std::int64_t ms) {
    LiveReceiver receiver;
    receiver.record().clock_offset_ms = offset_to(kDay, 0);
    start_work(receiver);
    receiver.silence_camera(true);
    receiver.record().clock_offset_ms += ms;
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // both watches look
    receiver.silence_camera(false);
    return receiver.outcome_from_now();
}

std::string step_before_the_camera(std::int64_t ms) {
    LiveReceiver receiver;
    receiver.start();
    // From there on it counts the silence; the host configures it 0.75 s later.
    if (!receiver.wait_for("Gadget init done\n")) {
        return "without a device";
    }
    receiver.record().clock_offset_ms = ms;
    return receiver.outcome();
}

using Clock = Isolated;

// The limit is five seconds, of which the silence itself takes up to two here.
TEST_F(Clock, StepInSilenceCountsAsSilence) {
    expect_steps({{kSecond, "carries on"},
                  {10 * kSecond, kTimedOut},
                  {kHour, kTimedOut},
                  {24 * kDay, kTimedOut}},
                 step_in_silence);
}

// From half the clock's range on, a step forwards is one backwards.
TEST_F(Clock, StepBackwardsInSilenceIsForgottenWithTheNextData) {
    expect_steps({{-kSecond, "carries on"},
                  {-10 * kSecond, "carries on"},
                  {-kHour, "carries on"},
                  {-24 * kDay, "carries on"},
                  {25 * kDay, "carries on"}},
                 step_in_silence);
}

TEST_F(Clock, StepBeforeTheCamerasFirstData) {
    expect_steps({{kSecond, "carries on"},
                  {10 * kSecond, kTimedOut},
                  {kHour, kTimedOut},
                  {-kSecond, "carries on"},
                  {-10 * kSecond, "carries on"},
                  {-kHour, "carries on"}},
                 step_before_the_camera);
}

// The next data bring the step into account, a few hundredths of a second later. A look in just
// that time may end the process; backwards there is no such look.
TEST_F(Clock, StepBackwardsWhileDataFlowsIsNotNoticed) {
    expect_steps({{-kSecond, "carries on"}, {-10 * kSecond, "carries on"}, {-kHour, "carries on"}},
                 [](std::int64_t ms) {
                     LiveReceiver receiver;
                     start_work(receiver);
                     receiver.record().clock_offset_ms = ms;
                     return receiver.outcome_from_now();
                 });
}

TEST_F(Clock, StepForwardsWhileDataFlowsNeverHangs) {
    std::vector<Job> jobs;
    for (const std::int64_t ms : {kSecond, 10 * kSecond, kHour, kDay}) {
        jobs.emplace_back([ms] {
            LiveReceiver receiver;
            start_work(receiver);
            receiver.record().clock_offset_ms = ms;
            return short_form(receiver.outcome_from_now());
        });
    }
    for (const std::string& outcome : run_isolated(jobs)) {
        EXPECT_TRUE(outcome == "carries on" || outcome == kTimedOut) << outcome;
    }
}

std::string work_across(std::int64_t value) {
    LiveReceiver receiver;
    receiver.record().clock_offset_ms = offset_to(value, 6000);
    start_work(receiver);
    std::string outcome = "carries on";
    for (int i = 0; i < 4 && outcome == "carries on"; ++i) {
        outcome = receiver.outcome_from_now();
        std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    }
    return outcome;
}

TEST_F(Clock, WrapsWithoutNotice) {
    expect_steps({{kWrap, "carries on"}, {kWrap / 2, "carries on"}}, work_across);
}

std::string silence_across(std::int64_t value) {
    LiveReceiver receiver;
    receiver.record().clock_offset_ms = offset_to(value, 6500);
    start_work(receiver);
    receiver.silence_camera(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(7000));
    receiver.silence_camera(false);
    return receiver.outcome_from_now();
}

TEST_F(Clock, SilenceIsNoticedAcrossTheWrap) {
    expect_steps({{kWrap, kTimedOut}, {kWrap / 2, kTimedOut}}, silence_across);
}

}  // namespace
