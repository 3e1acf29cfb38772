#include "tests/protocol_page.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace {

std::ifstream open_behind(const std::string& line) {
    std::ifstream page(PROTOCOL_PAGE);
    for (std::string each; std::getline(page, each);) {
        if (each == line) {
            return page;
        }
    }
    throw std::runtime_error("docs/protocol.md has no line \"" + line + "\"");
}

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(' ');
    const std::size_t end = text.find_last_not_of(' ');
    return begin == std::string::npos ? "" : text.substr(begin, end - begin + 1);
}

}  // namespace

std::string page_text() {
    std::ifstream page(PROTOCOL_PAGE);
    return {std::istreambuf_iterator<char>(page), {}};
}

std::vector<std::vector<std::string>> page_table(const std::string& line) {
    std::ifstream page = open_behind(line);
    std::vector<std::vector<std::string>> rows;
    bool in_table = false;
    for (std::string each; std::getline(page, each);) {
        if (!each.starts_with("|")) {
            if (in_table) {
                break;
            }
            continue;
        }
        in_table = true;
        std::vector<std::string> cells;
        std::istringstream row(each.substr(1));
        for (std::string cell; std::getline(row, cell, '|');) {
            cells.push_back(trimmed(cell));
        }
        rows.push_back(cells);
    }
    if (rows.size() < 3) {
        throw std::runtime_error("no table behind \"" + line + "\"");
    }
    rows.erase(rows.begin(), rows.begin() + 2);  // the heading and its rule
    return rows;
}

std::string page_block(const std::string& line) {
    std::ifstream page = open_behind(line);
    std::string fence;
    std::getline(page, fence);
    std::string block;
    for (std::string each; std::getline(page, each) && each != "```";) {
        block += each + "\n";
    }
    if (!fence.starts_with("```") || block.empty()) {
        throw std::runtime_error("no block behind \"" + line + "\"");
    }
    return block;
}

std::string unquoted(const std::string& cell) {
    const std::size_t begin = cell.find('`');
    const std::size_t end = cell.rfind('`');
    return begin == end ? "" : cell.substr(begin + 1, end - begin - 1);
}
