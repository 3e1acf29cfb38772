// What is right to become of the receiver, fault by fault.
#pragma once

#include <string>

#include "tests/faults/fault_record.h"

// Those that are right, with " | " between them.
std::string expected_outcomes(const FaultPlan& plan);
bool is_expected(const FaultPlan& plan, const std::string& outcome);
