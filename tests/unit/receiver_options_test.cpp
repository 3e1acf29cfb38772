// The command line: defaults, each option in both spellings, and what is refused.
#include "app/receiver_options.h"

#include <getopt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::Eq;
using testing::ExitedWithCode;
using testing::HasSubstr;

constexpr char kUsageText[] =
    "DJI Osmo Pro/RAW Wired USB receiver\n"
    "Usage:\n"
    "-d | --dst-host=<destination_host>\n"
    "-s | --dst-port=<destination_port>\n"
    "-v | --verbose\n"
    "-? | --help - show this help\n";

constexpr char kNotSet[] = "Destination host or port not set\n";

void parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "camera-usb-receiver");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    optind = 0;  // has the C library start anew
    receiver_options_parse(static_cast<int>(arguments.size()), argv.data());
}

void expect_options(const char* host, int port, int verbose) {
    EXPECT_STREQ(receiver_options.dst_host, host);
    EXPECT_EQ(receiver_options.dst_port, port);
    EXPECT_EQ(receiver_options.verbose, verbose);
}

TEST(ReceiverOptions, DefaultsWithoutArguments) {
    parse({});
    expect_options("127.0.0.1", 5000, 0);
}

TEST(ReceiverOptions, DefaultsReplaceWhatWasThere) {
    parse({"-d", "10.0.0.1", "-s", "7000", "-v"});
    parse({});
    expect_options("127.0.0.1", 5000, 0);
    for (std::size_t i = sizeof("127.0.0.1"); i < sizeof(receiver_options.dst_host); ++i) {
        EXPECT_EQ(receiver_options.dst_host[i], '\0') << i;
    }
}

struct AcceptedLine {
    const char* name;
    std::vector<std::string> arguments;
    const char* host;
    int port;
    int verbose;
};

// clang-format off
const AcceptedLine kAcceptedLines[] = {
    {"ShortHost",         {"-d", "192.168.1.20"},           "192.168.1.20", 5000, 0},
    {"ShortHostJoined",   {"-d192.168.1.20"},               "192.168.1.20", 5000, 0},
    {"LongHost",          {"--dst-host=192.168.1.20"},      "192.168.1.20", 5000, 0},
    {"LongHostApart",     {"--dst-host", "192.168.1.20"},   "192.168.1.20", 5000, 0},
    {"EmptyHost",         {"-d", ""},                       "",             5000, 0},
    {"ShortPort",         {"-s", "6001"},                   "127.0.0.1",    6001, 0},
    {"LongPort",          {"--dst-port=6001"},              "127.0.0.1",    6001, 0},
    {"ShortVerbose",      {"-v"},                           "127.0.0.1",    5000, 1},
    {"LongVerbose",       {"--verbose"},                    "127.0.0.1",    5000, 1},
    {"VerboseTwice",      {"-v", "-v"},                     "127.0.0.1",    5000, 1},
    {"All",               {"-v", "-d", "1.2.3.4", "-s", "9"}, "1.2.3.4",    9,    1},
    {"LastOneCounts",     {"-s", "0", "-s", "9"},           "127.0.0.1",    9,    0},
    {"OtherWordsIgnored", {"here", "-s", "9", "there"},     "127.0.0.1",    9,    0},
    {"NothingBehindDashes", {"--", "-s", "9"},              "127.0.0.1",    5000, 0},
    {"PortWithTail",      {"-s", "6001x"},                  "127.0.0.1",    6001, 0},
    {"PortWithSpace",     {"-s", " \t6001"},                "127.0.0.1",    6001, 0},
    {"PortWithPlus",      {"-s", "+6001"},                  "127.0.0.1",    6001, 0},
    {"PortDecimalOnly",   {"-s", "010"},                    "127.0.0.1",    10,   0},
    {"PortNegative",      {"-s", "-1"},                     "127.0.0.1",    -1,   0},
    {"PortAboveSixteenBits", {"-s", "65536"},               "127.0.0.1",    65536, 0},
    {"PortLargest",       {"-s", "2147483647"},             "127.0.0.1",    2147483647, 0},
};
// clang-format on

class AcceptedLines : public testing::TestWithParam<AcceptedLine> {};

TEST_P(AcceptedLines, SetTheOptionsSilently) {
    testing::internal::CaptureStderr();
    parse(GetParam().arguments);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    expect_options(GetParam().host, GetParam().port, GetParam().verbose);
}

INSTANTIATE_TEST_SUITE_P(ReceiverOptions, AcceptedLines, testing::ValuesIn(kAcceptedLines),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(ReceiverOptions, HostOfNineteenCharactersIsTakenWhole) {
    parse({"-d", "1234567890123456789", "-s", "77"});
    expect_options("1234567890123456789", 77, 0);
}

TEST(ReceiverOptions, LongerHostIsCutAndLeavesThePortAlone) {
    parse({"-s", "77", "-d", "12345678901234567890"});
    expect_options("1234567890123456789", 77, 0);
    parse({"-s", "77", "-v", "-d", std::string(100000, 'a')});
    expect_options("aaaaaaaaaaaaaaaaaaa", 77, 1);
}

TEST(ReceiverOptions, PortBeyondThirtyTwoBitsKeepsTheLowOnes) {
    parse({"-s", "4294967297"});
    expect_options("127.0.0.1", 1, 0);
    parse({"-s", "99999999999999999999999"});  // the largest number there is: all low bits are set
    expect_options("127.0.0.1", -1, 0);
}

TEST(ReceiverOptionsDeathTest, PortOfZeroIsRefused) {
    for (const char* port : {"0", "", "abc", "0x10", "-0", "x6001", "--"}) {
        EXPECT_EXIT(parse({"-s", port}), ExitedWithCode(1), Eq(kNotSet)) << port;
    }
    EXPECT_EXIT(parse({"--dst-port=0"}), ExitedWithCode(1), Eq(kNotSet));
}

TEST(ReceiverOptionsDeathTest, PortWhoseLowBitsAreZeroIsRefused) {
    EXPECT_EXIT(parse({"-s", "4294967296"}), ExitedWithCode(1), Eq(kNotSet));
}

TEST(ReceiverOptionsDeathTest, HelpPrintsTheUsageAlone) {
    EXPECT_EXIT(parse({"--help"}), ExitedWithCode(1), Eq(kUsageText));
}

TEST(ReceiverOptionsDeathTest, HelpComesBeforeTheCheckOfThePort) {
    EXPECT_EXIT(parse({"-s", "0", "--help"}), ExitedWithCode(1), Eq(kUsageText));
}

TEST(ReceiverOptionsDeathTest, QuestionMarkPrintsTheUsage) {
    EXPECT_EXIT(parse({"-?"}), ExitedWithCode(1), Eq(kUsageText));
}

// The C library may name the culprit first; the usage ends the output all the same.
TEST(ReceiverOptionsDeathTest, UnknownOrIncompleteOptionPrintsTheUsage) {
    const std::vector<std::string> lines[] = {
        {"-x"}, {"--nothing"}, {"-d"}, {"-s"}, {"--dst-host"}, {"--verbose=1"}, {"-vx"},
    };
    for (const std::vector<std::string>& line : lines) {
        EXPECT_EXIT(parse(line), ExitedWithCode(1), testing::EndsWith(kUsageText)) << line[0];
    }
}

TEST(ReceiverOptionsDeathTest, TextOfTheCommandLineIsNoFormat) {
    EXPECT_EXIT(parse({"--%n%n%s%s"}), ExitedWithCode(1), HasSubstr("%n%n%s%s"));
    parse({"-d", "%s%n%s%n"});
    EXPECT_STREQ(receiver_options.dst_host, "%s%n%s%n");
}

}  // namespace
