// The injector's core: which calls count, and which of them fails. Thread-safe; cancellable where
// the call itself is.
//
// A call made inside another one that is counted belongs to the simulator's library behind it, or
// to libc, and goes straight on.
#pragma once

#include <errno.h>

#include "simulator/real_function.h"
#include "tests/faults/fault_record.h"

// The shared record; null while no test has given one: then nothing is counted.
FaultRecord* fault_record();

// How deep this thread is in counted calls.
extern thread_local int fault_depth;

class InsideCall {
  public:
    InsideCall() { ++fault_depth; }
    ~InsideCall() { --fault_depth; }
    InsideCall(const InsideCall&) = delete;
    InsideCall& operator=(const InsideCall&) = delete;
};

// Counts a call; what the plan has for it. Ends the process where that is to kill it before.
FaultAction next_fault(FaultCall call);
// The plan's error number, or count of bytes.
int fault_argument();
[[noreturn]] void kill_process();

// Makes the call, unless it is to fail: then the result is `failed`, with errno. A call that knows
// no short transfers is made whole.
template <typename Result, typename Real>
Result injected_call(FaultCall call, Result failed, Real real) {
    if (fault_depth > 0 || fault_record() == nullptr) {
        return real();
    }
    const FaultAction action = next_fault(call);
    if (action == FaultAction::kFail) {
        errno = fault_argument();
        return failed;
    }
    const InsideCall inside;
    const Result result = real();
    if (action == FaultAction::kKillAfter) {
        kill_process();
    }
    return result;
}

// The same for a call that lets go of what it was given even where it fails: it is made in any
// case, after `discard` where it is to fail.
template <typename Real, typename Discard>
int injected_release(FaultCall call, Real real, Discard discard) {
    bool made = false;
    const int result = injected_call(call, -1, [&] {
        made = true;
        return real();
    });
    if (!made) {
        const InsideCall inside;
        const int error = errno;
        discard();
        real();
        errno = error;
    }
    return result;
}

// The same for transfers: real(n) moves at most n of the bytes.
template <typename Result, typename Real>
Result injected_transfer(FaultCall call, std::size_t size, Real real) {
    if (fault_depth > 0 || fault_record() == nullptr) {
        return real(size);
    }
    const FaultAction action = next_fault(call);
    if (action == FaultAction::kFail) {
        errno = fault_argument();
        return -1;
    }
    const InsideCall inside;
    const bool cut = action == FaultAction::kShort;
    const auto limit = static_cast<std::size_t>(fault_argument());
    return real(cut && limit < size ? limit : size);
}
