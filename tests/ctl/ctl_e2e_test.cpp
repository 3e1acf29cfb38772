// receiver-ctl at work: its words reach the camera through the real monitor and receiver, and it
// says by its status what has become of them.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "monitor/receiver_ctl_commands.h"
#include "tests/monitor/monitor_fixture.h"

namespace {

using testing::HasSubstr;

struct Ran {
    int status;
    std::string output;  // of both kinds
};

Ran run_shell(const std::string& command) {
    Ran ran{-1, ""};
    FILE* const pipe = popen(("( " + command + " ) 2>&1").c_str(), "r");
    char piece[4096];
    for (std::size_t count; (count = fread(piece, 1, sizeof piece, pipe)) > 0;) {
        ran.output.append(piece, count);
    }
    const int status = pclose(pipe);
    ran.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ran;
}

class CtlTest : public MonitorTest {
  protected:
    void start_all(const std::vector<std::string>& arguments = {}) {
        start_monitor(arguments);
        start_camera();
    }
    void SetUp() override {}

    std::string command(const std::string& words) const {
        return std::string(CTL_PROGRAM) + " --monitor http://127.0.0.1:" + std::to_string(port) +
               " " + words;
    }
    Ran ctl(const std::string& words) const { return run_shell(command(words)); }
};

// All that can be typed for these words, quoted for the shell.
std::vector<std::string> forms(const std::string& words, const std::string& numbers) {
    std::vector<std::string> all;
    for (const CtlCommand& command : ctl_commands()) {
        if (words != command.words) {
            continue;
        }
        if (command.arguments[0] == nullptr || ctl_number(command.arguments[0]) != nullptr) {
            all.push_back(words + " " + numbers);
            continue;
        }
        for (const CtlChoice& choice : ctl_choices(command.arguments[0])) {
            all.push_back(words + " '" + choice.typed + "'");
        }
    }
    return all;
}

// clang-format off
constexpr struct {
    const char* words;
    const char* numbers;
    const char* taken;    // the camera's name of the command, or null: nothing goes there
    unsigned packets;     // for each form
} kEffects[] = {
    {"record start",       "",          "record",             1},
    {"record stop",        "",          "record",             1},
    {"shot",               "",          "shot",               1},
    {"mode",               "",          "mode",               1},
    {"shotmode",           "",          "photo_format",       1},
    {"resolution",         "",          "video_format",       1},
    {"aspect",             "",          "aspect_ratio",       1},
    {"standard",           "",          "video_standard",     1},
    {"gimbal normal",      "",          "gimbal_center",      1},
    {"gimbal selfie",      "",          "gimbal_selfie",      1},
    {"gimbal abs",         "10 -5 0",   "gimbal_position",    1},
    {"orientation lock",   "",          "orientation_lock",   1},
    {"orientation unlock", "",          "orientation_unlock", 3},
    {"pitch",              "",          "gimbal_parameters",  1},
    {"horizon",            "",          "horizon",            1},
    {"movement",           "",          nullptr,              0},  // of the sticks: a test of its own
    {"focus af",           "",          "focus_mode",         1},
    {"focus mf",           "",          "focus_mode",         1},
    {"focus point",        "0.5 0.25",  "focus_point",        1},
    {"focus manual",       "37",        "focus_position",     1},
    {"focus afa",          "",          "focus_assistant",    1},
    {"focus mfa",          "",          "focus_assistant",    1},
    {"focus realtime",     "",          "gimbal_parameters",  1},
    {"focus limits",       "10 90",     nullptr,              0},
    {"focus inf",          "",          "focus_infinity",     1},
    {"program",            "",          "image_mode",         1},
    {"shutter",            "",          "shutter",            1},
    {"aperture",           "",          "aperture",           1},
    {"iso",                "",          "iso",                1},
    {"ev",                 "",          "ev",                 1},
    {"exposure point",     "45",        "exposure_point",     1},
    {"exposure center",    "",          "exposure_center",    1},
    {"exposure lock",      "",          "ae_lock",            1},
    {"exposure unlock",    "",          "ae_lock",            1},
    {"antiflicker",        "",          "antiflicker",        1},
    {"histogram",          "",          "histogram",          1},
    {"wb",                 "",          "white_balance",      1},
    {"wb custom",          "5600",      "white_balance",      1},
    {"color",              "",          "color",              1},
    {"zoom in",            "",          "optical_zoom",       1},
    {"zoom out",           "",          "optical_zoom",       1},
    {"zoom stop",          "",          "optical_zoom",       2},
    {"zoom digital",       "0",         nullptr,              0},  // until 0: a test of its own
    {"dzoom",              "150",       "digital_zoom",       1},
    {"smoothtrack",        "",          "gimbal_parameters",  1},
    {"wifi",               "",          "wifi_band",          1},
    {"format",             "",          "format_card",        0},
    {"power",              "",          "power",              1},
    {"reset",              "",          "reset",              1},
};
// clang-format on

TEST_F(CtlTest, EachWordReachesTheCameraAsItsCommand) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    std::set<std::string> tried;
    for (const auto& effect : kEffects) {
        tried.insert(effect.words);
        unsigned expected = effect.taken == nullptr ? 0 : camera->taken(effect.taken);
        const auto typed = forms(effect.words, effect.numbers);
        EXPECT_FALSE(typed.empty()) << effect.words;
        for (const std::string& words : typed) {
            // The receiver sends a position once it has heard from the camera that the user
            // focuses; limits are its own.
            const bool is_awaited = words == "focus inf " || words == "focus af " ||
                                    words == "focus mf " || words.starts_with("focus limits");
            const Ran ran = ctl(words + (is_awaited ? " --wait=15" : " --yes"));
            ASSERT_EQ(ran.status, 0) << words << ": " << ran.output;
            EXPECT_EQ(ran.output, "");
            expected += effect.packets;
        }
        if (effect.packets > 0) {
            EXPECT_TRUE(camera->wait_for_taken(effect.taken, expected, 5s))
                << effect.words << ": " << camera->taken(effect.taken) << " of " << expected;
        }
    }
    EXPECT_TRUE(camera->wait_for_taken("format_card", 1, 5s));
    EXPECT_TRUE(camera->wait_for_taken("format_drive", 1, 5s));
    EXPECT_EQ(camera->refused(), 0U);
    for (const CtlCommand& each : ctl_commands()) {
        EXPECT_TRUE(tried.contains(each.words)) << each.words;
    }
}

TEST_F(CtlTest, MovementMakesTheSticksSpeedOrPosition) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    LiveClient live(port);
    const auto held_until = [&](const char* command) {
        const unsigned before = camera->taken(command);
        const auto end = std::chrono::steady_clock::now() + 15s;
        while (camera->taken(command) < before + 5 && std::chrono::steady_clock::now() < end) {
            live.send_text(R"({"sticks":{"pan":0.5,"tilt":0,"dutch":0}})");
            usleep(50000);
        }
        return camera->taken(command) >= before + 5;
    };
    ASSERT_EQ(ctl("movement rel").status, 0);
    EXPECT_TRUE(held_until("gimbal_speed"));
    EXPECT_EQ(camera->taken("gimbal_position"), 0U);
    ASSERT_EQ(ctl("movement abs").status, 0);
    EXPECT_TRUE(held_until("gimbal_position"));
}

TEST_F(CtlTest, DigitalZoomGoesOnUntilZero) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    ASSERT_EQ(ctl("movement rel").status, 0);
    ASSERT_EQ(ctl("zoom digital 1").status, 0);
    EXPECT_TRUE(camera->wait_for_taken("digital_zoom", 10, 15s));
    ASSERT_EQ(ctl("zoom digital 0").status, 0);
    sleep(1);
    const unsigned stopped = camera->taken("digital_zoom");
    sleep(1);
    EXPECT_EQ(camera->taken("digital_zoom"), stopped);
}

TEST_F(CtlTest, WaitSeesWhatTelemetryShows) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    camera->set("camera_model", "DJI Osmo RAW (X5R)");
    for (const char* words : {"program manual",
                              "iso 400",
                              "iso auto",
                              "shutter 2.5s",
                              "shutter 1/50",
                              "aperture 2.8",
                              "aperture 4",
                              "program auto",
                              "ev -0.3",
                              "ev 0",
                              "ev +1",
                              "exposure lock",
                              "exposure unlock",
                              "antiflicker 50",
                              "antiflicker auto",
                              "wb cloudy",
                              "wb custom 5600",
                              "color d-log",
                              "color black-white",
                              "color none",
                              "resolution 2704x1520@25",
                              "resolution 1920x1080@30",
                              "aspect 4:3",
                              "standard ntsc",
                              "shotmode jpg+raw",
                              "mode photo",
                              "mode video",
                              "orientation lock",
                              "orientation unlock",
                              "focus mf",
                              "focus af",
                              "focus inf",
                              "focus afa on",
                              "focus afa off",
                              "focus mfa on",
                              "focus mfa off",
                              "focus limits 10 90",
                              "record start",
                              "record stop",
                              "power sleep"}) {
        const Ran ran = ctl(std::string("--wait=15 ") + words);
        EXPECT_EQ(ran.status, 0) << words << ": " << ran.output;
    }
}

TEST_F(CtlTest, WaitForFocusAtInfinitySeesItThere) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    ASSERT_EQ(ctl("focus mf --wait=15").status, 0);
    ASSERT_EQ(ctl("focus manual 37").status, 0);
    ASSERT_TRUE(camera->wait_for_taken("focus_position", 1, 5s));
    ASSERT_FALSE(state_says("\"focus_position\":\"0\"", 0s));
    const Ran ran = ctl("focus inf --wait=15");
    EXPECT_EQ(ran.status, 0) << ran.output;
    EXPECT_TRUE(camera->wait_for("focus_position", "0", 5s));
}

TEST_F(CtlTest, WaitSaysWhatTelemetryDoesNotShow) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    camera->set("image_mode", "auto");  // in which the camera chooses
    const Ran unseen = ctl("shutter 1/8000 --wait=2");
    EXPECT_EQ(unseen.status, 1);
    EXPECT_EQ(unseen.output, "receiver-ctl: sent, but telemetry does not show shutter=1/8000\n");
    const Ran untold = ctl("shot --wait");
    EXPECT_EQ(untold.status, 2);
    EXPECT_THAT(untold.output, HasSubstr("nothing to wait for"));
    EXPECT_EQ(camera->taken("shot"), 0U);
}

TEST_F(CtlTest, WaitEndsInTimeWhereTheMonitorHangs) {
    start_monitor();
    ASSERT_EQ(ctl("status").status, 0);
    monitor->signal(SIGSTOP);
    const auto begun = std::chrono::steady_clock::now();
    const Ran ran = ctl("iso 400 --wait=1");
    const auto took = std::chrono::steady_clock::now() - begun;
    monitor->signal(SIGCONT);
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(ran.output, HasSubstr("no receiver-monitor at "));
    EXPECT_LT(took, 5s);
}

TEST_F(CtlTest, OutputThatCannotBeWrittenIsAFailure) {
    start_monitor();
    for (const char* words : {"status", "status --json", "--help"}) {
        const Ran ran = ctl(std::string(words) + " >/dev/full");
        EXPECT_EQ(ran.status, 1) << words;
        EXPECT_THAT(ran.output, HasSubstr("cannot write: ")) << words;
    }
}

TEST_F(CtlTest, WhatTakesSomethingAwayAsksForYes) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    for (const char* words : {"format sd", "reset"}) {
        const Ran ran = ctl(words);
        EXPECT_EQ(ran.status, 2);
        EXPECT_THAT(ran.output, HasSubstr("--yes"));
    }
    EXPECT_EQ(ctl("format sd --yes").status, 0);
    EXPECT_TRUE(camera->wait_for_taken("format_card", 1, 5s));
    EXPECT_EQ(camera->taken("reset"), 0U);
}

TEST_F(CtlTest, SaysWhyNothingWasSent) {
    const Ran nobody = run_shell(CTL_PROGRAM " --monitor http://127.0.0.1:9 shot");
    EXPECT_EQ(nobody.status, 1);
    EXPECT_THAT(nobody.output, HasSubstr("no receiver-monitor at http://127.0.0.1:9: "));
    start_monitor();
    const Ran lost = ctl("shot");
    EXPECT_EQ(lost.status, 1);
    EXPECT_EQ(lost.output, "receiver-ctl: refused: there is no receiver\n");
    for (const char* words : {"iso 300", "dance", "", "--frob", "shot --wait=x", "status now",
                              "record-file", "sniff", "-m ftp://127.0.0.1 shot"}) {
        EXPECT_EQ(ctl(words).status, 2) << words;
    }
    EXPECT_EQ(ctl("--help").status, 0);
    EXPECT_THAT(ctl("--help").output, HasSubstr("iso auto|100|200"));
}

TEST_F(CtlTest, TokenIsReadFromItsFile) {
    const std::string token = directory + "/token";
    std::ofstream(token) << "0123456789abcdef\n";
    start_monitor({"--token-file", token});
    EXPECT_EQ(ctl("status").status, 1);
    const Ran wrong = ctl("status --token-file /dev/null");
    EXPECT_EQ(wrong.status, 2);
    const Ran right = ctl("status --token-file " + token);
    EXPECT_EQ(right.status, 0) << right.output;
    EXPECT_THAT(right.output, HasSubstr("receiver waiting"));
}

TEST_F(CtlTest, StatusIsATableOrJson) {
    start_all();
    ASSERT_TRUE(state_says("\"camera_model\":\"DJI", 20s));
    EXPECT_THAT(ctl("status").output, HasSubstr("link      receiver present  camera present"));
    EXPECT_THAT(ctl("status --json").output, HasSubstr("\"camera_model\":\"DJI Osmo"));
}

TEST_F(CtlTest, WatchRedrawsATerminal) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    ASSERT_EQ(ctl("iso 100 --wait").status, 0);
    const Ran ran = run_shell("(sleep 2; " + command("iso 800") + ") & " +
                              "TERM=xterm timeout 6 script -qec '" + command("watch") +
                              "' /dev/null </dev/null");
    EXPECT_THAT(ran.output, HasSubstr("\033[2J"));
    EXPECT_THAT(ran.output, HasSubstr("\033[H"));
    const std::size_t before = ran.output.find("set 100");
    const std::size_t after = ran.output.find("set 800");
    EXPECT_LT(before, after);
    EXPECT_NE(after, std::string::npos) << ran.output;
}

TEST_F(CtlTest, WatchInAPipeSaysWhatChangesAndEndsWithItsReader) {
    start_all();
    ASSERT_TRUE(state_says("\"camera\":\"present\"", 20s));
    ASSERT_EQ(ctl("iso 100 --wait").status, 0);
    const Ran ran = run_shell("(sleep 2; " + command("iso 800") + ") & timeout 20 " +
                              command("watch") + " | grep -m 1 -E '^[0-9:]{8} iso_set 800$'");
    EXPECT_EQ(ran.status, 0) << ran.output;
}

TEST_F(CtlTest, MonitorRecordsIntoAFileThatIsListed) {
    std::filesystem::create_directory(directory + "/recordings");
    start_all({"--recordings", directory + "/recordings"});
    play(60);
    ASSERT_TRUE(state_says("\"video_width\":1280", 20s));
    ASSERT_EQ(ctl("record-file start").status, 0);
    EXPECT_TRUE(state_says("\"recording\":\"camera-", 5s));
    sleep(1);
    ASSERT_EQ(ctl("record-file stop").status, 0);
    ASSERT_TRUE(state_says("\"recording\":\"\"", 10s));
    const Ran list = ctl("recordings");
    EXPECT_EQ(list.status, 0) << list.output;
    EXPECT_THAT(list.output, testing::ContainsRegex("^ +[1-9][0-9]+  camera-.*\\.mp4\n$"));
}

}  // namespace
