// The fuzzer's bytes, taken from front to back. What is no longer there is 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }
    std::uint8_t byte() {
        if (rest_.empty()) {
            return 0;
        }
        const std::uint8_t first = rest_.front();
        rest_ = rest_.subspan(1);
        return first;
    }
    unsigned word() {
        const unsigned low = byte();
        return low | static_cast<unsigned>(byte()) << 8;
    }
    Bytes bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return Bytes(taken.begin(), taken.end());
    }
    Bytes rest() { return bytes(rest_.size()); }

  private:
    std::span<const std::uint8_t> rest_;
};

// A copy in a block of exactly its size, so that a byte read beyond it is seen.
class ExactBlock {
  public:
    explicit ExactBlock(std::span<const std::uint8_t> bytes)
        : size_(bytes.size()), block_(new std::uint8_t[bytes.size()]) {
        std::ranges::copy(bytes, block_.get());
    }
    std::uint8_t* data() const { return block_.get(); }
    std::size_t size() const { return size_; }

  private:
    std::size_t size_;
    std::unique_ptr<std::uint8_t[]> block_;
};
