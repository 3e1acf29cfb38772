// docs/protocol.md as the tests read it: the tables and blocks that its comments name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// The cells of each row below the heading of the table that follows the comment or heading line.
std::vector<std::vector<std::string>> page_table(const std::string& line);

// The fenced block that follows the comment.
std::string page_block(const std::string& line);

// "01 A0 ..." as bytes.
Bytes bytes_of_hex(const std::string& hex);

// What stands between backticks.
std::string unquoted(const std::string& cell);
