// The commands as people type them: one table for what is sent, the help, the completion, and what
// --wait looks for. Reentrant.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct CtlCommand {
    const char* words;  // as typed
    const char*
        arguments[3];     // each a number's name, or words to choose from: "af|mf", "on=1|off=0"
    const char* members;  // of the JSON command, with $1.. for the arguments
    const char* shows;    // what telemetry says once it is done; empty: it does not tell
    const char* help;
    bool is_final = false;  // takes something away that does not come back: asks for --yes
};
std::span<const CtlCommand> ctl_commands();

// A number that an argument may be, by its name in the table.
struct CtlNumber {
    const char* name;
    double least, most;
    int step;  // whole numbers of that many; 0: any number
};
std::span<const CtlNumber> ctl_numbers();

struct CtlChoice {
    std::string typed;
    std::string sent;
};
// Empty where the argument is a number's name.
std::vector<CtlChoice> ctl_choices(std::string_view argument);
const CtlNumber* ctl_number(std::string_view argument);

struct CtlRequest {
    const CtlCommand* command = nullptr;
    std::string json;
    std::string shows;  // with the arguments in their places
};
// nullopt where the words are no command; *why then says what would be one.
std::optional<CtlRequest> parse_ctl_command(const std::vector<std::string>& words,
                                            std::string* why);

// A value by its key; empty where it is not known.
using CtlValues = std::function<std::string(const std::string& key)>;
// What telemetry tells of "iso_set", or of "record_state&192": these bits, as a number.
std::string ctl_told(const std::string& what, const CtlValues& value);
// Whether it tells all that `shows` asks for: "wb=custom,wb_temp=5600". Letter case does not count.
bool ctl_shown(const std::string& shows, const CtlValues& value);

// What may follow these words, for the completion: words as typed, and none for a number.
std::vector<std::string> ctl_completions(const std::vector<std::string>& words);

// "a whole number from 0 to 100".
std::string ctl_range(const CtlNumber& number);

// "wb custom KELVIN", as the help has it.
std::string ctl_usage(const CtlCommand& command);
