// Each call from the start until the receiver is at work fails once, one at a time.

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <fstream>

#include "tests/faults/fault_table.h"

namespace {

using Faults = Isolated;

// Runs first: the others know from it how many calls there are.
TEST_F(Faults, WithoutOneTheReceiverIsAtWork) {
    const CallCounts counts = count_calls();
    std::ofstream file(fault_table_path("calls"));
    for (std::size_t call = 0; call < kFaultCalls; ++call) {
        EXPECT_GT(counts[call], 0U) << kFaultCallNames[call];
        file << kFaultCallNames[call] << " " << counts[call] << "\n";
    }
}

struct CallError {
    FaultCall call;
    int error;  // the likeliest of the call's own
};

void PrintTo(const CallError& row, std::ostream* out) {
    *out << strerrorname_np(row.error);
}

class CallFaults : public Isolated, public testing::WithParamInterface<CallError> {};

TEST_P(CallFaults, OneAtATime) {
    const auto [call, error] = GetParam();
#ifdef __SANITIZE_ADDRESS__
    if (call == kMalloc) {
        GTEST_SKIP() << "the sanitizer's own runtime needs memory for each thread";
    }
#endif
    std::vector<FaultPlan> plans;
    for (const std::uint32_t number : numbers_to_fail(call_counts()[call])) {
        plans.push_back({call, number, FaultAction::kFail, error});
    }
    expect_outcomes(kFaultCallNames[call], plans);
}

// clang-format off
constexpr CallError kCallErrors[] = {
    {kShmOpen, EMFILE},        {kFtruncate, ENOSPC},   {kFstat, EIO},
    {kMmap, ENOMEM},           {kMadvise, EINVAL},     {kPthreadCreate, EAGAIN},
    {kMutexInit, ENOMEM},      {kMalloc, ENOMEM},      {kFopen, EMFILE},
    {kFread, EIO},             {kWriteFile, ENOSPC},   {kFclose, ENOSPC},
    {kPrint, EIO},             {kWriteLog, EIO},       {kOpenDirectory, ENOENT},
    {kReadDirectory, EBADF},   {kSocket, EMFILE},      {kBind, EADDRINUSE},
    {kSocketOption, ENOMEM},   {kFcntl, EBADF},        {kSystem, EAGAIN},
    {kReadLine, EIO},          {kClose, EIO},
    {kUnlink, EROFS},          {kSleep, EINTR},        {kReceiveFromApp, ENOMEM},
    {kReceiveFromBridge, ENOMEM}, {kSendTo, ENETUNREACH},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(, CallFaults, testing::ValuesIn(kCallErrors),
                         [](const auto& row) { return kFaultCallNames[row.param.call]; });

}  // namespace
