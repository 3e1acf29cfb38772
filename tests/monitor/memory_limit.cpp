#include "tests/monitor/memory_limit.h"

#include <cstdlib>
#include <new>

std::atomic<std::size_t> too_much_memory{kNothingIsTooMuch};
thread_local bool is_excepted = false;

void* operator new(std::size_t size) {
    void* const memory = is_excepted || size < too_much_memory ? malloc(size) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    free(memory);
}
