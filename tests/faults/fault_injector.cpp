// Preloaded in front of the simulator's library: the core, memory, threads and clock.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tests/faults/fault_injection.h"

thread_local int fault_depth;

namespace {

constexpr useconds_t kInterruptedAfterUs = 1000;

FaultRecord* record;

// Before main(), after libstdc++ has begun: what that allocates for itself is not the receiver's.
__attribute__((constructor)) void map_record() {
    const char* const path = getenv(kFaultRecordVariable);
    if (path == nullptr) {
        return;
    }
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    void* const memory =
        mmap(nullptr, sizeof(FaultRecord), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory == MAP_FAILED) {
        _exit(127);
    }
    // What the receiver runs through the shell is not part of it.
    unsetenv(kFaultRecordVariable);
    record = static_cast<FaultRecord*>(memory);
}

// Looking up the real malloc() must not come back here for memory that is not there yet.
alignas(16) char first_memory[4096];
std::size_t first_memory_used;

bool is_first_memory(const void* memory) {
    return memory >= first_memory && memory < first_memory + sizeof first_memory;
}

void* take_first_memory(std::size_t size) {
    const std::size_t wanted = (size + 15) / 16 * 16;
    if (wanted > sizeof first_memory - first_memory_used) {
        _exit(127);
    }
    void* const memory = first_memory + first_memory_used;
    first_memory_used += wanted;
    return memory;
}

struct Allocator {
    void* (*malloc)(std::size_t);
    void* (*calloc)(std::size_t, std::size_t);
    void* (*realloc)(void*, std::size_t);
    void (*free)(void*);
};
Allocator real;
bool looking_up;

// The first allocation of a process comes long before its second thread.
bool have_allocator() {
    if (real.free == nullptr && !looking_up) {
        looking_up = true;
        real.malloc = real_function<void* (*)(std::size_t)>("malloc");
        real.calloc = real_function<void* (*)(std::size_t, std::size_t)>("calloc");
        real.realloc = real_function<void* (*)(void*, std::size_t)>("realloc");
        real.free = real_function<void (*)(void*)>("free");
        looking_up = false;
    }
    return real.free != nullptr;
}

}  // namespace

FaultRecord* fault_record() {
    return record;
}

int fault_argument() {
    return record->plan.argument;
}

void kill_process() {
    kill(getpid(), SIGKILL);
    for (;;) {
        pause();
    }
}

FaultAction next_fault(FaultCall call) {
    const std::uint32_t number = record->calls[call].fetch_add(1) + 1;
    const FaultPlan& plan = record->plan;
    if (plan.call != call || (plan.number != number && plan.number != kEachCall)) {
        return FaultAction::kNone;
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::int64_t never = 0;
    record->injected_at_ms.compare_exchange_strong(never,
                                                   now.tv_sec * 1000 + now.tv_nsec / 1000000);
    record->injected.fetch_add(1);
    if (plan.action == FaultAction::kKillBefore) {
        kill_process();
    }
    return plan.action;
}

extern "C" {

void* malloc(std::size_t size) noexcept {
    if (!have_allocator()) {
        return take_first_memory(size);
    }
    return injected_call<void*>(kMalloc, nullptr, [=] { return real.malloc(size); });
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    if (!have_allocator()) {
        return take_first_memory(count * size);
    }
    return injected_call<void*>(kMalloc, nullptr, [=] { return real.calloc(count, size); });
}

void* realloc(void* memory, std::size_t size) noexcept {
    if (!have_allocator() || is_first_memory(memory)) {
        _exit(127);
    }
    return injected_call<void*>(kMalloc, nullptr, [=] { return real.realloc(memory, size); });
}

void free(void* memory) noexcept {
    if (!is_first_memory(memory) && have_allocator()) {
        real.free(memory);
    }
}

// Its failure is its result, and errno stays as it was.
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    static const auto next =
        real_function<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
            "pthread_create");
    const int failed = record == nullptr ? 0 : fault_argument();
    return injected_call(kPthreadCreate, failed,
                         [=] { return next(thread, attributes, body, argument); });
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept {
    static const auto next =
        real_function<int (*)(pthread_mutex_t*, const pthread_mutexattr_t*)>("pthread_mutex_init");
    const int failed = record == nullptr ? 0 : fault_argument();
    return injected_call(kMutexInit, failed, [=] { return next(mutex, attributes); });
}

// Set by whoever sets clocks; it fails with no clock that exists.
int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static const auto next = real_function<int (*)(clockid_t, timespec*)>("clock_gettime");
    const int result = next(clock, time);
    if (result == 0 && clock == CLOCK_REALTIME && fault_depth == 0 && record != nullptr) {
        const std::int64_t ms =
            time->tv_nsec / 1000000 + record->clock_offset_ms.load() % 1000 + 1000;
        time->tv_sec += record->clock_offset_ms.load() / 1000 + ms / 1000 - 1;
        time->tv_nsec = ms % 1000 * 1000000;
    }
    return result;
}

// A signal comes while a thread sleeps. If none of them ever slept, one that prints or locks
// without a pause could keep the others from it for as long as the camera may be silent.
int usleep(useconds_t time) {
    static const auto next = real_function<int (*)(useconds_t)>("usleep");
    const int result = injected_call(kSleep, -1, [=] { return next(time); });
    if (result != 0) {
        const int error = errno;
        next(std::min(time, kInterruptedAfterUs));
        errno = error;
    }
    return result;
}

}  // extern "C"
