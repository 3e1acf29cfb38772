// The address of the page, for the person who opens it.
#pragma once

#include <string>

// An address that leads to what listens at this one: itself, or where that is all of this machine's
// the first that others can reach, if there is one. Reentrant.
std::string address_to_open(const std::string& listened_at);
