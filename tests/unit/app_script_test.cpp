// The scripted main application's script: its lines, and the run through them.
#include "simulator/app_script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>

namespace {

using testing::ElementsAre;
using Outcome = AppScriptRun::Outcome;

std::vector<AppStep> parse(const std::string& script) {
    std::string error;
    const auto steps = parse_app_script(script, &error);
    EXPECT_TRUE(steps.has_value()) << error;
    return steps.value_or(std::vector<AppStep>());
}

std::string error_of(const std::string& script) {
    std::string error = "none";
    EXPECT_FALSE(parse_app_script(script, &error).has_value()) << script;
    return error;
}

TEST(AppScript, JsonObjectIsSentBehindTheCommandSign) {
    const auto steps = parse("1.5  {\"cmd\":\"shot\", \"x\": 1}  \r\n");
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_EQ(steps[0].seconds, 1.5);
    EXPECT_EQ(steps[0].line, 1);
    EXPECT_EQ(std::string(steps[0].datagram.begin(), steps[0].datagram.end()),
              "!{\"cmd\":\"shot\", \"x\": 1}");
    EXPECT_EQ(steps[0].text, "{\"cmd\":\"shot\", \"x\": 1}");
}

TEST(AppScript, HexIsSentAsItIs) {
    const auto steps = parse("0 hex 05 02\tfF 00");
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_THAT(steps[0].datagram, ElementsAre(0x05, 0x02, 0xFF, 0x00));
    EXPECT_EQ(steps[0].text, "05 02 fF 00");
}

TEST(AppScript, ExpectationHasAKeyAValueAndATime) {
    const auto steps = parse(
        "1 expect iso_set 400\n"
        "1 expect yaw -10..10 2.5\n"
        "2 expect camera_model \"DJI Osmo (X3)\" 7\n"
        "2 expect sd \"\"\n"
        "2 expect shutter 2.5\"\n");
    ASSERT_EQ(steps.size(), 5U);
    const auto row = [&](std::size_t i) {
        return std::tuple(steps[i].key, steps[i].value, steps[i].within);
    };
    EXPECT_EQ(row(0), std::tuple("iso_set", "400", 3.0));
    EXPECT_EQ(row(1), std::tuple("yaw", "-10..10", 2.5));
    EXPECT_EQ(row(2), std::tuple("camera_model", "DJI Osmo (X3)", 7.0));
    EXPECT_EQ(row(3), std::tuple("sd", "", 3.0));
    EXPECT_EQ(row(4), std::tuple("shutter", "2.5\"", 3.0));
    EXPECT_TRUE(steps[0].datagram.empty());
}

TEST(AppScript, CommentsAndEmptyLinesCountAsLinesOnly) {
    const auto steps = parse("# first\n\n  \t\n  # indented\n3 hex 00\n");
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_EQ(steps[0].line, 5);
    EXPECT_TRUE(parse("").empty());
}

TEST(AppScript, MistakesAreToldWithTheirLine) {
    // clang-format off
    const struct { const char* script; const char* error; } kCases[] = {
        {"shot",                          "line 1: does not begin with its second"},
        {"{\"cmd\":\"shot\"}",            "line 1: does not begin with its second"},
        {"\n-1 hex 00",                   "line 2: does not begin with its second"},
        {"nan hex 00",                    "line 1: does not begin with its second"},
        {"1s hex 00",                     "line 1: does not begin with its second"},
        {"1",                             "line 1: neither a JSON object, hex nor expect"},
        {"1 send 00",                     "line 1: neither a JSON object, hex nor expect"},
        {"1 {\"cmd\":\"shot\"",           "line 1: the JSON object does not end on its line"},
        {"1 hex",                         "line 1: hex without bytes"},
        {"1 hex 5",                       "line 1: not bytes of two hex digits"},
        {"1 hex 0502",                    "line 1: not bytes of two hex digits"},
        {"1 hex 0x",                      "line 1: not bytes of two hex digits"},
        {"1 hex +1",                      "line 1: not bytes of two hex digits"},
        {"1 expect",                      "line 1: expect without KEY and VALUE"},
        {"1 expect iso",                  "line 1: expect without KEY and VALUE"},
        {"1 expect izo 400",              "line 1: no report tells of that key"},
        {"1 expect iso 400 soon",         "line 1: WITHIN is no number of seconds"},
        {"1 expect iso 400 0",            "line 1: WITHIN is no number of seconds"},
        {"1 expect iso 400 2 3",          "line 1: more than KEY, VALUE and WITHIN"},
        {"2 hex 00\n1.9 hex 00",          "line 2: earlier than the line before it"},
    };
    // clang-format on
    for (const auto& row : kCases) {
        EXPECT_EQ(error_of(row.script), row.error) << row.script;
    }
}

TEST(AppScript, ValueIsATextOrARangeOfNumbers) {
    EXPECT_TRUE(meets_expectation("400", "400"));
    EXPECT_FALSE(meets_expectation("400", "400.0"));
    EXPECT_TRUE(meets_expectation("-10..10", "-10"));
    EXPECT_TRUE(meets_expectation("-10..10", "10"));
    EXPECT_FALSE(meets_expectation("-10..10", "11"));
    EXPECT_FALSE(meets_expectation("-10..10", "-11"));
    EXPECT_FALSE(meets_expectation("-10..10", ""));
    EXPECT_FALSE(meets_expectation("-10..10", "-10..10"));
    EXPECT_TRUE(meets_expectation("a..b", "a..b"));
    EXPECT_FALSE(meets_expectation("1..", "1"));
    EXPECT_TRUE(meets_expectation("", ""));
}

class AppScriptRunTest : public testing::Test {
  protected:
    void load(const std::string& script) { run_.emplace(parse(script)); }

    // The outcome, and the line that it is of; 0 for none.
    std::pair<Outcome, int> next(double now) {
        const auto value = [this](const std::string& key) {
            const auto found = told_.find(key);
            return found == told_.end() ? std::nullopt : std::optional(found->second);
        };
        const AppScriptRun::Event event = run_->next(now, value);
        waited_ = event.waited;
        return {event.outcome, event.step == nullptr ? 0 : event.step->line};
    }

    std::optional<AppScriptRun> run_;
    std::map<std::string, std::string> told_;
    double waited_ = 0;
};

using Event = std::pair<Outcome, int>;

TEST_F(AppScriptRunTest, SendsEachLineWhenItsTimeHasCome) {
    load("1 hex 01\n1 hex 02\n2 hex 03\n");
    EXPECT_EQ(next(0.99), Event(Outcome::kNothingDue, 0));
    EXPECT_EQ(next(1.0), Event(Outcome::kSend, 1));
    EXPECT_EQ(next(1.0), Event(Outcome::kSend, 2));
    EXPECT_EQ(next(1.0), Event(Outcome::kNothingDue, 0));
    EXPECT_FALSE(run_->done());
    EXPECT_EQ(next(9.0), Event(Outcome::kSend, 3));
    EXPECT_TRUE(run_->done());
    EXPECT_EQ(next(9.0), Event(Outcome::kDone, 0));
}

TEST_F(AppScriptRunTest, ExpectationIsMetByWhatIsToldAlready) {
    load("1 expect iso 400\n");
    told_["iso"] = "400";
    EXPECT_EQ(next(0.5), Event(Outcome::kNothingDue, 0));
    EXPECT_EQ(next(1.0), Event(Outcome::kMet, 1));
    EXPECT_EQ(waited_, 0.0);
    EXPECT_EQ(run_->met(), 1U);
    EXPECT_TRUE(run_->done());
}

TEST_F(AppScriptRunTest, ExpectationIsWaitedForAndHoldsUpWhatFollows) {
    load("1 expect iso 400 2\n1 hex 01\n1 expect iso 200 2\n");
    EXPECT_EQ(next(1.0), Event(Outcome::kNothingDue, 0));  // untold
    told_["iso"] = "200";
    EXPECT_EQ(next(2.5), Event(Outcome::kNothingDue, 0));
    told_["iso"] = "400";
    EXPECT_EQ(next(2.75), Event(Outcome::kMet, 1));
    EXPECT_EQ(waited_, 1.75);
    EXPECT_EQ(next(2.75), Event(Outcome::kSend, 2));
    // The next one has its own two seconds.
    EXPECT_EQ(next(3.0), Event(Outcome::kNothingDue, 0));
    told_["iso"] = "200";
    EXPECT_EQ(next(4.5), Event(Outcome::kMet, 3));
    EXPECT_EQ(waited_, 1.5);
    EXPECT_EQ(run_->met(), 2U);
}

TEST_F(AppScriptRunTest, MissedExpectationEndsTheScript) {
    load("1 expect iso 400 2\n1 hex 01\n");
    told_["iso"] = "100";
    EXPECT_EQ(next(1.0), Event(Outcome::kNothingDue, 0));
    EXPECT_EQ(next(2.99), Event(Outcome::kNothingDue, 0));
    EXPECT_EQ(next(3.0), Event(Outcome::kMissed, 1));
    EXPECT_EQ(next(3.0), Event(Outcome::kDone, 0));
    EXPECT_EQ(run_->met(), 0U);
}

TEST(AppScript, DemonstrationIsAScriptOfSomeFifteenSeconds) {
    std::ifstream file(SOURCE_DIRECTORY "/simulator/example-app.script");
    const auto steps = parse({std::istreambuf_iterator<char>(file), {}});
    ASSERT_FALSE(steps.empty());
    EXPECT_GT(steps.back().seconds, 10);
    EXPECT_LT(steps.back().seconds, 16);
}

}  // namespace
