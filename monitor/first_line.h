// Secrets are in files: a command line can be read by every user of the machine. Reentrant.
#pragma once

#include <string>

// Without what an editor leaves at its end. Empty where there is none.
std::string first_line_of(const std::string& path);
