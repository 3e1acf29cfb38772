// A shortage of memory for the tests that link this.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// What is as large as this is refused, to all threads but those that are excepted.
extern std::atomic<std::size_t> too_much_memory;
extern thread_local bool is_excepted;
constexpr std::size_t kNothingIsTooMuch = SIZE_MAX;
