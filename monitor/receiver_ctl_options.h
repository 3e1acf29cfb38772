// The command line of receiver-ctl. Reentrant.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct CtlOptions {
    std::string monitor = "http://127.0.0.1:8080";
    std::string token;
    bool json = false;
    bool yes = false;
    bool wait = false;
    double wait_seconds = 5;
    std::string interface;
    std::string plugin;
    bool complete = false;
    std::vector<std::string> words;
};

// nullopt where there is nothing to do, after a message; *status is then the exit status.
std::optional<CtlOptions> parse_ctl_options(int argc, char* argv[], int* status);
