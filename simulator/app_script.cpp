#include "simulator/app_script.h"

#include <cstdlib>
#include <iomanip>
#include <sstream>

#include "client/telemetry_view.h"

namespace {

constexpr double kUsualPatience = 3.0;  // a report a second, and a camera that takes its time

using Reason = const char*;  // nullptr: nothing is wrong

bool read_number(const std::string& text, double* number) {
    char* end = nullptr;
    *number = strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0';
}

Reason read_command(const std::string& text, AppStep* step) {
    if (text.back() != '}') {
        return "the JSON object does not end on its line";
    }
    step->text = text;
    step->datagram.assign(1, '!');
    step->datagram.insert(step->datagram.end(), text.begin(), text.end());
    return nullptr;
}

Reason read_hex(std::istringstream& words, AppStep* step) {
    for (std::string word; words >> word;) {
        if (word.size() != 2 || word.find_first_not_of("0123456789abcdefABCDEF") != word.npos) {
            return "not bytes of two hex digits";
        }
        step->text += (step->text.empty() ? "" : " ") + word;
        step->datagram.push_back(static_cast<std::uint8_t>(std::stoi(word, nullptr, 16)));
    }
    // An empty datagram ends the receiver.
    return step->datagram.empty() ? "hex without bytes" : nullptr;
}

Reason read_expectation(std::istringstream& words, AppStep* step) {
    if (!(words >> step->key >> std::quoted(step->value))) {
        return "expect without KEY and VALUE";
    }
    if (!TelemetryView::knows(step->key)) {
        return "no report tells of that key";
    }
    std::string within;
    if (words >> within && !(read_number(within, &step->within) && step->within > 0)) {
        return "WITHIN is no number of seconds";
    }
    return words >> within ? "more than KEY, VALUE and WITHIN" : nullptr;
}

Reason read_step(const std::string& line, AppStep* step) {
    std::istringstream words(line);
    std::string word;
    if (!(words >> word) || !read_number(word, &step->seconds) || !(step->seconds >= 0)) {
        return "does not begin with its second";
    }
    words >> std::ws;
    if (words.peek() == '{') {
        std::getline(words, word, '\0');
        return read_command(word, step);
    }
    words >> word;
    if (word == "hex") {
        return read_hex(words, step);
    }
    return word == "expect" ? read_expectation(words, step)
                            : "neither a JSON object, hex nor expect";
}

}  // namespace

std::optional<std::vector<AppStep>> parse_app_script(const std::string& script,
                                                     std::string* error) {
    std::vector<AppStep> steps;
    std::istringstream lines(script);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (line.empty() || line[line.find_first_not_of(" \t")] == '#') {
            continue;
        }
        AppStep step{0, number, {}, "", "", "", kUsualPatience};
        Reason wrong = read_step(line, &step);
        if (wrong == nullptr && !steps.empty() && step.seconds < steps.back().seconds) {
            wrong = "earlier than the line before it";
        }
        if (wrong != nullptr) {
            *error = "line " + std::to_string(number) + ": " + wrong;
            return std::nullopt;
        }
        steps.push_back(std::move(step));
    }
    return steps;
}

bool meets_expectation(const std::string& wanted, const std::string& told) {
    const std::size_t dots = wanted.find("..");
    double least = 0;
    double most = 0;
    double number = 0;
    if (dots == std::string::npos || !read_number(wanted.substr(0, dots), &least) ||
        !read_number(wanted.substr(dots + 2), &most)) {
        return wanted == told;
    }
    return read_number(told, &number) && number >= least && number <= most;
}

AppScriptRun::Event AppScriptRun::next(double now, const Value& value) {
    if (done()) {
        return {Outcome::kDone, nullptr, 0};
    }
    const AppStep& step = steps_[at_];
    if (now < step.seconds) {
        return {Outcome::kNothingDue, nullptr, 0};
    }
    if (!step.datagram.empty()) {
        ++at_;
        return {Outcome::kSend, &step, 0};
    }
    begun_ = begun_.value_or(now);
    const double waited = now - *begun_;
    if (const auto told = value(step.key); told && meets_expectation(step.value, *told)) {
        ++at_;
        ++met_;
        begun_.reset();
        return {Outcome::kMet, &step, waited};
    }
    if (waited >= step.within) {
        at_ = steps_.size();
        return {Outcome::kMissed, &step, waited};
    }
    return {Outcome::kNothingDue, nullptr, 0};
}
