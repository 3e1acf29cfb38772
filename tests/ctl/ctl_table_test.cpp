// The words of receiver-ctl against docs/protocol.md and the receiver's own lists.
#include <cJSON.h>
#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "control/setting_lists.h"
#include "monitor/command_check.h"
#include "monitor/receiver_ctl_commands.h"
#include "monitor/receiver_ctl_text.h"
#include "monitor/receiver_ctl_view.h"
#include "tests/protocol_page.h"

namespace {

using Words = std::vector<std::string>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Words words_of(const std::string& text) {
    Words words;
    std::string word;
    for (const char c : text + " ") {
        if (c != ' ') {
            word += c;
        } else if (!word.empty()) {
            words.push_back(word);
            word.clear();
        }
    }
    return words;
}

std::string json_for(const std::string& typed) {
    std::string why;
    const auto request = parse_ctl_command(words_of(typed), &why);
    return request ? request->json : "refused: " + why;
}

std::map<std::string, std::string> members_of(const std::string& json) {
    std::map<std::string, std::string> members;
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object(cJSON_Parse(json.c_str()),
                                                                 &cJSON_Delete);
    for (const cJSON* each = object ? object->child : nullptr; each != nullptr; each = each->next) {
        members[each->string] = each->valuestring;
    }
    return members;
}

// Everything that can be typed for a row: each of its choices, and of numbers the ends.
std::vector<Words> typed_forms(const CtlCommand& command) {
    std::vector<Words> forms = {words_of(command.words)};
    for (const char* argument : command.arguments) {
        if (argument == nullptr) {
            continue;
        }
        Words values;
        if (const CtlNumber* number = ctl_number(argument)) {
            values = {std::to_string(static_cast<int>(number->least)),
                      std::to_string(static_cast<int>(number->most))};
            if (number->step == 0) {
                values.emplace_back("0.5");
                values.emplace_back("0.25");
            } else {
                for (const char* example :
                     {"1", "-1", "2", "10", "45", "50", "90", "150", "5600"}) {
                    if (atoi(example) >= number->least && atoi(example) <= number->most &&
                        atoi(example) % number->step == 0) {
                        values.emplace_back(example);
                    }
                }
            }
        } else {
            for (const CtlChoice& choice : ctl_choices(argument)) {
                values.push_back(choice.typed);
            }
        }
        std::vector<Words> longer;
        for (const Words& form : forms) {
            for (const std::string& value : values) {
                longer.push_back(form);
                longer.back().push_back(value);
            }
        }
        forms = longer;
    }
    return forms;
}

TEST(CtlTable, EachFormIsACommandThatTheMonitorTakes) {
    for (const CtlCommand& command : ctl_commands()) {
        for (const Words& typed : typed_forms(command)) {
            std::string why;
            const auto request = parse_ctl_command(typed, &why);
            ASSERT_TRUE(request) << command.words << ": " << why;
            EXPECT_EQ(check_command(request->json).refusal, "") << request->json;
            EXPECT_THAT(request->json + request->shows, testing::Not(HasSubstr("$")));
        }
    }
}

TEST(CtlTable, HasEachCommandOfTheProtocolPage) {
    std::set<std::map<std::string, std::string>> known;
    for (const CtlCommand& command : ctl_commands()) {
        for (const Words& typed : typed_forms(command)) {
            std::string why;
            known.insert(members_of(parse_ctl_command(typed, &why)->json));
        }
    }
    const auto rows = page_table("<!-- commands -->");
    EXPECT_GE(rows.size(), 50U);
    for (const auto& row : rows) {
        const std::string json = unquoted(row.at(0));
        EXPECT_TRUE(known.contains(members_of(json))) << json;
    }
}

// The page's zooms are binary; the monitor has words for them.
TEST(CtlTable, ZoomsAreTheBinaryMessagesOfTheProtocolPage) {
    std::vector<std::string> datagrams;
    for (const char* typed : {"zoom in", "zoom out", "zoom stop"}) {
        std::string hex;
        for (const std::uint8_t byte : check_command(json_for(typed)).datagram) {
            char digits[4];
            snprintf(digits, sizeof digits, "%02X ", byte);
            hex += digits;
        }
        hex.pop_back();
        datagrams.push_back(hex);
    }
    std::vector<std::string> page;
    for (const auto& row : page_table("<!-- binary commands -->")) {
        page.push_back(unquoted(row.at(0)));
    }
    EXPECT_EQ(datagrams, page);
    EXPECT_EQ(json_for("zoom digital -5"), R"({"cmd":"zoom","param":"digital","value":"-5"})");
}

Words sent_choices(const char* words) {
    Words sent;
    for (const CtlCommand& command : ctl_commands()) {
        if (std::string(words) == command.words) {
            for (const CtlChoice& choice : ctl_choices(command.arguments[0])) {
                sent.push_back(choice.sent);
            }
        }
    }
    return sent;
}

TEST(CtlTable, ChoicesAreTheReceiversOwn) {
    const auto list = [](TextList texts) { return Words(texts.begin(), texts.end()); };
    EXPECT_EQ(sent_choices("shutter"), list(kShutterTimes));
    EXPECT_EQ(sent_choices("aperture"), list(kApertureSteps));
    EXPECT_EQ(sent_choices("ev"), list(kEvSteps));
    EXPECT_EQ(sent_choices("program"), list(kImageModesX5));
    for (const char* color : kColorSteps) {
        EXPECT_THAT(sent_choices("color"), testing::Contains(color));
    }
    Words wb = sent_choices("wb");
    wb.emplace_back("custom");
    EXPECT_EQ(wb, list(kWbSteps));
}

TEST(CtlTable, WordsAsPeopleTypeThem) {
    // clang-format off
    const struct { const char* typed; const char* json; } cases[] = {
        {"iso 400",               R"({"cmd":"iso","param":"400"})"},
        {"ISO AUTO",              R"({"cmd":"iso","param":"auto"})"},
        {"shot",                  R"({"cmd":"shot"})"},
        {"gimbal abs 10 -5 0",    R"({"cmd":"position","param":"abs","value":"10","value2":"-5","value3":"0"})"},
        {"gimbal abs +1 -1 0",    R"({"cmd":"position","param":"abs","value":"1","value2":"-1","value3":"0"})"},
        {"ev -0.3",               R"({"cmd":"ev","param":"-0.3"})"},
        {"ev 0.3",                R"({"cmd":"ev","param":"+0.3"})"},
        {"ev -1",                 R"({"cmd":"ev","param":"-1.0"})"},
        {"shutter 2.5s",          R"({"cmd":"shutter","param":"2.5\""})"},
        {"shutter 2.5\"",         R"({"cmd":"shutter","param":"2.5\""})"},
        {"shutter 1/50",          R"({"cmd":"shutter","param":"1/50"})"},
        {"aperture 2.8",          R"({"cmd":"aperture","param":"2.8"})"},
        {"wb custom 5600",        R"({"cmd":"wb","param":"custom","value":"5600"})"},
        {"wb custom 05600",       R"({"cmd":"wb","param":"custom","value":"5600"})"},
        {"focus manual +07",      R"({"cmd":"focus","param":"manual","value":"7"})"},
        {"color black-white",     R"({"cmd":"color","param":"black white"})"},
        {"focus afa on",          R"({"cmd":"focus","param":"afa","value":"1"})"},
        {"focus point 0.5 0.25",  R"({"cmd":"focus","param":"point","value":"0.5","value2":"0.25"})"},
        {"standard pal",          R"({"cmd":"video_std","param":"PAL"})"},
        {"resolution 1920X1080@30", R"({"cmd":"video_resolution","param":"1920x1080@30"})"},
        {"dzoom 150",             R"({"cmd":"dzoom","param":"set","value":"150"})"},
    };
    // clang-format on
    for (const auto& each : cases) {
        EXPECT_EQ(json_for(each.typed), each.json) << each.typed;
    }
}

TEST(CtlTable, WrongWordsAreRefusedWithWhatWouldBeRight) {
    EXPECT_EQ(json_for("iso 300"),
              "refused: that would be\n  iso auto|100|200|400|800|1600|3200|6400");
    EXPECT_EQ(json_for("dance"), "refused: there is no such command");
    EXPECT_EQ(json_for(""), "refused: there is no such command");
    EXPECT_THAT(json_for("wb custom"),
                HasSubstr("wb custom KELVIN\n"
                          "    KELVIN: a whole number from 0 to 25500 in steps of 100"));
    for (const char* typed :
         {"shot now", "gimbal abs 1 2", "gimbal abs 1 2 x", "gimbal abs 19 0 0",
          "gimbal abs 0.5 0 0", "focus point 1.01 0", "focus point nan 0", "focus point 0x1 0",
          "focus manual 101", "dzoom 99", "exposure point 256", "ev 0.4", "iso",
          "zoom digital 32768", "focus manual -1", "wb custom 5650", "wb custom 25600"}) {
        EXPECT_THAT(json_for(typed), HasSubstr("refused: that would be")) << typed;
    }
}

TEST(CtlTable, WhatTakesSomethingAwayIsMarked) {
    Words final;
    for (const CtlCommand& command : ctl_commands()) {
        if (command.is_final) {
            final.push_back(ctl_usage(command));
        }
    }
    EXPECT_THAT(final, ElementsAre("reset --yes", "format sd|ssd --yes"));
}

TEST(CtlShown, LooksAtWordsAndAtBits) {
    CtlState state = {{"iso_set", "400"}, {"record_state", "136"}, {"format", "2704X1520@25"}};
    const CtlValues value = [&](const std::string& key) { return state[key]; };
    EXPECT_TRUE(ctl_shown("iso_set=400", value));
    EXPECT_FALSE(ctl_shown("iso_set=40", value));
    EXPECT_TRUE(ctl_shown("record_state&192=2", value));
    EXPECT_TRUE(ctl_shown("record_state&8=1", value));
    EXPECT_FALSE(ctl_shown("record_state&192=0", value));
    EXPECT_TRUE(ctl_shown("format=2704x1520@25,iso_set=400", value));
    EXPECT_FALSE(ctl_shown("format=2704x1520@25,iso_set=800", value));
    EXPECT_FALSE(ctl_shown("unknown&1=0", value));
}

// One that the user focuses already is at infinity only once it has got there.
TEST(CtlShown, FocusAtInfinityIsAPosition) {
    std::string why;
    const auto request = parse_ctl_command({"focus", "inf"}, &why);
    ASSERT_TRUE(request);
    CtlState state = {{"focus_auto", "0"}, {"focus_position", "370"}};
    const CtlValues value = [&](const std::string& key) { return state[key]; };
    EXPECT_FALSE(ctl_shown(request->shows, value));
    state["focus_position"] = "0";
    EXPECT_TRUE(ctl_shown(request->shows, value));
}

TEST(CtlCompletion, FollowsTheTable) {
    EXPECT_THAT(ctl_completions({"gimbal"}), ElementsAre("normal", "selfie", "abs"));
    EXPECT_THAT(ctl_completions({"wb"}),
                ElementsAre("auto", "sunny", "cloudy", "incandescent", "neon", "custom"));
    EXPECT_THAT(ctl_completions({"antiflicker"}), ElementsAre("50", "60", "auto"));
    EXPECT_THAT(ctl_completions({"wb", "custom"}), IsEmpty());
    EXPECT_THAT(ctl_completions({"shot"}), IsEmpty());
    EXPECT_THAT(ctl_completions({"iso", "400"}), IsEmpty());
    EXPECT_THAT(ctl_completions({}), testing::IsSupersetOf({"iso", "gimbal", "format", "zoom"}));
}

TEST(CtlView, SaysWhatNumbersMean) {
    const std::string table = ctl_table({{"receiver", "present"},
                                         {"record_state", "128"},
                                         {"focus_auto", "0"},
                                         {"iso", "640"},
                                         {"iso_set", "auto"},
                                         {"battery_level", "87"}});
    EXPECT_THAT(table, HasSubstr("link      receiver present  "));
    EXPECT_THAT(table, HasSubstr("recording yes"));
    EXPECT_THAT(table, HasSubstr("focus     manual"));
    EXPECT_THAT(table, HasSubstr("iso 640"));
    EXPECT_THAT(table, HasSubstr("battery 87 %"));
    EXPECT_THAT(table, HasSubstr("camera -"));
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
    EXPECT_LE(std::count(table.begin(), table.end(), '\n'), 24);
}

TEST(CtlText, ControlCharactersDoNotReachTheTerminal) {
    EXPECT_EQ(ctl_printable("X5\x1B[2J\n\x7F"), "X5?[2J??");
    EXPECT_EQ(ctl_printable("a\xC2\x9B"
                            "31m"),
              "a?31m");
    EXPECT_EQ(ctl_printable("\xC2\xB0\xC3\x9F\xC2"), "\xC2\xB0\xC3\x9F\xC2");
}

TEST(CtlView, CameraCannotCommandTheTerminal) {
    EXPECT_THAT(ctl_table({{"camera_model", "X5\x1B]0;x\x07"}}), HasSubstr("X5?]0;x?"));
    EXPECT_EQ(ctl_changes({}, {{"camera_model", "X5\x1B[2J"}, {"a\nb", "1"}}),
              "a?b 1\ncamera_model X5?[2J\n");
    EXPECT_EQ(ctl_refusal({403, "{\"refused\":\"no\\u001b[2J\"}"}), "refused: no?[2J");
}

TEST(CtlView, ChangesAreNamed) {
    EXPECT_EQ(
        ctl_changes({{"iso", "100"}, {"ev", "0"}}, {{"iso", "200"}, {"ev", "0"}, {"wb", "auto"}}),
        "iso 200\nwb auto\n");
}

}  // namespace
