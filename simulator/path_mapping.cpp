// Sends the few absolute places that the receiver touches to a directory of the run: every file
// call of libc with a path, interposed. Thread-safe; cancellable where libc's own call is.
//
// Only with GADGETFS_SIM_ROOT set, and only for the places in the table; all else goes through
// unchanged. The variable is looked up at each call, since a test sets it while it runs.
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>

#include "simulator/gadgetfs_files.h"
#include "simulator/real_function.h"

namespace {

constexpr const char* kMappedPlaces[] = {
    "/sys/firmware/devicetree/base",
    "/run/vantarel",
    "/boot",
    "/dev/gadget",
};

// A path as the real call gets it. Too long a result stays unmapped as an empty path, which every
// call refuses: never the machine's own file.
class MappedPath {
  public:
    explicit MappedPath(const char* path) : path_(path) {
        if (!is_mapped_place(path)) {
            return;
        }
        const char* const root = getenv("GADGETFS_SIM_ROOT");
        if (root == nullptr || root[0] == '\0') {
            return;
        }
        const int length = snprintf(buffer_, sizeof buffer_, "%s%s", root, path);
        if (length < 0 || static_cast<size_t>(length) >= sizeof buffer_) {
            buffer_[0] = '\0';
        }
        path_ = buffer_;
    }
    MappedPath(const MappedPath&) = delete;
    MappedPath& operator=(const MappedPath&) = delete;

    const char* get() const { return path_; }

  private:
    static bool is_mapped_place(const char* path) {
        if (path == nullptr || path[0] != '/') {
            return false;
        }
        for (const char* const place : kMappedPlaces) {
            const size_t length = strlen(place);
            if (strncmp(path, place, length) == 0 &&
                (path[length] == '\0' || path[length] == '/')) {
                return true;
            }
        }
        return false;
    }

    const char* path_;
    char buffer_[PATH_MAX];
};

bool takes_mode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

// Opening, behind every variant: a gadgetfs file goes to the kernel model where one serves the
// root, everything else to the real openat().
int open_mapped(int directory, const char* path, int flags, mode_t mode) {
    const MappedPath mapped(path);
    if (mapped.get() != path) {
        int fd = -1;
        if (open_gadgetfs_file(path, flags, &fd)) {
            return fd;
        }
    }
    static const auto real = real_function<int (*)(int, const char*, int, ...)>("openat");
    return real(directory, mapped.get(), flags, mode);
}

mode_t mode_argument(int flags, va_list arguments) {
    return takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

#define OPEN_WITH_MODE(directory, path, flags, last)     \
    va_list arguments;                                   \
    va_start(arguments, last);                           \
    const mode_t mode = mode_argument(flags, arguments); \
    va_end(arguments);                                   \
    return open_mapped(directory, path, flags, mode)

int open(const char* path, int flags, ...) {
    OPEN_WITH_MODE(AT_FDCWD, path, flags, flags);
}
int open64(const char* path, int flags, ...) {
    OPEN_WITH_MODE(AT_FDCWD, path, flags | O_LARGEFILE, flags);
}
int openat(int directory, const char* path, int flags, ...) {
    OPEN_WITH_MODE(directory, path, flags, flags);
}
int openat64(int directory, const char* path, int flags, ...) {
    OPEN_WITH_MODE(directory, path, flags | O_LARGEFILE, flags);
}

#undef OPEN_WITH_MODE

// What a fortified build calls where no mode is given.
int __open_2(const char* path, int flags);
int __open_2(const char* path, int flags) {
    return open_mapped(AT_FDCWD, path, flags, 0);
}
int __open64_2(const char* path, int flags);
int __open64_2(const char* path, int flags) {
    return open_mapped(AT_FDCWD, path, flags | O_LARGEFILE, 0);
}
int __openat_2(int directory, const char* path, int flags);
int __openat_2(int directory, const char* path, int flags) {
    return open_mapped(directory, path, flags, 0);
}
int __openat64_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags) {
    return open_mapped(directory, path, flags | O_LARGEFILE, 0);
}

int creat(const char* path, mode_t mode) {
    return open_mapped(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}
int creat64(const char* path, mode_t mode) {
    return open_mapped(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC | O_LARGEFILE, mode);
}

// The rest only has its path changed: NAME(path, ARGUMENTS) calls the next NAME.
// clang-format off
#define MAP_PATH(result, name, parameters, arguments, ...)                          \
    result name parameters __VA_ARGS__ {                                            \
        const MappedPath mapped(path);                                              \
        static const auto real = real_function<result(*) parameters>(#name);        \
        return real arguments;                                                      \
    }

MAP_PATH(FILE*, fopen,   (const char* path, const char* mode), (mapped.get(), mode))
MAP_PATH(FILE*, fopen64, (const char* path, const char* mode), (mapped.get(), mode))
MAP_PATH(FILE*, freopen,   (const char* path, const char* mode, FILE* file), (mapped.get(), mode, file))
MAP_PATH(FILE*, freopen64, (const char* path, const char* mode, FILE* file), (mapped.get(), mode, file))
MAP_PATH(DIR*,  opendir, (const char* path), (mapped.get()))

MAP_PATH(int, remove, (const char* path), (mapped.get()), noexcept)
MAP_PATH(int, mkdir,  (const char* path, mode_t mode), (mapped.get(), mode), noexcept)
MAP_PATH(int, rmdir,  (const char* path), (mapped.get()), noexcept)
MAP_PATH(int, unlink, (const char* path), (mapped.get()), noexcept)
MAP_PATH(int, access, (const char* path, int mode), (mapped.get(), mode), noexcept)
MAP_PATH(int, chmod,  (const char* path, mode_t mode), (mapped.get(), mode), noexcept)
MAP_PATH(int, truncate,   (const char* path, off_t length), (mapped.get(), length), noexcept)
MAP_PATH(int, truncate64, (const char* path, off64_t length), (mapped.get(), length), noexcept)
MAP_PATH(int, stat,    (const char* path, struct stat* status), (mapped.get(), status), noexcept)
MAP_PATH(int, stat64,  (const char* path, struct stat64* status), (mapped.get(), status), noexcept)
MAP_PATH(int, lstat,   (const char* path, struct stat* status), (mapped.get(), status), noexcept)
MAP_PATH(int, lstat64, (const char* path, struct stat64* status), (mapped.get(), status), noexcept)
MAP_PATH(int, fstatat, (int directory, const char* path, struct stat* status, int flags),
         (directory, mapped.get(), status, flags), noexcept)
MAP_PATH(int, fstatat64, (int directory, const char* path, struct stat64* status, int flags),
         (directory, mapped.get(), status, flags), noexcept)
// clang-format on

#undef MAP_PATH

int rename(const char* from, const char* to) noexcept {
    const MappedPath mapped_from(from);
    const MappedPath mapped_to(to);
    static const auto real = real_function<int (*)(const char*, const char*)>("rename");
    return real(mapped_from.get(), mapped_to.get());
}

}  // extern "C"
