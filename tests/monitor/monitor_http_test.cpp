// What is refused, and that the monitor carries on: no receiver is needed for that.

#include <filesystem>
#include <fstream>

#include "tests/monitor/monitor_fixture.h"

namespace {

constexpr char kToken[] = "correct-horse-battery";

// FIN and text, a mask, a length of eight bytes.
std::string announced(std::uint64_t size) {
    std::string bytes = "\x81\xFF";
    for (int shift = 56; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(size >> shift & 0xFF);
    }
    return bytes + std::string(4, '\0') + "abc";
}

class MonitorHttp : public MonitorTest {
  protected:
    void SetUp() override {
        std::filesystem::create_directory(directory + "/page");
        std::ofstream(directory + "/page/index.html") << "<title>page</title>";
        std::ofstream(directory + "/secret") << "secret";
    }
    void start_with_token(const std::string& listen) {
        std::ofstream(directory + "/token") << kToken << "\n";
        start_monitor({"--listen", listen, "--token-file", directory + "/token"});
    }
};

TEST_F(MonitorHttp, PageHasItsTypeAndItsPolicy) {
    start_monitor();
    const WebAnswer answer = web_get(port, "/");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "<title>page</title>");
    for (const char* header :
         {"Content-Type: text/html", "Content-Security-Policy: default-src 'self'",
          "X-Content-Type-Options: nosniff", "Cache-Control: no-cache"}) {
        EXPECT_NE(answer.headers.find(header), std::string::npos) << answer.headers;
    }
    const std::size_t tag = answer.headers.find("ETag: ") + 6;
    const std::string known = answer.headers.substr(tag, answer.headers.find('\r', tag) - tag);
    const WebAnswer again =
        web_request(port, "GET /", "Host: 127.0.0.1\r\nIf-None-Match: " + known + "\r\n");
    EXPECT_EQ(again.status, 304);
    EXPECT_EQ(again.body, "");
    EXPECT_EQ(web_request(port, "HEAD /").body, "");
}

TEST_F(MonitorHttp, PathsLeadToThePagesFilesAlone) {
    start_monitor();
    for (const char* path :
         {"/../secret", "/..%2fsecret", "/%2e%2e/secret", "/./../secret", "/page/../../secret",
          "//etc/passwd", "/..\\secret", "/%2e%2e%2fsecret%00.html", "/nothing"}) {
        const WebAnswer answer = web_get(port, path);
        EXPECT_TRUE(answer.status == 404 || answer.status == 400) << path << ": " << answer.status;
        EXPECT_EQ(answer.body.find("secret"), std::string::npos) << path;
    }
    EXPECT_EQ(web_get(port, "/index.html%00.png").body, "<title>page</title>")
        << "a zero byte ends a path";
}

TEST_F(MonitorHttp, BadJsonIsRefusedWithTheReason) {
    start_monitor();
    for (const char* body : {"", "{", "nonsense", "[]", R"({"cmd":1})", "\xFF\xFE"}) {
        const WebAnswer answer = web_post(port, "/api/command", body);
        EXPECT_EQ(answer.status, 400) << body << answer.body;
        EXPECT_TRUE(answer.body.starts_with("{\"refused\":\"")) << answer.body;
    }
    LiveClient live(port);
    for (const char* text :
         {"{", "[]", "{}", "nonsense", R"({"command":7})", R"({"command":{"cmd":"dance"}})"}) {
        live.send_text(text);
        EXPECT_TRUE(live.says("{\"refused\":\"", 10s)) << text;
    }
}

TEST_F(MonitorHttp, RefusalSaysWhatItIsOf) {
    start_monitor();
    LiveClient live(port);
    constexpr struct {
        const char* message;
        const char* answer;
    } kRows[] = {
        {R"({"command":{"cmd":"dance"}})",
         R"({"refused":"there is no such command","of":"command"})"},
        {R"({"sticks":{"pan":2,"tilt":0,"dutch":0}})",
         R"({"refused":"a stick goes from -1 to 1","of":"sticks"})"},
        {R"({"record":"pause"})", R"({"refused":"record takes start or stop","of":"record"})"},
        {R"({"record":1})", R"({"refused":"record takes start or stop","of":"record"})"},
        {R"({})", R"({"refused":"neither command, sticks nor record"})"},
    };
    for (const auto& row : kRows) {
        live.send_text(row.message);
        EXPECT_TRUE(live.says(row.answer, 10s)) << row.message;
    }
}

// Else a connection that breaks off would send what it never ended.
TEST_F(MonitorHttp, BodyThatBreaksOffIsNoCommand) {
    start_monitor();
    const WebAnswer answer =
        web_request(port, "POST /api/command", "Host: 127.0.0.1\r\nContent-Length: 20\r\n",
                    R"({"cmd":"shot"})");
    EXPECT_EQ(answer.status, 400);
    EXPECT_EQ(answer.body, "{\"refused\":\"no JSON object\"}\n");
}

TEST_F(MonitorHttp, CommandWithoutAReceiverIsRefused) {
    start_monitor();
    EXPECT_EQ(web_post(port, "/api/command", R"({"cmd":"shot"})").status, 503);
}

TEST_F(MonitorHttp, HugeBodyIsRefusedWhetherItsSizeIsToldOrNot) {
    start_monitor();
    const WebAnswer told = web_request(port, "POST /api/command",
                                       "Host: 127.0.0.1\r\nContent-Length: 999999999999\r\n");
    EXPECT_EQ(told.status, 413);
    EXPECT_EQ(told.body, "{\"refused\":\"a body has at most 65536 bytes\"}\n");
    std::string chunks;
    for (int i = 0; i < 9; ++i) {
        chunks += "2000\r\n" + std::string(8192, ' ') + "\r\n";
    }
    EXPECT_EQ(web_request(port, "POST /api/command",
                          "Host: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n", chunks + "0\r\n\r\n")
                  .status,
              413);
    EXPECT_EQ(web_post(port, "/api/command", std::string(65536, ' ')).status, 400);
    EXPECT_EQ(web_get(port, "/healthz").body, "ok\n");
}

TEST_F(MonitorHttp, HugeLiveMessageEndsThatConnectionAlone) {
    start_monitor();
    LiveClient other(port);
    LiveClient live(port);
    ASSERT_EQ(live.status(), 101);
    live.send_text(std::string(70000, 'x'));
    EXPECT_TRUE(live.ends(5s));
    other.send_text("{}");
    EXPECT_TRUE(other.says("{\"refused\":\"", 10s));
}

TEST_F(MonitorHttp, LiveMessageThatSaysItIsEnormousTakesNoMemory) {
    start_monitor();
    LiveClient other(port);
    const long before = monitor->status("VmData");  // in KiB
    constexpr std::uint64_t kAnnounced = std::uint64_t{1} << 32;
    std::vector<std::unique_ptr<LiveClient>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(std::make_unique<LiveClient>(port));
        ASSERT_EQ(clients.back()->status(), 101);
        clients.back()->send_bytes(announced(kAnnounced));
    }
    for (const auto& client : clients) {
        EXPECT_TRUE(client->ends(5s));
    }
    // A connection's thread has memory of its own, most of it under the thread sanitizer.
    EXPECT_LT(monitor->status("VmData") - before, static_cast<long>(kAnnounced / 1024 / 16));
    other.send_text("{}");
    EXPECT_TRUE(other.says("{\"refused\":\"", 10s));
}

// A viewer that left without a word is noticed by that, and the page notices a monitor that is out
// of reach.
TEST_F(MonitorHttp, LiveIsNeverSilentForLong) {
    start_monitor();
    LiveClient live(port);
    ASSERT_TRUE(live.says("\"viewers\":1", 10s));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(live.says("{\"state\":{", 2500ms));
    }
}

// The server holds the memory for what a client says it will send: all that the process may have.
TEST_F(MonitorHttp, ClientsThatTakeAllMemoryEndNothingButThemselves) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers' own memory has no limit";
#endif
    start_monitor();
    start_camera();
    play(60);
    ASSERT_TRUE(LiveClient(port).next_picture(20s));
    std::vector<std::unique_ptr<LiveClient>> greedy;
    for (std::uint64_t size = std::uint64_t{900} << 20; size > 65536; size /= 2) {
        for (int i = 0; i < 4; ++i) {
            greedy.push_back(std::make_unique<LiveClient>(port));
            greedy.back()->send_bytes(announced(size));
        }
    }
    ASSERT_GT(monitor->status("VmData"), 900 * 1024);
    for (int i = 0; i < 20; ++i) {
        LiveClient(port).next_picture(100ms);
        web_get(port, "/api/state");
        web_post(port, "/api/command", std::string(60000, ' '));
        ASSERT_FALSE(monitor->wait_exit(0ms)) << monitor->output();
    }
    greedy.clear();
    const auto end = std::chrono::steady_clock::now() + 30s;
    while (!LiveClient(port).next_picture(5s) && std::chrono::steady_clock::now() < end) {
    }
    EXPECT_TRUE(LiveClient(port).next_picture(5s));
    EXPECT_EQ(web_get(port, "/healthz").status, 200);
}

TEST_F(MonitorHttp, OtherMethodsAreRefused) {
    start_monitor();
    EXPECT_EQ(web_get(port, "/api/command").status, 405);
    EXPECT_EQ(web_post(port, "/api/state", "").status, 405);
    EXPECT_EQ(web_post(port, "/", "").status, 405);
    EXPECT_EQ(web_request(port, "DELETE /recordings/camera-20260101-000000.mp4").status, 405);
    EXPECT_EQ(web_request(port, "PATCH /api/state").status, 405);
    EXPECT_EQ(web_request(port, "BREW /api/state").status, 400);
    EXPECT_EQ(web_request(port, "HEAD /video.h264").status, 200) << "and it ends";
}

TEST_F(MonitorHttp, OtherSitesPageReachesNeitherCommandsNorLive) {
    start_monitor();
    const std::string here = "Host: 127.0.0.1:" + std::to_string(port) + "\r\n";
    const std::string foreign = here + "Origin: http://evil.example\r\n";
    const std::string own = here + "Origin: http://127.0.0.1:" + std::to_string(port) + "\r\n";
    EXPECT_EQ(web_post(port, "/api/command", R"({"cmd":"shot"})", foreign).status, 403);
    EXPECT_EQ(LiveClient(port, "/live", foreign).status(), 403);
    EXPECT_EQ(web_post(port, "/api/command", R"({"cmd":"shot"})", own).status, 503);
    EXPECT_EQ(LiveClient(port, "/live", own).status(), 101);
}

TEST_F(MonitorHttp, NameThatWasLedHereIsRefused) {
    start_monitor();
    const std::string led = "Host: evil.example\r\n";
    for (const char* line :
         {"GET /api/state", "GET /metrics", "GET /video.h264", "GET /api/recordings",
          "GET /recordings/camera-20260101-000000.mp4", "POST /api/command", "POST /api/record"}) {
        EXPECT_EQ(web_request(port, line, led + "Content-Length: 0\r\n").status, 421) << line;
        EXPECT_EQ(web_request(port, line, "Content-Length: 0\r\n").status, 421)
            << line << " without a name";
    }
    EXPECT_EQ(LiveClient(port, "/live", led).status(), 421);
}

// What each path answers to whom has the token; without it, or with another one, 401.
TEST_F(MonitorHttp, WithoutTheTokenOnlyPageAndHealthAreShown) {
    start_with_token("0.0.0.0:0");
    const std::string host = "Host: pi.example\r\n";
    const std::string bearer = host + "Authorization: Bearer " + kToken + "\r\n";
    const std::string token = kToken;
    constexpr struct {
        const char* line;
        int status;
    } kRows[] = {
        {"GET /api/state", 200},      {"GET /metrics", 200},
        {"GET /api/recordings", 200}, {"GET /recordings/camera-20260101-000000.mp4", 404},
        {"HEAD /video.h264", 200},    {"POST /api/command", 400},
        {"POST /api/record", 400},    {"GET /recordings/", 404},
    };
    for (const auto& row : kRows) {
        const std::string line = row.line;
        const std::string none = host + "Content-Length: 0\r\n";
        EXPECT_EQ(web_request(port, line, none).status, 401) << line;
        EXPECT_EQ(web_request(port, line, none + "Authorization: Basic " + token + "\r\n").status,
                  401)
            << line;
        EXPECT_EQ(web_request(port, line + "?token=" + token + "x", none).status, 401) << line;
        EXPECT_EQ(web_request(port, line + "?token=" + token.substr(1), none).status, 401) << line;
        EXPECT_EQ(web_request(port, line + "?token=", none).status, 401) << line;
        EXPECT_EQ(web_request(port, line + "?token=" + token, none).status, row.status) << line;
        EXPECT_EQ(web_request(port, line, bearer + "Content-Length: 0\r\n").status, row.status)
            << line;
    }
    EXPECT_EQ(web_request(port, "GET /video.h264", host).status, 401);
    EXPECT_EQ(LiveClient(port, "/live", host).status(), 401);
    EXPECT_EQ(LiveClient(port, "/live?token=" + token + "x", host).status(), 401);
    EXPECT_EQ(LiveClient(port, "/live?token=" + token, host).status(), 101);
    EXPECT_EQ(LiveClient(port, "/live", bearer).status(), 101);
    EXPECT_EQ(web_request(port, "GET /healthz", host).status, 200);
    EXPECT_EQ(web_request(port, "GET /", host).status, 200);
}

TEST_F(MonitorHttp, AddressThatIsPrintedIsOneToOpenAndTheTokenIsNotPrinted) {
    start_with_token("0.0.0.0:0");
    const std::string said = monitor->standard_output();
    EXPECT_TRUE(said.ends_with(
        "/\nTo be opened with ?token= and the first line of the token file behind it.\n"))
        << said;
    EXPECT_FALSE(said.starts_with("http://0.0.0.0")) << said;
    EXPECT_EQ(said.find(kToken), std::string::npos);
}

// Headers and bodies that do not come to an end, and connections that say nothing: meanwhile others
// are served, and their time is limited.
TEST_F(MonitorHttp, ClientThatSendsHalfARequestHoldsNobodyUp) {
    start_monitor();
    const std::string post = "POST /api/command HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    std::vector<std::unique_ptr<WebConnection>> halves;
    for (const std::string& half :
         {post + "Content-Le", post + "Content-Length: 100\r\n\r\n{",
          post + "Transfer-Encoding: chunked\r\n\r\n5\r\n{", std::string("G"), std::string()}) {
        for (int i = 0; i < 20; ++i) {
            halves.push_back(std::make_unique<WebConnection>(port));
            halves.back()->send(half);
        }
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(web_get(port, "/healthz").status, 200);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
    for (const auto& half : halves) {
        while (!half->receive(40s).empty()) {
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 35s);
}

TEST_F(MonitorHttp, ManyRequestsAtOnceAreAllAnswered) {
    start_monitor();
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 100; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 5; ++j) {
                answered += web_get(port, "/api/state").status == 200 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered, 500);
}

// Nobody is told that a client has left: only a write finds out, also where there is no video.
TEST_F(MonitorHttp, StreamWhoseClientLeftIsLetGo) {
    start_monitor();
    {
        std::vector<std::unique_ptr<WebConnection>> clients;
        for (int i = 0; i < 20; ++i) {
            clients.push_back(std::make_unique<WebConnection>(port));
            clients.back()->send("GET /video.h264 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
            EXPECT_NE(clients.back()->receive(10s).find("video/h264"), std::string::npos);
        }
        EXPECT_TRUE(state_says("\"viewers\":20", 10s));
    }
    const auto end = std::chrono::steady_clock::now() + 15s;
    while (metric("viewers") != 0 && std::chrono::steady_clock::now() < end) {
        usleep(100000);
    }
    EXPECT_EQ(metric("viewers"), 0U);
}

TEST_F(MonitorHttp, PortThatIsTakenIsToldAndEndsTheProgram) {
    start_monitor();
    const std::string address = "127.0.0.1:" + std::to_string(port);
    ReceiverProcess second({"--listen", address, "--telemetry-port", "5001"}, {}, MONITOR_PROGRAM);
    EXPECT_EQ(second.wait_exit(10s), 1);
    EXPECT_EQ(second.output(), "receiver-monitor: " + address + " cannot be listened at\n");
    ReceiverProcess third({"--listen", "127.0.0.1:0"}, {}, MONITOR_PROGRAM);
    EXPECT_EQ(third.wait_exit(10s), 1);
    EXPECT_EQ(third.output(), "receiver-monitor: UDP port 5000: Address already in use\n");
}

}  // namespace
