#include "monitor/receiver_ctl_commands.h"

#include <cJSON.h>
#include <strings.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <memory>

namespace {

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(separator, at), text.size());
        if (end > at) {
            parts.emplace_back(text.substr(at, end - at));
        }
        at = end + 1;
    }
    return parts;
}

bool same_word(const std::string& one, const std::string& other) {
    return strcasecmp(one.c_str(), other.c_str()) == 0;
}

// False for what strtod takes besides: spaces, hexadecimal, nan, inf.
bool read_number(const std::string& text, double* number) {
    if (text.empty() || text.find_first_not_of("+-.0123456789") != std::string::npos) {
        return false;
    }
    char* end = nullptr;
    *number = strtod(text.c_str(), &end);
    return *end == '\0';
}

// "0.3" is +0.3 of the table, and 2.80 its 2.8.
bool same_number(const std::string& one, const std::string& other) {
    double first = 0;
    double second = 0;
    return read_number(one, &first) && read_number(other, &second) &&
           std::abs(first - second) < 1e-9;
}

// A quotation mark would have to be kept from the shell.
std::string with_seconds_mark(const std::string& text) {
    double number = 0;
    return text.ends_with('s') && read_number(text.substr(0, text.size() - 1), &number)
               ? text.substr(0, text.size() - 1) + '"'
               : text;
}

// Whole ones as telemetry writes them: 5600 for 05600.
std::optional<std::string> sent_number(const CtlNumber& number, const std::string& typed) {
    double value = 0;
    if (!read_number(typed, &value) || value < number.least || value > number.most) {
        return std::nullopt;
    }
    if (number.step == 0) {
        return typed.substr(typed.starts_with('+') ? 1 : 0);
    }
    const int whole = static_cast<int>(value);
    return typed.find('.') == std::string::npos && whole % number.step == 0
               ? std::optional(std::to_string(whole))
               : std::nullopt;
}

std::optional<std::string> sent_for(std::string_view argument, const std::string& typed) {
    if (const CtlNumber* number = ctl_number(argument)) {
        return sent_number(*number, typed);
    }
    for (const CtlChoice& choice : ctl_choices(argument)) {
        if (same_word(typed, choice.typed) || same_word(typed, choice.sent) ||
            same_number(typed, choice.sent) || same_word(with_seconds_mark(typed), choice.sent)) {
            return choice.sent;
        }
    }
    return std::nullopt;
}

std::size_t argument_count(const CtlCommand& command) {
    return static_cast<std::size_t>(
        std::ranges::count_if(command.arguments, [](const char* each) { return each != nullptr; }));
}

bool begins_with(const std::vector<std::string>& words, const std::vector<std::string>& first) {
    return words.size() >= first.size() &&
           std::equal(first.begin(), first.end(), words.begin(), same_word);
}

// nullopt where an argument is missing, too much, or not what it may be.
std::optional<std::vector<std::string>> arguments_of(const CtlCommand& command,
                                                     const std::vector<std::string>& words) {
    const std::size_t first = split(command.words, ' ').size();
    if (words.size() != first + argument_count(command)) {
        return std::nullopt;
    }
    std::vector<std::string> arguments;
    for (std::size_t i = first; i < words.size(); ++i) {
        const auto sent = sent_for(command.arguments[i - first], words[i]);
        if (!sent) {
            return std::nullopt;
        }
        arguments.push_back(*sent);
    }
    return arguments;
}

std::string filled_in(std::string text, const std::vector<std::string>& arguments) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string mark = "$" + std::to_string(i + 1);
        if (const std::size_t at = text.find(mark); at != std::string::npos) {
            text.replace(at, mark.size(), arguments[i]);
        }
    }
    return text;
}

std::string json_of(const CtlCommand& command, const std::vector<std::string>& arguments) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object(cJSON_CreateObject(),
                                                                 &cJSON_Delete);
    for (const std::string& member : split(command.members, ' ')) {
        const std::size_t equals = member.find('=');
        cJSON_AddStringToObject(object.get(), member.substr(0, equals).c_str(),
                                filled_in(member.substr(equals + 1), arguments).c_str());
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(object.get()),
                                                            &cJSON_free);
    return text.get();
}

std::string shown_argument(std::string_view argument) {
    std::string shown;
    for (const CtlChoice& choice : ctl_choices(argument)) {
        shown += (shown.empty() ? "" : "|") + choice.typed;
    }
    return shown.empty() ? std::string(argument) : shown;
}

std::string range_text(const CtlNumber& number) {
    return std::string("\n    ") + number.name + ": " + ctl_range(number);
}

}  // namespace

std::vector<CtlChoice> ctl_choices(std::string_view argument) {
    std::vector<CtlChoice> choices;
    if (ctl_number(argument) != nullptr) {
        return choices;
    }
    for (const std::string& each : split(argument, '|')) {
        const std::size_t equals = each.find('=');
        choices.push_back(
            {each.substr(0, equals), equals == each.npos ? each : each.substr(equals + 1)});
    }
    return choices;
}

const CtlNumber* ctl_number(std::string_view argument) {
    const auto numbers = ctl_numbers();
    const auto found = std::ranges::find_if(
        numbers, [&](const CtlNumber& number) { return argument == number.name; });
    return found == numbers.end() ? nullptr : &*found;
}

std::optional<CtlRequest> parse_ctl_command(const std::vector<std::string>& words,
                                            std::string* why) {
    std::string meant;
    for (const CtlCommand& command : ctl_commands()) {
        const auto own = split(command.words, ' ');
        if (words.empty() || !same_word(words[0], own[0])) {
            continue;
        }
        if (begins_with(words, own)) {
            if (const auto arguments = arguments_of(command, words)) {
                return CtlRequest{&command, json_of(command, *arguments),
                                  filled_in(command.shows, *arguments)};
            }
        }
        meant += "\n  " + ctl_usage(command);
        for (const char* argument : command.arguments) {
            if (const CtlNumber* number = argument == nullptr ? nullptr : ctl_number(argument)) {
                meant += range_text(*number);
            }
        }
    }
    *why = meant.empty() ? "there is no such command" : "that would be" + meant;
    return std::nullopt;
}

std::string ctl_told(const std::string& what, const CtlValues& value) {
    const std::size_t bits = what.find('&');
    std::string told = value(what.substr(0, bits));
    if (bits == std::string::npos || told.empty()) {
        return told;
    }
    const auto mask = static_cast<unsigned>(atoi(what.c_str() + bits + 1));
    const auto number = static_cast<unsigned>(atoi(told.c_str()));
    return std::to_string((number & mask) >> std::countr_zero(mask));
}

bool ctl_shown(const std::string& shows, const CtlValues& value) {
    return std::ranges::all_of(split(shows, ','), [&](const std::string& wanted) {
        const std::size_t equals = wanted.find('=');
        return same_word(ctl_told(wanted.substr(0, equals), value), wanted.substr(equals + 1));
    });
}

std::vector<std::string> ctl_completions(const std::vector<std::string>& words) {
    std::vector<std::string> next;
    const auto add = [&](const std::string& word) {
        if (std::ranges::find(next, word) == next.end()) {
            next.push_back(word);
        }
    };
    for (const CtlCommand& command : ctl_commands()) {
        const auto own = split(command.words, ' ');
        if (words.size() < own.size()) {
            if (begins_with(own, words)) {
                add(own[words.size()]);
            }
        } else if (begins_with(words, own)) {
            const std::size_t at = words.size() - own.size();
            if (at < argument_count(command)) {
                for (const CtlChoice& choice : ctl_choices(command.arguments[at])) {
                    add(choice.typed);
                }
            }
        }
    }
    return next;
}

std::string ctl_range(const CtlNumber& number) {
    char text[80];
    snprintf(text, sizeof text, "%s from %g to %g",
             number.step == 0 ? "a number" : "a whole number", number.least, number.most);
    return text + (number.step > 1 ? " in steps of " + std::to_string(number.step) : "");
}

std::string ctl_usage(const CtlCommand& command) {
    std::string usage = command.words;
    for (const char* argument : command.arguments) {
        if (argument != nullptr) {
            usage += " " + shown_argument(argument);
        }
    }
    return usage + (command.is_final ? " --yes" : "");
}
