// Fields of a record that one thread writes while others read it, without a lock.
//
// A word is an atomic whose accesses are all relaxed: it costs what a plain word costs and is never
// torn. A text or a block is a plain array whose bytes are read and written one by one in the same
// way: a reader may see the first half of a new text before the second half of the old one. All of
// it thread-safe.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

// Reads and writes as a plain T does.
template <typename T>
class SharedWord {
  public:
    constexpr SharedWord() : value_() {}
    constexpr SharedWord(T value) : value_(value) {}
    SharedWord(const SharedWord& other) : value_(other.load()) {}
    SharedWord& operator=(const SharedWord& other) {
        *this = other.load();
        return *this;
    }
    SharedWord& operator=(T value) {
        value_.store(value, std::memory_order_relaxed);
        return *this;
    }
    operator T() const { return load(); }
    T load() const { return value_.load(std::memory_order_relaxed); }

  private:
    std::atomic<T> value_;
    static_assert(sizeof(std::atomic<T>) == sizeof(T) && std::atomic<T>::is_always_lock_free);
};

inline void write_shared_bytes(void* to, const void* from, std::size_t count) {
    auto* const field = static_cast<char*>(to);
    const auto* const bytes = static_cast<const char*>(from);
    for (std::size_t i = 0; i < count; ++i) {
        std::atomic_ref(field[i]).store(bytes[i], std::memory_order_relaxed);
    }
}

inline void read_shared_bytes(void* to, const void* from, std::size_t count) {
    auto* const bytes = static_cast<char*>(to);
    // An atomic reference wants to be able to write; it is only read through.
    auto* const field = const_cast<char*>(static_cast<const char*>(from));
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = std::atomic_ref(field[i]).load(std::memory_order_relaxed);
    }
}

// A text that does not fit is cut. The field's last byte stays the NUL that it was at first, so
// that every reader finds an end.
template <std::size_t N>
void write_shared_text(char (&field)[N], const char* text) {
    std::size_t i = 0;
    for (; i < N - 1 && text[i] != '\0'; ++i) {
        std::atomic_ref(field[i]).store(text[i], std::memory_order_relaxed);
    }
    std::atomic_ref(field[i]).store('\0', std::memory_order_relaxed);
}

// A copy, for whoever compares or prints the text.
template <std::size_t N>
std::array<char, N> read_shared_text(const char (&field)[N]) {
    std::array<char, N> text{};
    read_shared_bytes(text.data(), field, N - 1);
    return text;
}
