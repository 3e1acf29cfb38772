// docs/protocol.md as the tests read it: the tables and blocks that its comments name.
#pragma once

#include <string>
#include <vector>

// The whole page.
std::string page_text();

// The cells of each row below the heading of the table that follows the comment or heading line.
std::vector<std::vector<std::string>> page_table(const std::string& line);

// The fenced block that follows the comment.
std::string page_block(const std::string& line);

// What stands between backticks.
std::string unquoted(const std::string& cell);
