#include "allocation_count.h"

#include <cstddef>

std::atomic<unsigned long> allocation_count{0};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZER_HAS_THE_ALLOCATOR 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZER_HAS_THE_ALLOCATOR 1
#endif
#endif

#if defined(SANITIZER_HAS_THE_ALLOCATOR)

// A sanitizer's own allocator cannot be replaced; it calls back.
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*on_malloc)(const volatile void* block, std::size_t size),
    void (*on_free)(const volatile void* block));

[[maybe_unused]] static const int hook_index = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++allocation_count; }, [](const volatile void*) {});

#else

// In front of the C library's allocator.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) noexcept {
    ++allocation_count;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    ++allocation_count;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) noexcept {
    ++allocation_count;
    return __libc_realloc(block, size);
}
}

#endif
