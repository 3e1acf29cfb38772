#include "tests/faults/expected_outcomes.h"

namespace {

enum Transfer { kFail, kNothing, kSome };

struct Expectation {
    FaultCall call;
    std::uint32_t first, last;  // numbers of the call, kEachCall as the last for all
    Transfer transfer;
    const char* outcomes;
};

// Whichever of the two watches looks first.
#define SILENCE "ends 2: Camera connection timeout | ends 2: Telemetry receiving timeout"
// The shut-down clears the time of the last data, so that a watch may be first with its line.
#define LINK_END "ends 1: USB receiver exit | " SILENCE
#define NO_BUFFER "ends 2: Failed to init telemetry buffer"
#define NO_GADGET "ends 1: Gadget init failed"
#define NO_READER "ends 1: gadget.c:168: loopback_event_cb: Assertion `0' failed."

constexpr std::uint32_t kLast = kEachCall;

// The first row that fits counts; a call without one carries on.
// clang-format off
constexpr Expectation kExpectations[] = {
    // Shared memory: the ring, the second ring, the channel block. The first shm_open() of each looks
    // for one that is there; the channel block is tried for again.
    {kShmOpen,       2, 2, kFail, NO_BUFFER},
    {kShmOpen,       4, 4, kFail, NO_BUFFER},
    {kShmOpen,       kEachCall, kLast, kFail, NO_BUFFER},
    {kFtruncate,     1, 2, kFail, NO_BUFFER},
    {kFtruncate,     kEachCall, kLast, kFail, NO_BUFFER},
    {kMmap,          1, 2, kFail, NO_BUFFER},
    {kMmap,          kEachCall, kLast, kFail, NO_BUFFER},
    // Threads, in the order of their start.
    {kPthreadCreate, 1, 1, kFail, "carries on, no remote control"},
    {kPthreadCreate, 2, 2, kFail, "carries on, no commands, no saving, no remote control"},
    {kPthreadCreate, 3, 3, kFail, "carries on, no reports"},
    {kPthreadCreate, 4, 4, kFail, "carries on, no bridge"},
    {kPthreadCreate, 5, 5, kFail, SILENCE},
    {kPthreadCreate, 6, 6, kFail, NO_READER},
    {kMutexInit,     1, 1, kFail, "ends 1: Mutex init failedGadget init failed"},
    // What could not be had decides; the order of the requests is the C library's.
    {kMalloc,        1, kLast, kFail, "carries on | carries on, no reports | " NO_GADGET " | " SILENCE
                                      " | " NO_READER},
    // The model comes first; no other file is needed. Each is tried for once.
    {kFopen,         1, 1, kFail, "ends 1: Board not supported"},
    {kFopen,         kEachCall, kLast, kFail, "ends 1: Board not supported"},
    {kFread,         1, kLast, kFail, "ends 1: Board not supported"},
    // A full disk that stays full.
    {kWriteFile,     kEachCall, kLast, kFail, "carries on, no saving, focus file empty"},
    {kFclose,        kEachCall, kLast, kFail, "carries on, no saving, focus file empty"},
    // Nobody hears of a look at the camera's silence that cannot be printed.
    {kPrint,         kEachCall, kLast, kFail, "carries on, no supervision"},
    // Sockets: the main application's, then the bridge's.
    {kSocket,        1, 1, kFail, "ends 1: Failed"},
    {kSocket,        kEachCall, kLast, kFail, "ends 1: Failed"},
    {kSocket,        2, 2, kFail, "carries on, no bridge"},
    {kBind,          1, 1, kFail, "ends 1: Failed"},
    {kBind,          kEachCall, kLast, kFail, "ends 1: Failed"},
    {kBind,          2, 2, kFail, "carries on, no bridge"},
    {kReceiveFromApp,    1, kLast, kFail, "ends 3: UDP read failed"},
    {kReceiveFromBridge, kEachCall, kLast, kFail, "carries on, no bridge"},
    {kSendTo,            kEachCall, kLast, kFail, "carries on, no reports"},
    // Without its first look at endpoint zero the process hears of its configuration only if the host
    // leaves time for a second one. An event whose read failed is read again; a request that is not
    // acknowledged (SET_CONFIGURATION, SET_INTERFACE) is not, and the host waits for it.
    {kReadEvents,    kEachCall, kLast, kFail, SILENCE},
    {kAcknowledge,   1, kLast, kFail, SILENCE},
    // The device, and the files of the endpoints. A host whose request is refused gives up.
    {kOpenDirectory, 1, 1, kFail, NO_GADGET},
    {kOpenDirectory, kEachCall, kLast, kFail, NO_GADGET},
    {kOpenDirectory, 2, 3, kFail, SILENCE},
    {kReadDirectory, 1, kLast, kFail, "carries on | " NO_GADGET " | " SILENCE},
    {kOpenControl,   1, kLast, kFail, NO_GADGET},
    {kWriteControl,  1, 1, kFail, NO_GADGET},
    {kWriteControl,  2, 2, kFail, SILENCE},
    {kWriteControl,  kEachCall, kLast, kFail, NO_GADGET},
    {kOpenEndpoint,  1, kLast, kFail, SILENCE},
    {kWriteRecord,   1, kLast, kFail, SILENCE},
    {kPollControl,   1, kLast, kFail, LINK_END},
    {kReadOut,       1, kLast, kFail, LINK_END},
    {kWriteIn,       kEachCall, kLast, kFail, "carries on, no commands, no bridge, no remote control"},
    // Short transfers. The kernel takes no part of a description or of a record; a part of an event is
    // none.
    {kReceiveFromApp, 1, kLast, kNothing, "ends 3: UDP read failed"},
    {kReadOut,        1, kLast, kNothing, LINK_END},
    {kWriteControl,   1, 1, kSome, NO_GADGET},
    {kWriteRecord,    1, kLast, kSome, SILENCE},
    {kReadEvents,     2, 2, kNothing, LINK_END},  // the speed, without which no read is long enough
    {kReadEvents,     2, 2, kSome, LINK_END},
    {kReadEvents,     3, 4, kNothing, SILENCE},
    {kReadEvents,     3, 4, kSome, SILENCE},
};
// clang-format on

Transfer transfer_of(const FaultPlan& plan) {
    if (plan.action != FaultAction::kShort) {
        return kFail;
    }
    return plan.argument == 0 ? kNothing : kSome;
}

}  // namespace

std::string expected_outcomes(const FaultPlan& plan) {
    for (const Expectation& row : kExpectations) {
        if (row.call == plan.call && row.first <= plan.number && plan.number <= row.last &&
            row.transfer == transfer_of(plan)) {
            return row.outcomes;
        }
    }
    return "carries on";
}

bool is_expected(const FaultPlan& plan, const std::string& outcome) {
    const std::string all = " | " + expected_outcomes(plan) + " | ";
    return all.find(" | " + outcome + " | ") != std::string::npos;
}
