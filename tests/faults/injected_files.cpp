// The injector's calls on files, gadgetfs files among them: read, write and ioctl are told apart by
// the place that was opened, as the receiver names it.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/faults/fault_injection.h"

namespace {

enum class OpenPlace : std::uint8_t { kOther, kControl, kNewEndpoint, kEndpoint };

constexpr int kDescriptors = 4096;
std::atomic<OpenPlace> places[kDescriptors];

OpenPlace place_of(int fd) {
    return fd < 0 || fd >= kDescriptors ? OpenPlace::kOther : places[fd].load();
}

void set_place(int fd, OpenPlace place) {
    if (fd >= 0 && fd < kDescriptors) {
        places[fd].store(place);
    }
}

// What a short read has left of a bulk packet; the reads that follow get it.
struct LeftBytes {
    std::size_t begin, end;
    char bytes[512];
};
LeftBytes left;

ssize_t take_left(void* buffer, std::size_t size) {
    const std::size_t count = std::min(size, left.end - left.begin);
    memcpy(buffer, left.bytes + left.begin, count);
    left.begin += count;
    return static_cast<ssize_t>(count);
}

using Read = ssize_t (*)(int, void*, std::size_t);

// A packet is always read whole, for it is one transfer of the host's.
ssize_t read_out(Read next, int fd, void* buffer, std::size_t size) {
    return injected_transfer<ssize_t>(kReadOut, size, [=](std::size_t limit) -> ssize_t {
        if (left.begin != left.end) {
            return take_left(buffer, limit);
        }
        if (limit == size || size > sizeof left.bytes) {
            return next(fd, buffer, size);
        }
        const ssize_t count = next(fd, left.bytes, size);
        if (count < 0) {
            return count;
        }
        left.begin = 0;
        left.end = static_cast<std::size_t>(count);
        return take_left(buffer, limit);
    });
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    static const auto next = real_function<int (*)(const char*, int, ...)>("open");
    constexpr char kGadget[] = "/dev/gadget/";
    if (strncmp(path, kGadget, sizeof kGadget - 1) != 0) {
        return next(path, flags, mode);
    }
    const bool endpoint = strncmp(path + sizeof kGadget - 1, "ep", 2) == 0;
    const int fd = injected_call(endpoint ? kOpenEndpoint : kOpenControl, -1,
                                 [=] { return next(path, flags, mode); });
    set_place(fd, endpoint ? OpenPlace::kNewEndpoint : OpenPlace::kControl);
    return fd;
}

int close(int fd) {
    static const auto next = real_function<int (*)(int)>("close");
    set_place(fd, OpenPlace::kOther);
    return injected_release(
        kClose, [=] { return next(fd); }, [] {});
}

ssize_t read(int fd, void* buffer, std::size_t size) {
    static const auto next = real_function<Read>("read");
    switch (place_of(fd)) {
        case OpenPlace::kControl:
            return injected_transfer<ssize_t>(
                size == 0 ? kAcknowledge : kReadEvents, size, [=](std::size_t limit) {
                    const ssize_t count = next(fd, buffer, size);
                    return std::min(count, static_cast<ssize_t>(limit));
                });
        case OpenPlace::kEndpoint:
            return read_out(next, fd, buffer, size);
        default:
            return next(fd, buffer, size);
    }
}

ssize_t write(int fd, const void* bytes, std::size_t size) {
    static const auto next = real_function<ssize_t (*)(int, const void*, std::size_t)>("write");
    const auto send = [=](std::size_t limit) { return next(fd, bytes, limit); };
    switch (place_of(fd)) {
        case OpenPlace::kControl:
            return injected_transfer<ssize_t>(kWriteControl, size, send);
        case OpenPlace::kEndpoint:
            return injected_transfer<ssize_t>(kWriteIn, size, send);
        case OpenPlace::kNewEndpoint: {
            const ssize_t count = injected_transfer<ssize_t>(kWriteRecord, size, send);
            set_place(fd, OpenPlace::kEndpoint);
            return count;
        }
        default:
            return fd == STDERR_FILENO ? injected_transfer<ssize_t>(kWriteLog, size, send)
                                       : next(fd, bytes, size);
    }
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto next = real_function<int (*)(int, unsigned long, ...)>("ioctl");
    const auto real = [=] { return next(fd, request, argument); };
    return place_of(fd) == OpenPlace::kEndpoint ? injected_call(kIoctlEndpoint, -1, real) : real();
}

int poll(pollfd* fds, nfds_t count, int timeout_ms) {
    static const auto next = real_function<int (*)(pollfd*, nfds_t, int)>("poll");
    const auto real = [=] { return next(fds, count, timeout_ms); };
    return count == 1 && place_of(fds[0].fd) == OpenPlace::kControl
               ? injected_call(kPollControl, -1, real)
               : real();
}

int fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto next = real_function<int (*)(int, int, ...)>("fcntl");
    return injected_call(kFcntl, -1, [=] { return next(fd, command, argument); });
}

int fstat(int fd, struct stat* status) noexcept {
    static const auto next = real_function<int (*)(int, struct stat*)>("fstat");
    return injected_call(kFstat, -1, [=] { return next(fd, status); });
}

int ftruncate(int fd, off_t size) noexcept {
    static const auto next = real_function<int (*)(int, off_t)>("ftruncate");
    return injected_call(kFtruncate, -1, [=] { return next(fd, size); });
}

int shm_open(const char* name, int flags, mode_t mode) {
    static const auto next = real_function<int (*)(const char*, int, mode_t)>("shm_open");
    return injected_call(kShmOpen, -1, [=] { return next(name, flags, mode); });
}

void* mmap(void* address, std::size_t size, int protection, int flags, int fd,
           off_t offset) noexcept {
    static const auto next =
        real_function<void* (*)(void*, std::size_t, int, int, int, off_t)>("mmap");
    const auto real = [=] { return next(address, size, protection, flags, fd, offset); };
    return (flags & MAP_ANONYMOUS) != 0 ? real() : injected_call(kMmap, MAP_FAILED, real);
}

int madvise(void* address, std::size_t size, int advice) noexcept {
    static const auto next = real_function<int (*)(void*, std::size_t, int)>("madvise");
    return injected_call(kMadvise, -1, [=] { return next(address, size, advice); });
}

DIR* opendir(const char* path) {
    static const auto next = real_function<DIR* (*)(const char*)>("opendir");
    return injected_call<DIR*>(kOpenDirectory, nullptr, [=] { return next(path); });
}

dirent* readdir(DIR* directory) {
    static const auto next = real_function<dirent* (*)(DIR*)>("readdir");
    return injected_call<dirent*>(kReadDirectory, nullptr, [=] { return next(directory); });
}

int unlink(const char* path) noexcept {
    static const auto next = real_function<int (*)(const char*)>("unlink");
    return injected_call(kUnlink, -1, [=] { return next(path); });
}

}  // extern "C"
