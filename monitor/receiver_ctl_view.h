// The values of camera and receiver as a terminal shows them. Reentrant.
#pragma once

#include <string>

#include "monitor/receiver_ctl_client.h"

// A line for each group of values, "-" for what is not known.
std::string ctl_table(const CtlState& state);

// "key value" for each value that differs, in the order of their keys.
std::string ctl_changes(const CtlState& before, const CtlState& after);
