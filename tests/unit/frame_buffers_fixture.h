// The frame buffers as another process has them mapped, and the calls that a test wants to fail.
//
// Included by one source file of a test, linked with gadgetfs-sim, that holds the lock of the
// receiver's real names.
#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "temporary_root.h"
#include "video/frame_buffers.h"

using Bytes = std::vector<std::uint8_t>;

inline constexpr char kLive[] = "vantarel_framebuffer";
inline constexpr char kTranscoding[] = "vantarel_framebuffer_transcoding";
inline constexpr std::size_t kLiveSize = 60003624;
inline constexpr std::size_t kTranscodingSize = 13003624;
inline constexpr char kInitLog[] =
    "Init frame buffer 60003624 bytes\n"
    "Init frame buffer for transcoding 13003624 bytes\n";

struct Opening {
    std::string name;
    int flags;
    mode_t mode;
    bool operator==(const Opening&) const = default;
};
inline std::vector<Opening> openings;

// Descriptor to give out instead of the object's, -1 to fail, or -2 to open the object.
inline std::function<int(const std::string& name)> instead_of_opening;
inline bool memory_cannot_be_given_back = false;

template <typename Function>
Function* next_function(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

inline int open_object(const char* name, int flags) {
    static auto* const real = next_function<int(const char*, int, mode_t)>("shm_open");
    return real(name, flags, 0600);
}

// In front of the C library's: what the receiver asks for, and the failures that a test wants.
extern "C" int shm_open(const char* name, int flags, mode_t mode) {
    static auto* const real = next_function<int(const char*, int, mode_t)>("shm_open");
    openings.push_back({name, flags, mode});
    const int instead = instead_of_opening ? instead_of_opening(name) : -2;
    return instead != -2 ? instead : real(name, flags, mode);
}

extern "C" int madvise(void* address, std::size_t length, int advice) noexcept {
    static auto* const real = next_function<int(void*, std::size_t, int) noexcept>("madvise");
    if (advice == MADV_REMOVE && memory_cannot_be_given_back) {
        errno = ENOSYS;
        return -1;
    }
    return real(address, length, advice);
}

// An object as another process has it mapped.
class View {
  public:
    View(const char* name, std::size_t size) : size_(size), fd_(open_object(name, O_RDWR)) {
        void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
        bytes_ = memory != MAP_FAILED ? static_cast<std::uint8_t*>(memory) : nullptr;
    }
    ~View() {
        if (bytes_ != nullptr) {
            munmap(bytes_, size_);
        }
        close(fd_);
    }
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    std::uint8_t* at(std::size_t offset) const { return bytes_ + offset; }
    Bytes bytes(std::size_t offset, std::size_t count) const {
        return Bytes(at(offset), at(offset) + count);
    }
    Bytes header() const { return bytes(0, 24); }
    Bytes slot_header(std::size_t slot) const { return bytes(24 + slot * 300018, 18); }
    Bytes part(std::size_t slot, std::size_t length) const {
        return bytes(24 + slot * 300018 + 18, length);
    }
    // A 16-bit word that the writer may change at this moment.
    std::uint16_t word(std::size_t offset) const {
        return __atomic_load_n(static_cast<std::uint16_t*>(static_cast<void*>(at(offset))),
                               __ATOMIC_ACQUIRE);
    }
    void set_word(std::size_t offset, std::uint16_t value) const {
        at(offset)[0] = static_cast<std::uint8_t>(value);
        at(offset)[1] = static_cast<std::uint8_t>(value >> 8);
    }
    bool is_zero(std::size_t from, std::size_t to) const {
        return std::all_of(at(from), at(to), [](std::uint8_t byte) { return byte == 0; });
    }
    struct stat status() const {
        struct stat result {};
        fstat(fd_, &result);
        return result;
    }
    // Memory that the object takes.
    std::size_t occupied() const { return static_cast<std::size_t>(status().st_blocks) * 512; }

  private:
    std::size_t size_;
    int fd_;
    std::uint8_t* bytes_;
};

// Leaves an object as an earlier run might have.
inline void leave_object(const char* name, std::size_t size) {
    const int fd = open_object(name, O_RDWR | O_CREAT);
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ASSERT_NE(memory, MAP_FAILED);
    memset(memory, 0xEE, size);
    munmap(memory, size);
    close(fd);
}

// How many times this process has one of the objects mapped.
inline int maps_of_objects() {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find("vantarel_framebuffer") != std::string::npos ? 1 : 0;
    }
    return count;
}

class FrameBuffers : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(TemporaryRoot::maps_places());
        forget();
    }
    void TearDown() override { forget(); }

    std::string log_of(const std::function<void()>& action) {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }
    std::string init() {
        return log_of([] { EXPECT_EQ(frame_buffers_init(), 0); });
    }
    // The part lies in a block of exactly its size.
    std::string queue(const Bytes& part) {
        const auto block = std::make_unique<std::uint8_t[]>(part.size());
        std::ranges::copy(part, block.get());
        return log_of([&] { frame_queue_part(block.get(), part.size()); });
    }
    // Without the capture of the log: for many.
    void queue_quietly(const Bytes& part) { frame_queue_part(part.data(), part.size()); }
    // The ring after its first clear, ready for slot 0; the part counter is then 0 still.
    void init_cleared() {
        init();
        View(kLive, kLiveSize).set_word(0, 0);
    }

    TemporaryRoot root_;

  private:
    void forget() {
        instead_of_opening = nullptr;
        memory_cannot_be_given_back = false;
        openings.clear();
        shm_unlink(kLive);
        shm_unlink(kTranscoding);
    }
};

inline const Bytes kRequestOnly = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
