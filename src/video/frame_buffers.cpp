#include "video/frame_buffers.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <cstdio>
#include <cstring>

#include "app/system_paths.h"
#include "video/frame_layout.h"
#include "video/h264_sps.h"

namespace {

static_assert(std::endian::native == std::endian::little, "the objects hold native numbers");
static_assert(kRingHeaderSize % 2 == 0 && kSlotSize % 2 == 0, "every 16-bit word is aligned");

struct SharedObject {
    const char* name;
    std::size_t size;
    void* memory;  // null while there is none
};

SharedObject live = {kFrameBufferName, kFrameBufferSize, nullptr};
SharedObject transcoding = {kTranscodingBufferName, kTranscodingBufferSize, nullptr};

std::uint16_t part_counter;
std::int32_t current_width;
std::int32_t current_height;

// A 16-bit word that other processes read and write at the same time.
std::atomic_ref<std::uint16_t> word_at(const SharedObject& object, std::size_t offset) {
    return std::atomic_ref<std::uint16_t>(static_cast<std::uint16_t*>(object.memory)[offset / 2]);
}

std::uint16_t load_word(std::size_t offset) {
    return word_at(live, offset).load(std::memory_order_acquire);
}

// Whoever sees the word sees all that was written before it, also on a processor that would
// otherwise show the two in another order.
void publish_word(std::size_t offset, std::size_t value) {
    word_at(live, offset).store(static_cast<std::uint16_t>(value), std::memory_order_release);
}

// Gives the pages back, which then read as zero: the ring occupies what parts were written into,
// not its whole size. Memory that has no such call is written over.
void zero_object(const SharedObject& object) {
    if (madvise(object.memory, object.size, MADV_REMOVE) != 0) {
        memset(object.memory, 0, object.size);
    }
}

bool has_size(int fd, std::size_t size) {
    struct stat status {};
    return fstat(fd, &status) == 0 && status.st_size == static_cast<off_t>(size);
}

void close_object(SharedObject& object) {
    if (object.memory != nullptr) {
        munmap(object.memory, object.size);
        object.memory = nullptr;
    }
}

// Opens or creates the object, and leaves it zero but for the clear request.
bool open_object(SharedObject& object) {
    close_object(object);
    int fd = shm_open(object.name, O_RDWR, 0600);
    if (fd < 0) {
        fd = shm_open(object.name, O_RDWR | O_CREAT, 0600);
    }
    if (fd < 0) {
        return false;
    }
    // One that an earlier run left has its size already, and a reader may still have it mapped.
    void* memory = MAP_FAILED;
    if (has_size(fd, object.size) || ftruncate(fd, static_cast<off_t>(object.size)) == 0) {
        memory = mmap(nullptr, object.size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    close(fd);
    if (memory == MAP_FAILED) {
        return false;
    }
    object.memory = memory;
    zero_object(object);
    word_at(object, kClearRequestOffset).store(1, std::memory_order_release);
    return true;
}

// The file's whole content is the number, without a line end. Where the directory is missing,
// nothing is published.
void write_number(const char* path, std::int32_t number) {
    FILE* const file = fopen(path, "w");
    if (file == nullptr) {
        return;
    }
    char text[12];
    snprintf(text, sizeof text, "%d", number);
    fprintf(file, "%.9s", text);  // readers take nine characters
    fclose(file);
}

void take_resolution(const std::uint8_t* sps, std::size_t length) {
    std::int32_t width = 0;
    std::int32_t height = 0;
    h264_sps_get_size(sps, length, &width, &height);
    // What a stream of 1920x1080 measures: macroblocks make 1088 lines of it, and its cropping
    // comes off the width.
    if (width == 1912) {
        width = 1920;
    }
    if (height == 1088) {
        height = 1080;
    }
    if (width == current_width && height == current_height) {
        return;
    }
    fprintf(stderr, "Live stream video resolution changed to %dx%d\n", width, height);
    current_width = width;
    current_height = height;
    write_number(kVideoWidthPath, width);
    write_number(kVideoHeightPath, height);
}

// Four-byte start code, then a NAL unit of type 7; of the type's five bits only four count.
bool begins_with_sps(const std::uint8_t* bytes, std::size_t length) {
    return length >= 5 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0 && bytes[3] == 1 &&
           (bytes[4] & 0x0F) == 7;
}

void write_slot(std::size_t slot, const std::uint8_t* bytes, std::size_t length) {
    // A reader that sees a byte of this part must also see how far the ring has come, which tells
    // it that the slot is no longer the one it knew.
    std::atomic_thread_fence(std::memory_order_release);
    const std::size_t offset = kRingHeaderSize + slot * kSlotSize;
    memcpy(static_cast<std::uint8_t*>(live.memory) + offset + kSlotHeaderSize, bytes, length);
    publish_word(offset + kSlotLengthOffset, length & 0xFFFF);
    publish_word(offset + kSlotLengthOffset + 2, length >> 16);
    publish_word(offset + kSlotSequenceOffset, part_counter);
    publish_word(offset + 6, 0x0000);
    for (std::size_t fill = 8; fill < kSlotHeaderSize; fill += 2) {
        publish_word(offset + fill, 0x0101);
    }
}

void publish_part(const std::uint8_t* bytes, std::size_t length) {
    if (load_word(kClearRequestOffset) != 0) {
        zero_object(live);
        fprintf(stderr, "Clear frame shared memory\n");
    }
    std::size_t slot = load_word(kNextSlotOffset);
    if (slot >= kSlotCount) {
        slot = 0;  // any process may write there
    }
    write_slot(slot, bytes, length);
    publish_word(kNextSlotOffset, slot + 1 < kSlotCount ? slot + 1 : 0);
    publish_word(kLatestSequenceOffset, part_counter);
    if (load_word(kNextSlotOffset) >= kSlotCount) {
        publish_word(kNextSlotOffset, 0);
    }
    ++part_counter;
}

}  // namespace

int frame_buffers_init() {
    unlink(kVideoWidthPath);
    unlink(kVideoHeightPath);
    current_width = 0;
    current_height = 0;

    fprintf(stderr, "Init frame buffer %d bytes\n", static_cast<int>(kFrameBufferSize));
    part_counter = 0;
    if (!open_object(live)) {
        close_object(transcoding);
        return -1;
    }
    fprintf(stderr, "Init frame buffer for transcoding %d bytes\n",
            static_cast<int>(kTranscodingBufferSize));
    if (!open_object(transcoding)) {
        close_object(live);
        return -1;
    }
    return 0;
}

void frame_queue_part(const std::uint8_t* bytes, std::size_t length) {
    if (bytes == nullptr) {
        fprintf(stderr, "Queue part buf is zero\n");
        return;
    }
    if (length == 0) {
        fprintf(stderr, "Queue part len is zero\n");
        return;
    }
    // An envelope holds 65,535 bytes at most, and without the ring there is nowhere to put them.
    if (length > kMaxPartSize || live.memory == nullptr) {
        return;
    }
    if (begins_with_sps(bytes, length)) {
        take_resolution(bytes + 5, length - 5);
    }
    publish_part(bytes, length);
}
