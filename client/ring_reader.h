// Reads the receiver's video ring as the main application does: from another process, without a
// lock, following the writer by sequence numbers. Thread-bound to its owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

class RingReader {
  public:
    // Called with each part, in order. The bytes are a copy that was checked after it was taken.
    using PartHandler =
        std::function<void(std::uint16_t sequence, std::span<const std::uint8_t> bytes)>;

    RingReader() = default;
    ~RingReader();
    RingReader(const RingReader&) = delete;
    RingReader& operator=(const RingReader&) = delete;

    // Maps the ring read-only. False while there is none of the right size.
    bool open(const std::string& name = "vantarel_framebuffer");
    // Whether the last open found one that this user may not read.
    bool forbidden() const { return forbidden_; }

    // Whether another object has the name since, or none: this one gets no more parts then.
    bool replaced(const std::string& name = "vantarel_framebuffer") const;

    // Hands on what has been published since the last call; at first, and when the ring was cleared
    // since, all that it holds.
    void take(const PartHandler& handler);

    // Parts that were overwritten, or cleared, before they could be taken.
    std::size_t missed() const { return missed_; }

  private:
    std::uint16_t word(std::size_t offset) const;
    bool holds(std::size_t slot, std::uint16_t sequence) const;
    bool find_parts();
    void count_missed_before(std::uint16_t sequence);

    const std::uint8_t* ring_ = nullptr;
    std::uint64_t inode_ = 0;  // of the object that is mapped
    std::vector<std::uint8_t> copy_;
    bool forbidden_ = false;
    bool has_sequence_ = false;   // a part was found at some time
    bool found_ = false;          // whether these two are known:
    std::size_t slot_ = 0;        // where the next part will be
    std::uint16_t sequence_ = 0;  // and its number
    std::size_t missed_ = 0;
};
