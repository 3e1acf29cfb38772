#include "tests/soak/process_figures.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace {

// The number behind "KEY:" at a line's beginning.
long number_of(const std::string& path, const std::string& key) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(key + ":")) {
            return std::stol(line.substr(key.size() + 1));
        }
    }
    throw std::runtime_error(path + " has no " + key);
}

}  // namespace

ProcessFigures process_figures(pid_t pid) {
    const std::string place = "/proc/" + std::to_string(pid);
    const std::string status = place + "/status";
    ProcessFigures figures;
    figures.resident = number_of(status, "VmRSS");
    figures.anonymous = number_of(status, "RssAnon");
    figures.proportional = number_of(place + "/smaps_rollup", "Pss");
    figures.data = number_of(status, "VmData");
    figures.threads = number_of(status, "Threads");
    figures.descriptors = std::distance(std::filesystem::directory_iterator(place + "/fd"), {});
    return figures;
}
