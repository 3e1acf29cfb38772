#include "monitor/first_line.h"

#include <fstream>

std::string first_line_of(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
        line.pop_back();
    }
    return line;
}
