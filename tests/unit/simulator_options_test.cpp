// The simulated camera's command line.
#include "simulator/simulator_options.h"

#include <getopt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Parsed {
    std::optional<SimulatorOptions> options;
    int status = 0;
    std::string printed;
};

Parsed parse(std::vector<std::string> words) {
    words.insert(words.begin(), "camera-simulator");
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    optind = 0;  // a new command line
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    Parsed parsed;
    parsed.options =
        parse_simulator_options(static_cast<int>(words.size()), arguments.data(), &parsed.status);
    parsed.printed =
        testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    return parsed;
}

TEST(SimulatorOptions, BehavesUnlessToldOtherwise) {
    EXPECT_TRUE(parse({}).options->sends_status());
    EXPECT_TRUE(parse({"--status", "on"}).options->sends_status());
    EXPECT_FALSE(parse({"--status", "off"}).options->sends_status());
}

TEST(SimulatorOptions, RawBytesAreTheWholeStream) {
    EXPECT_FALSE(parse({"--raw", "f"}).options->sends_status());
    const Parsed both = parse({"--raw", "f", "--status", "on"});
    EXPECT_FALSE(both.options);
    EXPECT_EQ(both.status, 2);
}

TEST(SimulatorOptions, ActionsAreInTheOrderOfTheirTime) {
    const Parsed parsed = parse({"-a", "5:reset", "--after", "1.5:disconnect", "-a", "2:reconnect",
                                 "-a", "3:silence", "-a", "4:garbage"});
    ASSERT_TRUE(parsed.options);
    std::vector<Action> actions;
    for (const TimedAction& each : parsed.options->actions) {
        actions.push_back(each.action);
    }
    EXPECT_THAT(actions, ElementsAre(Action::kDisconnect, Action::kReconnect, Action::kSilence,
                                     Action::kGarbage, Action::kReset));
    EXPECT_EQ(parsed.options->actions[0].seconds, 1.5);
}

TEST(SimulatorOptions, ProgramFollowsTheDashesOrRun) {
    EXPECT_THAT(parse({"--loop", "--", "receiver", "--verbose"}).options->program,
                ElementsAre("receiver", "--verbose"));
    EXPECT_THAT(parse({"--run", "receiver", "-h"}).options->program, ElementsAre("receiver", "-h"));
    EXPECT_THAT(parse({}).options->program, IsEmpty());
}

TEST(SimulatorOptions, TakesFilesAndNumbers) {
    const Parsed parsed = parse({"--h264",          "v", "--script", "s",   "--record",    "r",
                                 "--root",          "d", "--chunk",  "7",   "--transfer",  "64",
                                 "--packets-every", "2", "--fps",    "25",  "--seconds",   "1.5",
                                 "--wait",          "3", "--pace",   "2.5", "--enumerate", "short",
                                 "--loop"});
    ASSERT_TRUE(parsed.options) << parsed.printed;
    const SimulatorOptions& options = *parsed.options;
    EXPECT_EQ(options.h264 + options.script + options.record + options.root, "vsrd");
    EXPECT_EQ(options.chunk, 7U);
    EXPECT_EQ(options.transfer, 64U);
    EXPECT_EQ(options.packets_every, 2U);
    EXPECT_EQ(options.fps, 25);
    EXPECT_EQ(options.seconds, 1.5);
    EXPECT_EQ(options.wait_seconds, 3);
    EXPECT_EQ(options.pace, Pace::kMegabits);
    EXPECT_EQ(options.megabits, 2.5);
    EXPECT_EQ(options.full_enumeration, false);
    EXPECT_TRUE(options.loop);
}

TEST(SimulatorOptions, TransferIsAsLargeAsTheHostsGo) {
    EXPECT_EQ(parse({}).options->transfer, 512U);
    EXPECT_EQ(parse({"--usb"}).options->transfer, 16384U);
    EXPECT_EQ(parse({"--transfer", "16384", "--usb"}).options->transfer, 16384U);
}

TEST(SimulatorOptions, PortIsARealOneOnlyWhenAsked) {
    EXPECT_FALSE(parse({}).options->usb);
    const Parsed parsed = parse({"--usb", "-a", "1:reset", "-a", "2:silence", "-a", "3:garbage"});
    ASSERT_TRUE(parsed.options) << parsed.printed;
    EXPECT_TRUE(parsed.options->usb);
    EXPECT_EQ(parsed.options->actions.size(), 3U);
}

TEST(SimulatorOptions, TimeToWaitIsLeftOpen) {
    EXPECT_EQ(parse({"--usb"}).options->wait_seconds, std::nullopt);
    EXPECT_EQ(parse({"--usb", "--wait", "0"}).options->wait_seconds, 0);
}

TEST(SimulatorOptions, HelpIsPrintedAndSucceeds) {
    const Parsed parsed = parse({"--help"});
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.status, 0);
    EXPECT_THAT(parsed.printed, HasSubstr("--status on|off"));
}

class RefusedOptions : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(RefusedOptions, EndWithStatusTwo) {
    const Parsed parsed = parse(GetParam());
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.status, 2);
    EXPECT_THAT(parsed.printed, HasSubstr("camera-simulator"));
}

// clang-format off
using Words = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(Words, RefusedOptions, testing::Values(
    Words{"--status", "maybe"}, Words{"--after", "5"}, Words{"--after", "5:dance"},
    Words{"--after", "x:reset"}, Words{"--after", "-1:reset"}, Words{"--pace", "fast"},
    Words{"--chunk", "0"}, Words{"--chunk", "49478"}, Words{"--transfer", "513"},
    Words{"--fps", "0"}, Words{"--enumerate", "both"}, Words{"--packets-every", "-1"},
    Words{"--h264", "a", "--raw", "b"}, Words{"--raw", "a", "--pace", "realtime"},
    Words{"--usb", "--root", "d"}, Words{"--usb", "--", "receiver"}, Words{"--usb", "-r", "receiver"},
    Words{"--usb", "--enumerate", "full"}, Words{"--usb", "--transfer", "16385"},
    Words{"--usb", "--after", "1:disconnect"}, Words{"--after", "1:reconnect", "--usb"},
    Words{"--seconds", "1x"}, Words{"--no-such-option"}));
// clang-format on

}  // namespace
