// What the web side decides without a connection: commands, who may ask, page files, state.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "monitor/command_check.h"
#include "monitor/monitor_options.h"
#include "monitor/page_address.h"
#include "monitor/page_files.h"
#include "monitor/request_guard.h"
#include "monitor/sticks.h"
#include "monitor/telemetry_store.h"
#include "tests/protocol_page.h"

namespace {

std::string text(const std::vector<std::uint8_t>& datagram) {
    return {datagram.begin(), datagram.end()};
}

TEST(CommandCheck, EveryCommandOfThePagePassesAsItIs) {
    const auto rows = page_table("<!-- commands -->");
    ASSERT_GT(rows.size(), 40U);
    for (const auto& row : rows) {
        const std::string json = unquoted(row[0]);
        const CheckedCommand command = check_command(json);
        EXPECT_EQ(command.refusal, "") << json;
        EXPECT_EQ(text(command.datagram), "!" + json);
    }
}

TEST(CommandCheck, WhatIsNoCommandIsRefusedWithTheReason) {
    constexpr struct {
        const char* json;
        const char* refusal;
    } kCases[] = {
        {"", "no JSON object"},
        {"{", "no JSON object"},
        {"[]", "no JSON object"},
        {R"("shot")", "no JSON object"},
        {R"({"cmd":"shot"} x)", "no JSON object"},
        {"{}", "there is no cmd"},
        {R"({"cmd":"dance"})", "there is no such command"},
        {R"({"cmd":"record"})", "record without param"},
        {R"({"cmd":"record","param":"pause"})", "record has no such param"},
        {R"({"cmd":"shot","param":"x"})", "shot has no such param"},
        {R"({"cmd":"iso","param":""})", "iso has no such param"},
        {R"({"cmd":"focus","param":"point","value":"0.5"})", "focus without value2"},
        {R"({"cmd":"set","value":"rel"})", "set takes the name movement"},
        {R"({"cmd":"set","name":"zoom","value":"rel"})", "set takes the name movement"},
        {R"({"cmd":"set","name":"movement"})", "set without value"},
        {R"({"cmd":"wb","param":"custom"})", "wb without value"},
        {R"({"cmd":"iso","param":400})", "param is no text: numbers are texts, too"},
        {R"({"cmd":"shot","cmd":"shot"})", "cmd stands there twice"},
        {R"({"cmd":"shot","id":"1"})", "no command has a member of that name"},
    };
    for (const auto& row : kCases) {
        EXPECT_EQ(check_command(row.json).refusal, row.refusal) << row.json;
        EXPECT_TRUE(check_command(row.json).datagram.empty()) << row.json;
    }
}

TEST(CommandCheck, CommandLongerThanTheReceiverTakesIsRefused) {
    const auto command = [](std::size_t length) {
        const std::string start = R"({"cmd":"iso","param":")";
        return start + std::string(length - start.size() - 2, '1') + "\"}";
    };
    EXPECT_EQ(check_command(command(9999)).datagram.size(), 10000U);
    EXPECT_EQ(check_command(command(10000)).refusal, "longer than the receiver takes");
}

TEST(CommandCheck, ZoomBecomesTheBinaryMessage) {
    using Bytes = std::vector<std::uint8_t>;
    EXPECT_EQ(check_command(R"({"cmd":"zoom","param":"optical","value":"-1"})").datagram,
              (Bytes{0x05, 0x02, 0xFF, 0xFF}));
    EXPECT_EQ(check_command(R"({"cmd":"zoom","param":"digital","value":"300"})").datagram,
              (Bytes{0x05, 0x01, 0x2C, 0x01}));
    EXPECT_NE(check_command(R"({"cmd":"zoom","param":"digital","value":"1.5"})").refusal, "");
    EXPECT_NE(check_command(R"({"cmd":"zoom","param":"digital","value":"40000"})").refusal, "");
}

constexpr char kToken[] = "correct-horse-battery";

TEST(RequestGuard, WithoutATokenOnlyAddressesLeadHere) {
    for (const char* host : {"127.0.0.1:8080", "localhost", "LOCALHOST:8080", "[::1]:8080"}) {
        EXPECT_EQ(check_access({host, "", "", ""}, ""), Access::kGranted) << host;
    }
    for (const char* host : {"evil.example:8080", "", "127.0.0.1.evil.example", "localhost.evil"}) {
        EXPECT_EQ(check_access({host, "", "", ""}, ""), Access::kForeignHost) << host;
    }
}

TEST(RequestGuard, PageOfAnotherSiteIsRefused) {
    const auto of = [](const char* origin) {
        return check_access({"127.0.0.1:8080", origin, "", ""}, "");
    };
    EXPECT_EQ(of("http://127.0.0.1:8080"), Access::kGranted);
    for (const char* origin : {"http://evil.example", "null", "http://127.0.0.1:8081",
                               "http://localhost:8080", "http://127.0.0.1:8080.evil.example"}) {
        EXPECT_EQ(of(origin), Access::kForeignOrigin) << origin;
    }
}

// It is asked by a name of its own, over TLS.
TEST(RequestGuard, ServerInFrontIsServedWhereItPassesTheNameOn) {
    const auto of = [](const char* host) {
        return check_access({host, "https://camera.example", "", kToken}, kToken);
    };
    EXPECT_EQ(of("camera.example"), Access::kGranted);
    EXPECT_EQ(of("127.0.0.1:8080"), Access::kForeignOrigin);
    EXPECT_EQ(check_access({"camera.example", "https://camera.example", "", ""}, ""),
              Access::kForeignHost);
}

TEST(RequestGuard, TokenComesInTheHeaderOrInTheQuery) {
    const std::string bearer = std::string("Bearer ") + kToken;
    EXPECT_EQ(check_access({"pi.example", "", bearer, ""}, kToken), Access::kGranted);
    EXPECT_EQ(check_access({"pi.example", "", "", kToken}, kToken), Access::kGranted);
    EXPECT_EQ(check_access({"pi.example", "", "", ""}, kToken), Access::kNoToken);
    EXPECT_EQ(check_access({"pi.example", "", kToken, ""}, kToken), Access::kNoToken);
    EXPECT_EQ(check_access({"pi.example", "", "", "correct-horse-batterx"}, kToken),
              Access::kNoToken);
    EXPECT_EQ(check_access({"pi.example", "", "", "correct-horse-battery-"}, kToken),
              Access::kNoToken);
    EXPECT_EQ(check_access({"pi.example", "", "", "correct-horse-batter"}, kToken),
              Access::kNoToken);
}

TEST(PageFilesTest, FilesAreFoundByTheirNamesAlone) {
    const std::string directory = testing::TempDir() + "page_files_test";
    std::filesystem::create_directories(directory + "/page/js");
    std::ofstream(directory + "/page/index.html") << "<p>";
    std::ofstream(directory + "/page/js/main.js") << "1";
    std::ofstream(directory + "/secret.txt") << "secret";
    std::error_code ignored;
    std::filesystem::create_symlink(directory + "/secret.txt", directory + "/page/link.txt",
                                    ignored);
    const PageFiles files(directory + "/page");
    ASSERT_NE(files.find("/"), nullptr);
    EXPECT_EQ(files.find("/")->content, "<p>");
    EXPECT_EQ(files.find("/")->type, "text/html; charset=utf-8");
    ASSERT_NE(files.find("/js/main.js"), nullptr);
    EXPECT_EQ(files.find("/js/main.js")->type, "text/javascript; charset=utf-8");
    for (const char* path : {"/../secret.txt", "/js/../../secret.txt", "/link.txt", "/js", "",
                             "index.html", "/%2e%2e/secret.txt"}) {
        EXPECT_EQ(files.find(path), nullptr) << path;
    }
    std::filesystem::remove_all(directory);
}

TEST(PageFilesTest, DirectoryThatIsNotThereIsEmpty) {
    EXPECT_TRUE(PageFiles("/nonexistent").empty());
}

TEST(TelemetryStoreTest, AtFirstAllAndThenWhatChanged) {
    TelemetryStore store;
    store.set_number("a", 1);
    store.set_text("b", "x");
    std::uint64_t seen = 0;
    EXPECT_EQ(store.changes(&seen), R"("a":1,"b":"x")");
    EXPECT_EQ(store.changes(&seen), "");
    store.set_number("a", 1);
    EXPECT_EQ(store.changes(&seen), "") << "the same value is no change";
    store.set_text("b", "y");
    EXPECT_EQ(store.changes(&seen), R"("b":"y")");
}

TEST(TelemetryStoreTest, SlowViewerFindsTheLatestValueOnly) {
    TelemetryStore store;
    std::uint64_t seen = 0;
    for (unsigned i = 0; i < 1000; ++i) {
        store.set_number("a", i);
    }
    EXPECT_EQ(store.changes(&seen), R"("a":999)");
}

TEST(TelemetryStoreTest, LogKeepsItsLastLines) {
    TelemetryStore store;
    std::uint64_t seen = 0;
    for (int i = 0; i < 300; ++i) {
        store.add_line("line " + std::to_string(i));
    }
    const std::string lines = store.lines(&seen);
    EXPECT_EQ(lines.find("line 99\""), std::string::npos);
    EXPECT_NE(lines.find("line 100\""), std::string::npos);
    EXPECT_TRUE(lines.ends_with("line 299\""));
    EXPECT_EQ(store.lines(&seen), "");
    store.add_line("one more");
    EXPECT_TRUE(store.lines(&seen).ends_with("one more\""));
}

TEST(TelemetryStoreTest, MalformedReportsAreToldOnceUntilAGoodOne) {
    TelemetryStore store;
    const std::vector<std::uint8_t> malformed = {0x06, 0x00};
    std::vector<std::uint8_t> parameters(66, 0x00);
    parameters[0] = 0x06;
    parameters[1] = 0x01;
    std::uint64_t seen = 0;
    const auto new_lines = [&] { return store.lines(&seen); };
    EXPECT_FALSE(store.take_report(malformed));
    EXPECT_NE(new_lines().find("malformed report: "), std::string::npos);
    EXPECT_FALSE(store.take_report(malformed));
    EXPECT_EQ(new_lines(), "");
    EXPECT_TRUE(store.take_report(parameters));
    EXPECT_FALSE(store.take_report(malformed));
    EXPECT_NE(new_lines().find("malformed report: "), std::string::npos);
}

// They change five times a second while the histogram is on.
TEST(TelemetryStoreTest, ParametersAreAValueAndNoNews) {
    TelemetryStore store;
    std::vector<std::uint8_t> report(66, 0x00);
    report[0] = 0x06;
    report[1] = 0x01;
    report[2] = 0xA5;
    report[54] = 0x0F;
    const std::string zeros(std::size_t{2} * 51, '0');
    EXPECT_TRUE(store.take_report(report));
    EXPECT_EQ(store.json("parameters"), "\"a5" + zeros + "0f\"");
    report[2] = 0x5A;
    EXPECT_TRUE(store.take_report(report));
    EXPECT_EQ(store.json("parameters"), "\"5a" + zeros + "0f\"");
    std::uint64_t seen = 0;
    EXPECT_EQ(store.lines(&seen), "");
}

TEST(TelemetryStoreTest, TextIsJsonWhateverItIs) {
    EXPECT_EQ(json_text("1/2.5\""), R"("1/2.5\"")");
    EXPECT_EQ(json_text("a\\b"), R"("a\\b")");
    EXPECT_EQ(json_text("\x01\n"), R"("\u0001\u000a")");
    EXPECT_EQ(json_text("\xC3\xA9"), "\"\xC3\xA9\"");
    EXPECT_EQ(json_text("\xFF\xC3("), R"("\ufffd\ufffd(")");
    EXPECT_EQ(json_text("\xED\xA0\x80"), R"("\ufffd\ufffd\ufffd")") << "half a surrogate";
}

// The receiver's channel block, with what the sticks leave in it.
class SticksTest : public testing::Test {
  protected:
    SticksTest() : fd_(shm_open("shared_rc_raw", O_CREAT | O_RDWR | O_CLOEXEC, 0600)) {
        EXPECT_EQ(ftruncate(fd_, 1504), 0);
    }
    ~SticksTest() override {
        close(fd_);
        shm_unlink("shared_rc_raw");
    }
    using Axes = std::array<double, 3>;
    Axes axes() const {
        Axes axes{};
        EXPECT_EQ(pread(fd_, axes.data(), sizeof axes, 1056), static_cast<ssize_t>(sizeof axes));
        return axes;
    }
    void write(const Axes& axes) const {
        EXPECT_EQ(pwrite(fd_, axes.data(), sizeof axes, 1056), static_cast<ssize_t>(sizeof axes));
    }

    static constexpr Axes kRest = {0, 0, 0};
    static constexpr Axes kTurned = {0.5, -1, 0.25};
    const int one_hand = 0;
    const int other_hand = 0;

  private:
    const int fd_;
};

TEST_F(SticksTest, HandThatLeavesReleasesOnlyWhatItHolds) {
    Sticks sticks(std::chrono::seconds(60));
    EXPECT_EQ(sticks.set({1, 1, 1}, &other_hand), "");
    EXPECT_EQ(sticks.set({0.5, -1, 0.25}, &one_hand), "");
    sticks.release(&other_hand);
    EXPECT_EQ(axes(), kTurned);
    sticks.release(&one_hand);
    EXPECT_EQ(axes(), kRest);
}

TEST_F(SticksTest, TheyAreAtRestWhenTheyEnd) {
    {
        Sticks sticks(std::chrono::seconds(60));
        EXPECT_EQ(sticks.set({0.5, -1, 0.25}, &one_hand), "");
        EXPECT_EQ(axes(), kTurned);
    }
    EXPECT_EQ(axes(), kRest);
}

// There may be another main application, as long as this one has not begun.
TEST_F(SticksTest, WhatStandsThereIsPutToRestOnlyWhenThatIsAsked) {
    write(kTurned);
    { const Sticks unused; }
    EXPECT_EQ(axes(), kTurned);
    Sticks sticks;
    sticks.put_to_rest();
    EXPECT_EQ(axes(), kRest);
}

std::optional<MonitorOptions> parse(std::vector<std::string> arguments, int* status) {
    arguments.insert(arguments.begin(), "receiver-monitor");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    auto options =
        parse_monitor_options(static_cast<int>(arguments.size()), pointers.data(), status);
    testing::internal::GetCapturedStderr();
    testing::internal::GetCapturedStdout();
    return options;
}

TEST(MonitorOptionsTest, ListensOnThisMachineAlone) {
    int status = 0;
    const auto options = parse({}, &status);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->listen_address, "127.0.0.1");
    EXPECT_EQ(options->listen_port, 8080);
    EXPECT_EQ(options->telemetry_port, 5000);
}

TEST(MonitorOptionsTest, ListensBeyondThisMachineOnlyWithAToken) {
    int status = 0;
    EXPECT_FALSE(parse({"--listen", "0.0.0.0:8080"}, &status));
    EXPECT_EQ(status, 2);
    const std::string file = testing::TempDir() + "monitor-token";
    std::ofstream(file) << kToken << "\n";
    const auto options = parse({"--listen", "0.0.0.0:8080", "--token-file", file}, &status);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->token, kToken);
    std::ofstream(file) << "short\n";
    EXPECT_FALSE(parse({"--token-file", file}, &status));
    std::ofstream(file) << std::string(256, 't') << "\n";
    EXPECT_TRUE(parse({"--token-file", file}, &status));
    std::ofstream(file) << std::string(257, 't') << "\n";
    EXPECT_FALSE(parse({"--token-file", file}, &status)) << "no query would have it";
    EXPECT_EQ(status, 2);
    std::filesystem::remove(file);
    EXPECT_FALSE(parse({"--token-file", file}, &status));
}

TEST(MonitorOptionsTest, RecordingsGoToADirectory) {
    int status = 0;
    const auto options = parse({"--recordings", testing::TempDir()}, &status);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->recordings, testing::TempDir());
}

TEST(PageAddress, IsOneThatABrowserCanOpen) {
    EXPECT_EQ(address_to_open("127.0.0.1"), "127.0.0.1");
    EXPECT_EQ(address_to_open("192.0.2.1"), "192.0.2.1");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    ASSERT_EQ(inet_pton(AF_INET, address_to_open("0.0.0.0").c_str(), &address.sin_addr), 1);
    EXPECT_NE(address.sin_addr.s_addr, 0U);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
        << "it is this machine's";
    close(fd);
}

TEST(MonitorOptionsTest, WrongValuesAreRefused) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--listen", "8080"},
                                               {"--listen", "[::1]:8080"},
                                               {"--listen", "127.0.0.1:99999"},
                                               {"--listen", "name.example:80"},
                                               {"--receiver", "name.example"},
                                               {"--receiver", "127.0.0.1:0"},
                                               {"--telemetry-port", "0"},
                                               {"--telemetry-port", "5000x"},
                                               {"--recordings", "/nonexistent"},
                                               {"--recordings", "/dev/null"},
                                               {"--nonsense"},
                                               {"word"}}) {
        int status = 0;
        EXPECT_FALSE(parse(arguments, &status)) << arguments.back();
        EXPECT_EQ(status, 2);
    }
    int status = 2;
    EXPECT_FALSE(parse({"--help"}, &status));
    EXPECT_EQ(status, 0);
}

}  // namespace
