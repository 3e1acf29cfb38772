// What the fault injector and the test that runs it share: one mapped file. The test writes the
// plan before the receiver starts; the injector counts, and says what it did. No pointers, so that
// both processes may map it anywhere.
#pragma once

#include <atomic>
#include <cstdint>

// Which call of the receiver's is counted; a read of no bytes acknowledges a request; those on
// gadgetfs files and on the two sockets are told apart. The simulator's own calls are not counted.
// clang-format off
enum FaultCall : std::uint32_t {
    kOpenControl, kReadEvents, kAcknowledge, kWriteControl, kPollControl,
    kOpenEndpoint, kWriteRecord, kIoctlEndpoint, kReadOut, kWriteIn,
    kReceiveFromApp, kReceiveFromBridge, kSendTo,
    kShmOpen, kFtruncate, kFstat, kMmap, kMadvise,
    kPthreadCreate, kMutexInit, kMalloc,
    kFopen, kFread, kReadLine, kWriteFile, kFclose, kPrint, kWriteLog, kClose,
    kOpenDirectory, kReadDirectory,
    kSocket, kBind, kSocketOption, kFcntl,
    kSystem, kUnlink, kSleep,
    kFaultCalls
};
inline constexpr const char* kFaultCallNames[kFaultCalls] = {
    "open_control", "read_events", "acknowledge", "write_control", "poll_control",
    "open_endpoint", "write_record", "ioctl_endpoint", "read_out", "write_in",
    "recvfrom_app", "recvfrom_bridge", "sendto",
    "shm_open", "ftruncate", "fstat", "mmap", "madvise",
    "pthread_create", "pthread_mutex_init", "malloc",
    "fopen", "fread", "fgets", "fputs", "fclose", "fprintf_stderr", "write_stderr", "close",
    "opendir", "readdir",
    "socket", "bind", "setsockopt", "fcntl",
    "system", "unlink", "usleep",
};
// clang-format on

enum class FaultAction : std::uint32_t {
    kNone,        // only count
    kFail,        // the call fails with the error number, and is not made
    kShort,       // it transfers that many bytes at most
    kKillBefore,  // SIGKILL instead of the call
    kKillAfter,   // SIGKILL once it has been made
};

inline constexpr std::uint32_t kEachCall = 0xFFFFFFFF;

struct FaultPlan {
    FaultCall call = kFaultCalls;
    std::uint32_t number = 0;  // the how-manieth of its kind, from 1; kEachCall
    FaultAction action = FaultAction::kNone;
    std::int32_t argument = 0;  // error number, or bytes
};

struct FaultRecord {
    FaultPlan plan;
    std::atomic<std::uint32_t> calls[kFaultCalls];
    std::atomic<std::uint32_t> injected;        // how often the plan was carried out
    std::atomic<std::int64_t> injected_at_ms;   // the first time, on the monotonic clock
    std::atomic<std::int64_t> clock_offset_ms;  // added to the receiver's real-time clock
};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

inline constexpr char kFaultRecordVariable[] = "FAULT_RECORD";
