#include "simulator/camera_script.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "simulator/camera_values.h"
#include "simulator/simulated_camera.h"

namespace {

constexpr char kFaultName[] = "gimbal_fault";
constexpr char kFaultCode[] = "133";  // 0x85
constexpr char kNoFaultCode[] = "128";

// What stands behind the blanks, up to the last that is not one.
std::string rest_of(std::istringstream& line) {
    std::string rest;
    std::getline(line >> std::ws, rest);
    rest.erase(rest.find_last_not_of(" \t\r") + 1);
    return rest;
}

struct VerbForm {
    const char* word;
    ScriptVerb verb;
    bool takes_name;
    bool takes_value;
};
// clang-format off
constexpr VerbForm kVerbs[] = {
    {"set",    ScriptVerb::kSet,    true,  true },
    {"expect", ScriptVerb::kExpect, true,  true },
    {"print",  ScriptVerb::kPrint,  true,  false},
    {"fault",  ScriptVerb::kSet,    false, true },
    {"clear",  ScriptVerb::kSet,    false, false},
};
// clang-format on

bool known_name(const std::string& name) {
    return std::ranges::count(camera_value_names(), name) != 0;
}

// nullptr, or what is wrong with it.
const char* read_line(const std::string& text, ScriptLine* result) {
    std::istringstream line(text);
    std::string word;
    if (!(line >> result->seconds >> word) || !(result->seconds >= 0)) {
        return "not SECONDS and what to do";
    }
    const auto* const form =
        std::ranges::find_if(kVerbs, [&](const VerbForm& each) { return word == each.word; });
    if (form == std::end(kVerbs)) {
        return "neither set, expect, print, fault nor clear";
    }
    result->verb = form->verb;
    if (form->takes_name) {
        line >> result->name;
        if (!known_name(result->name) &&
            !(form->verb == ScriptVerb::kPrint && result->name.empty())) {
            return "no such value";
        }
    } else {
        result->name = kFaultName;
    }
    const std::string rest = rest_of(line);
    if (!form->takes_value && !rest.empty()) {
        return "more than belongs there";
    }
    result->value = rest;
    if (!form->takes_name && rest.empty()) {
        result->value = form->takes_value ? kFaultCode : kNoFaultCode;
    }
    return nullptr;
}

}  // namespace

std::optional<std::vector<ScriptLine>> parse_camera_script(const std::string& text,
                                                           std::string* error) {
    std::vector<ScriptLine> lines;
    std::istringstream script(text);
    std::string line;
    for (int number = 1; std::getline(script, line); ++number) {
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') {
            continue;
        }
        ScriptLine result{0, ScriptVerb::kPrint, "", "", number};
        if (const char* const wrong = read_line(line, &result)) {
            *error = "line " + std::to_string(number) + ": " + wrong;
            return std::nullopt;
        }
        lines.push_back(std::move(result));
    }
    std::ranges::stable_sort(lines, {}, &ScriptLine::seconds);
    return lines;
}

bool perform_script_line(SimulatedCamera& camera, const ScriptLine& line) {
    switch (line.verb) {
        case ScriptVerb::kSet:
            if (!camera.set(line.name, line.value)) {
                fprintf(stderr, "line %d: %s cannot be set to '%s'\n", line.number,
                        line.name.c_str(), line.value.c_str());
                return false;
            }
            return true;
        case ScriptVerb::kExpect: {
            const std::string value = camera.get(line.name).value_or("");
            if (value != line.value) {
                fprintf(stderr, "line %d: %s is '%s', not '%s'\n", line.number, line.name.c_str(),
                        value.c_str(), line.value.c_str());
                return false;
            }
            return true;
        }
        case ScriptVerb::kPrint:
            for (const std::string& name :
                 line.name.empty() ? camera_value_names() : std::vector<std::string>{line.name}) {
                printf("%s = %s\n", name.c_str(), camera.get(name).value_or("").c_str());
            }
            fflush(stdout);
            return true;
    }
    return false;
}
