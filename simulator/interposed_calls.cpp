// libc's calls on descriptors, interposed: those on simulated gadgetfs files go to the kernel
// model, all others straight on. No frame here is noexcept: a thread may be cancelled in any of
// them.
#include <errno.h>
#include <poll.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "simulator/gadgetfs_files.h"
#include "simulator/real_function.h"

namespace {

// What the receiver runs through the shell is not to be simulated: without this it would preload
// the library too.
__attribute__((constructor)) void leave_children_alone() {
    const char* const preloaded = getenv("LD_PRELOAD");
    if (preloaded != nullptr && strstr(preloaded, "libgadgetfs-sim") != nullptr) {
        unsetenv("LD_PRELOAD");
    }
}

// Not const: the C library declares that poll() only writes to the set, and the compiler would then
// take this look at it for one at unset memory.
bool holds_control_file(pollfd* fds, nfds_t count) {
    for (nfds_t i = 0; i < count; ++i) {
        if (gadgetfs_file(fds[i].fd) == GadgetfsFile::kControl) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" {

ssize_t read(int fd, void* buffer, size_t size) {
    const GadgetfsFile kind = gadgetfs_file(fd);
    if (kind != GadgetfsFile::kNone) {
        return read_gadgetfs_file(fd, kind, buffer, size);
    }
    static const auto real = real_function<ssize_t (*)(int, void*, size_t)>("read");
    return real(fd, buffer, size);
}

ssize_t __read_chk(int fd, void* buffer, size_t size, size_t buffer_size);
ssize_t __read_chk(int fd, void* buffer, size_t size, size_t buffer_size) {
    if (size > buffer_size) {
        abort();
    }
    return read(fd, buffer, size);
}

ssize_t write(int fd, const void* bytes, size_t length) {
    const GadgetfsFile kind = gadgetfs_file(fd);
    if (kind != GadgetfsFile::kNone) {
        return write_gadgetfs_file(fd, kind, bytes, length);
    }
    static const auto real = real_function<ssize_t (*)(int, const void*, size_t)>("write");
    return real(fd, bytes, length);
}

int poll(pollfd* fds, nfds_t count, int timeout_ms) {
    if (holds_control_file(fds, count)) {
        return poll_control_file(fds, count, timeout_ms);
    }
    static const auto real = real_function<int (*)(pollfd*, nfds_t, int)>("poll");
    return real(fds, count, timeout_ms);
}

int __poll_chk(pollfd* fds, nfds_t count, int timeout_ms, size_t buffer_size);
int __poll_chk(pollfd* fds, nfds_t count, int timeout_ms, size_t buffer_size) {
    if (buffer_size / sizeof *fds < count) {
        abort();
    }
    return poll(fds, count, timeout_ms);
}

int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    if (holds_control_file(fds, count)) {
        const long ms =
            timeout == nullptr ? -1 : timeout->tv_sec * 1000 + timeout->tv_nsec / 1000000;
        return poll_control_file(fds, count, static_cast<int>(ms));
    }
    static const auto real =
        real_function<int (*)(pollfd*, nfds_t, const timespec*, const sigset_t*)>("ppoll");
    return real(fds, count, timeout, mask);
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    const GadgetfsFile kind = gadgetfs_file(fd);
    if (kind != GadgetfsFile::kNone) {
        return ioctl_gadgetfs_file(fd, kind, request);
    }
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto real = real_function<int (*)(int, unsigned long, ...)>("ioctl");
    return real(fd, request, argument);
}

int close(int fd) {
    const GadgetfsFile kind = gadgetfs_file(fd);
    if (kind != GadgetfsFile::kNone) {
        forget_gadgetfs_file(fd, kind);
    }
    static const auto real = real_function<int (*)(int)>("close");
    return real(fd);
}

}  // extern "C"
