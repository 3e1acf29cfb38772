// Runs of the receiver with one fault each, and what is right to become of them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/faults/fault_record.h"

// Skipped, with the reason, where there can be no namespaces.
class Isolated : public testing::Test {
  protected:
    void SetUp() override;
};

// "read_out 3 EIDRM"; "usleep each EINTR"; "recvfrom_app 1 short 0".
std::string plan_text(const FaultPlan& plan);

// NAME.txt in the folder that FAULT_TABLE names; without one, nowhere.
std::string fault_table_path(const std::string& name);

// How often a receiver without a fault makes each call from its start until it is at work, at
// least: taken from the table "calls", else from some runs.
using CallCounts = std::vector<unsigned>;
CallCounts call_counts();
CallCounts count_calls();

// The numbers of the calls to be failed, one at a time: all of them with FAULT_CALLS=all, else the
// first sixty and, of more, one in so many.
std::vector<std::uint32_t> numbers_to_fail(unsigned count);

// Runs them all, each receiver in namespaces of its own, and expects of each the outcome that the
// table of expectations has for it. The table of that name gets a
// line for each.
void expect_outcomes(const std::string& name, const std::vector<FaultPlan>& plans);
