// Every errno that gadgetfs can give, on every call on its files; signals that interrupt calls;
// short transfers.

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include "tests/faults/fault_table.h"

namespace {

class GadgetfsFaults : public Isolated, public testing::WithParamInterface<int> {};

TEST_P(GadgetfsFaults, OnAnyCall) {
    constexpr FaultCall kCalls[] = {
        kOpenControl,  kReadEvents,  kAcknowledge,   kWriteControl, kPollControl,
        kOpenEndpoint, kWriteRecord, kIoctlEndpoint, kWriteIn,
    };
    const CallCounts counts = call_counts();
    std::vector<FaultPlan> plans;
    for (const FaultCall call : kCalls) {
        for (const std::uint32_t number : numbers_to_fail(counts[call])) {
            plans.push_back({call, number, FaultAction::kFail, GetParam()});
        }
    }
    for (const std::uint32_t number : {1U, 2U, 12U, 30U}) {
        plans.push_back({kReadOut, number, FaultAction::kFail, GetParam()});
    }
    expect_outcomes(std::string("gadgetfs_") + strerrorname_np(GetParam()), plans);
}

INSTANTIATE_TEST_SUITE_P(, GadgetfsFaults,
                         testing::Values(EIDRM, EL2HLT, EBADMSG, ENODEV, ESHUTDOWN, EINTR, EBUSY,
                                         EAGAIN, ENOMEM, EFAULT, ESRCH),
                         [](const auto& row) { return strerrorname_np(row.param); });

using BulkReads = Isolated;

TEST_F(BulkReads, AnyOneMayFail) {
    std::vector<FaultPlan> plans;
    for (const std::uint32_t number : numbers_to_fail(call_counts()[kReadOut])) {
        plans.push_back({kReadOut, number, FaultAction::kFail, ESHUTDOWN});
    }
    expect_outcomes("read_out", plans);
}

TEST_F(BulkReads, AnyOneMayBeShort) {
    std::vector<FaultPlan> plans;
    for (const std::uint32_t number : {1U, 2U, 3U, 5U, 8U, 13U, 21U, 34U}) {
        for (const int bytes : {0, 1, 7, 300}) {
            plans.push_back({kReadOut, number, FaultAction::kShort, bytes});
        }
    }
    expect_outcomes("read_out_short", plans);
}

using Interrupted = Isolated;

// A signal in the middle of it. Those on gadgetfs files stand above.
TEST_F(Interrupted, EachCallOnce) {
    constexpr FaultCall kCalls[] = {
        kReceiveFromApp, kReceiveFromBridge, kSendTo, kShmOpen,  kFtruncate, kFopen,
        kFread,          kWriteFile,         kFclose, kWriteLog, kPrint,     kSystem,
    };
    const CallCounts counts = call_counts();
    std::vector<FaultPlan> plans;
    for (const FaultCall call : kCalls) {
        for (std::uint32_t number = 1; number <= std::min(counts[call], 6U); ++number) {
            plans.push_back({call, number, FaultAction::kFail, EINTR});
        }
    }
    expect_outcomes("interrupted_once", plans);
}

// Memory and threads are not had by calls that a signal could interrupt.
TEST_F(Interrupted, EachCallOfAKind) {
    std::vector<FaultPlan> plans;
    for (std::uint32_t kind = 0; kind < kFaultCalls; ++kind) {
        const auto call = static_cast<FaultCall>(kind);
        if (call != kPthreadCreate && call != kMutexInit && call != kMalloc) {
            plans.push_back({call, kEachCall, FaultAction::kFail, EINTR});
        }
    }
    expect_outcomes("interrupted_each", plans);
}

using ShortTransfers = Isolated;

TEST_F(ShortTransfers, OfAnyOtherKind) {
    constexpr FaultPlan kTransfers[] = {
        {kReadEvents, 2, FaultAction::kShort, 0},
        {kReadEvents, 2, FaultAction::kShort, 11},
        {kReadEvents, 3, FaultAction::kShort, 1},
        {kReadEvents, 4, FaultAction::kShort, 8},
        {kWriteControl, 1, FaultAction::kShort, 10},
        {kWriteControl, 2, FaultAction::kShort, 3},
        {kWriteRecord, 1, FaultAction::kShort, 5},
        {kWriteRecord, 2, FaultAction::kShort, 5},
        {kWriteIn, 1, FaultAction::kShort, 1},
        {kWriteIn, 2, FaultAction::kShort, 0},
        {kReceiveFromApp, 1, FaultAction::kShort, 0},
        {kReceiveFromApp, 1, FaultAction::kShort, 1},
        {kReceiveFromApp, 2, FaultAction::kShort, 9},
        {kReceiveFromBridge, 1, FaultAction::kShort, 0},
        {kReceiveFromBridge, 1, FaultAction::kShort, 1},
        {kSendTo, 1, FaultAction::kShort, 1},
        {kSendTo, 2, FaultAction::kShort, 0},
        {kWriteLog, 1, FaultAction::kShort, 1},
    };
    expect_outcomes("short", {std::begin(kTransfers), std::end(kTransfers)});
}

}  // namespace
