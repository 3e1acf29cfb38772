#include "tests/faults/fault_table.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/faults/expected_outcomes.h"
#include "tests/faults/isolated_jobs.h"
#include "tests/faults/live_receiver.h"

namespace {

constexpr std::uint32_t kAllOf = 60;
constexpr std::size_t kCountingRuns = 3;  // one that is slow asks more than once

std::string variable(const char* name) {
    const char* const value = getenv(name);
    return value == nullptr ? "" : value;
}

// The outcome in the first line; behind it what the receiver printed.
std::string run_fault(const FaultPlan& plan) {
    LiveReceiver receiver(plan);
    receiver.start();
    const std::string outcome = receiver.outcome();
    return outcome + "\n" + receiver.output();
}

void note_outcomes(const std::string& name, const std::vector<FaultPlan>& plans,
                   const std::vector<std::string>& outcomes) {
    std::ofstream table(fault_table_path(name));
    for (std::size_t i = 0; i < plans.size(); ++i) {
        table << plan_text(plans[i]) << ": " << outcomes[i] << "\n";
    }
}

}  // namespace

std::string fault_table_path(const std::string& name) {
    const std::string folder = variable("FAULT_TABLE");
    return folder.empty() ? "/dev/null" : folder + "/" + name + ".txt";
}

// Many receivers at once cannot take turns: where a user may make no namespaces, these count as
// skipped, with the kernel's reason.
void Isolated::SetUp() {
    if (const std::string refusal = isolation_refusal(); !refusal.empty()) {
        GTEST_SKIP() << refusal;
    }
}

std::string plan_text(const FaultPlan& plan) {
    std::string text = kFaultCallNames[plan.call];
    text += plan.number == kEachCall ? " each" : " " + std::to_string(plan.number);
    return plan.action == FaultAction::kShort ? text + " short " + std::to_string(plan.argument)
                                              : text + " " + strerrorname_np(plan.argument);
}

CallCounts count_calls() {
    const std::vector<std::string> results = run_isolated(std::vector<Job>(kCountingRuns, [] {
        LiveReceiver receiver;
        receiver.start();
        const std::string outcome = receiver.outcome();
        if (outcome != "carries on") {
            return outcome + "\n" + receiver.output();
        }
        std::ostringstream counts;
        for (const auto& count : receiver.record().calls) {
            counts << count.load() << "\n";
        }
        return counts.str();
    }));
    CallCounts least;
    for (const std::string& result : results) {
        std::istringstream numbers(result);
        CallCounts counts;
        for (unsigned count = 0; numbers >> count;) {
            counts.push_back(count);
        }
        if (counts.size() != kFaultCalls) {
            throw std::runtime_error("without a fault: " + result);
        }
        for (std::size_t call = 0; call < counts.size() && !least.empty(); ++call) {
            counts[call] = std::min(counts[call], least[call]);
        }
        least = counts;
    }
    return least;
}

CallCounts call_counts() {
    std::ifstream file(fault_table_path("calls"));
    CallCounts counts;
    std::string name;
    for (unsigned count = 0; file >> name >> count;) {
        counts.push_back(count);
    }
    return counts.size() == kFaultCalls ? counts : count_calls();
}

std::vector<std::uint32_t> numbers_to_fail(unsigned count) {
    const bool all = variable("FAULT_CALLS") == "all";
    std::vector<std::uint32_t> numbers;
    for (std::uint32_t number = 1; number <= count;
         number += all || number < kAllOf ? 1 : std::max(1U, number / 2)) {
        numbers.push_back(number);
    }
    return numbers;
}

void expect_outcomes(const std::string& name, const std::vector<FaultPlan>& plans) {
    std::vector<Job> jobs;
    jobs.reserve(plans.size());
    for (const FaultPlan& plan : plans) {
        jobs.emplace_back([plan] { return run_fault(plan); });
    }
    const std::vector<std::string> results = run_isolated(jobs);
    std::vector<std::string> outcomes;
    std::size_t reached = 0;
    for (std::size_t i = 0; i < plans.size(); ++i) {
        outcomes.push_back(results[i].substr(0, results[i].find('\n')));
        if (outcomes[i] == "not reached") {
            continue;
        }
        ++reached;
        EXPECT_TRUE(is_expected(plans[i], outcomes[i]))
            << plan_text(plans[i]) << ": expected " << expected_outcomes(plans[i]) << "\n"
            << results[i];
    }
    // The last calls of a run may fall behind its end when threads take turns otherwise.
    EXPECT_GE(reached * 2, plans.size()) << "faults that came";
    note_outcomes(name, plans, outcomes);
}
