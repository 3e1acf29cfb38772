#include "monitor/process_limits.h"

#include <pthread.h>
#include <sys/resource.h>

#include <cstddef>

namespace {

// Each viewer has two threads; the default of 8 MB for each is much of a 32-bit address space.
[[maybe_unused]] constexpr std::size_t kStack = std::size_t{512} * 1024;
// The server stores a WebSocket message of any size before it asks whether that is wanted: a viewer
// must not take the machine's memory with one.
[[maybe_unused]] constexpr rlim_t kMostData = rlim_t{1024} * 1024 * 1024;

}  // namespace

void set_process_limits() {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    // Their own memory, also on each stack, does not fit.
#else
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStack);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
    const rlimit most = {kMostData, kMostData};
    setrlimit(RLIMIT_DATA, &most);
#endif
}
