#include "cpu_time.h"

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

std::optional<double> cpu_seconds(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t name_end = line.rfind(')');
    if (name_end == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(line.substr(name_end + 1));
    std::string skipped;
    for (int i = 0; i < 11; ++i) {  // state ... cmajflt
        fields >> skipped;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}
