// Command line of scripted-main-application.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/app_script.h"

struct ScriptedAppOptions {
    std::uint16_t port = 5000;
    std::string script;  // empty: none
    double seconds = 0;  // after the first report; 0: until the script is done
    double wait = 60;    // for the first report
};

// nullopt after the usage text, with the status to exit with in *status.
std::optional<ScriptedAppOptions> parse_scripted_app_options(int argc, char* argv[], int* status);

// The steps of that file, none without one; nullopt after a message on standard error.
std::optional<std::vector<AppStep>> load_app_script(const std::string& path);
