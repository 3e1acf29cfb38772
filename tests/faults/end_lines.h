// What the receiver says when it ends.
#pragma once

#include <string>

// The line that goes with the exit status, or that of a sanitizer, without the name of the program
// before an assertion's; "without a word" where there is none.
std::string end_line(const std::string& output, int status);
