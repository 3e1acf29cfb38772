// Texts of others on a terminal. Reentrant.
#pragma once

#include <string>

// With a ? for each control character: a terminal heeds those that a camera's text may hold.
std::string ctl_printable(std::string text);
