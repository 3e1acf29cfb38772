#include "client/ring_reader.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace {

// The ring's layout, as the documentation gives it to whoever reads it: a 24-byte header, then 200
// slots of an 18-byte header and up to 300,000 bytes.
constexpr std::size_t kClearRequest = 0;
constexpr std::size_t kLatestSequence = 2;
constexpr std::size_t kNextSlot = 4;
constexpr std::size_t kHeaderSize = 24;
constexpr std::size_t kSlots = 200;
constexpr std::size_t kSlotHeaderSize = 18;
constexpr std::size_t kLargestPart = 300000;
constexpr std::size_t kSlotSize = kSlotHeaderSize + kLargestPart;
constexpr std::size_t kRingSize = kHeaderSize + kSlots * kSlotSize;

constexpr std::size_t slot_offset(std::size_t slot) {
    return kHeaderSize + slot * kSlotSize;
}

constexpr std::size_t slot_before(std::size_t slot) {
    return (slot + kSlots - 1) % kSlots;
}

}  // namespace

RingReader::~RingReader() {
    if (ring_ != nullptr) {
        munmap(const_cast<std::uint8_t*>(ring_), kRingSize);
    }
}

bool RingReader::open(const std::string& name) {
    if (ring_ != nullptr) {
        return true;
    }
    const int fd = shm_open(name.c_str(), O_RDONLY, 0);
    forbidden_ = fd < 0 && errno == EACCES;
    if (fd < 0) {
        return false;
    }
    struct stat status {};
    void* map = MAP_FAILED;
    // Reading a map beyond the object's end is a bus error: the size comes first.
    if (fstat(fd, &status) == 0 && static_cast<std::size_t>(status.st_size) == kRingSize) {
        map = mmap(nullptr, kRingSize, PROT_READ, MAP_SHARED, fd, 0);
    }
    close(fd);
    if (map == MAP_FAILED) {
        return false;
    }
    ring_ = static_cast<const std::uint8_t*>(map);
    inode_ = status.st_ino;
    return true;
}

bool RingReader::replaced(const std::string& name) const {
    if (ring_ == nullptr) {
        return false;
    }
    const int fd = shm_open(name.c_str(), O_RDONLY, 0);
    if (fd < 0) {
        return true;
    }
    struct stat status {};
    const bool other = fstat(fd, &status) != 0 || status.st_ino != inode_;
    close(fd);
    return other;
}

// All words that are looked at while the writer runs stand at even offsets.
std::uint16_t RingReader::word(std::size_t offset) const {
    auto* p = reinterpret_cast<std::uint16_t*>(const_cast<std::uint8_t*>(ring_ + offset));
    return std::atomic_ref<std::uint16_t>(*p).load(std::memory_order_acquire);
}

bool RingReader::holds(std::size_t slot, std::uint16_t sequence) const {
    const std::size_t offset = slot_offset(slot);
    // The bytes of 01 tell a written slot from a cleared one, whose sequence number reads 0.
    return word(offset + 4) == sequence && word(offset + 8) == 0x0101;
}

// Goes to the oldest part that the ring still has behind its latest one.
bool RingReader::find_parts() {
    std::size_t slot = slot_before(word(kNextSlot) % kSlots);
    std::uint16_t sequence = word(kLatestSequence);
    if (!holds(slot, sequence)) {
        return false;  // empty, or just being written to
    }
    // The slot behind the next one is the writer's at any moment.
    for (std::size_t i = 0; i < kSlots - 3; ++i) {
        const auto earlier = static_cast<std::uint16_t>(sequence - 1);
        if (!holds(slot_before(slot), earlier)) {
            break;
        }
        slot = slot_before(slot);
        sequence = earlier;
    }
    count_missed_before(sequence);
    slot_ = slot;
    sequence_ = sequence;
    return true;
}

// The numbers go on behind a clear. A writer that begins again begins at 0.
void RingReader::count_missed_before(std::uint16_t sequence) {
    const auto gap = static_cast<std::uint16_t>(sequence - sequence_);
    if (has_sequence_) {
        missed_ += sequence == 0 || gap >= 0x8000 ? sequence : gap;
    }
    has_sequence_ = true;
}

void RingReader::take(const PartHandler& handler) {
    if (ring_ == nullptr) {
        return;
    }
    for (;;) {
        if (word(kClearRequest) != 0) {
            found_ = false;
            return;
        }
        const std::uint16_t latest = word(kLatestSequence);
        const auto ahead = static_cast<std::uint16_t>(latest - sequence_);
        if (found_ && ahead == 0xFFFF && holds(slot_before(slot_), latest)) {
            return;  // the latest part is the one before ours
        }
        if (found_ && ahead >= kSlots - 1 && ahead < 0x8000) {
            // The writer may be at work on our slot: go on at the oldest that it is well clear of.
            const std::size_t skipped = ahead - kSlots / 2;
            missed_ += skipped;
            slot_ = (slot_ + skipped) % kSlots;
            sequence_ = static_cast<std::uint16_t>(sequence_ + skipped);
        }
        if (!found_ || !holds(slot_, sequence_)) {
            // At first, and when the ring was cleared or begun again since the last call.
            found_ = find_parts();
            if (!found_) {
                return;
            }
        }
        const std::size_t offset = slot_offset(slot_);
        const std::size_t length = word(offset) | static_cast<std::size_t>(word(offset + 2)) << 16;
        if (length > kLargestPart) {
            return;
        }
        copy_.resize(length);
        std::memcpy(copy_.data(), ring_ + offset + kSlotHeaderSize, length);
        std::atomic_thread_fence(std::memory_order_acquire);
        const bool torn =
            static_cast<std::uint16_t>(word(kLatestSequence) - sequence_) >= kSlots - 1;
        if (torn || !holds(slot_, sequence_)) {
            continue;
        }
        handler(sequence_, copy_);
        slot_ = (slot_ + 1) % kSlots;
        ++sequence_;
    }
}
