#include "fuzz/event_files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

#include "fuzz/fuzz_check.h"
#include "tests/wrapped_calls.h"

namespace {

constexpr int kFirstDescriptor = 70000;
constexpr std::size_t kEventSize = 12;
constexpr std::uint8_t kSetupEvent = 3;
constexpr std::uint8_t kDeviceToHost = 0x80;

constexpr const char* kControlFile = "fe980000.usb";
constexpr const char* kEntries[] = {".",         "..",          "epx",   "fe980000.usb",
                                    "ep1in-int", "ep2out-bulk", "ep6in", "ep-c"};

// What gadgetfs and the kernel around it give.
constexpr int kErrors[] = {EIDRM,  EL2HLT, EBADMSG, ENODEV, ESHUTDOWN, EINTR,
                           EAGAIN, ENOMEM, EFAULT,  ESRCH,  EBUSY,     EIO};

std::map<int, std::string> files;
int next_descriptor = kFirstDescriptor;
Input* failures = nullptr;
const Bytes* events = nullptr;
std::size_t next_entry = 0;
dirent entry{};

struct Request {
    bool to_host;
    std::size_t length;
};
std::vector<Request> unanswered;  // oldest first

// Half a call in eight fails where the input has bytes left.
bool fails() {
    if (failures == nullptr) {
        return false;
    }
    const unsigned decision = failures->byte();
    if (decision < 0xF0) {
        return false;
    }
    errno = kErrors[decision % std::size(kErrors)];
    return true;
}

bool is_ours(int fd) {
    return fd >= kFirstDescriptor;
}

const std::string& name_of(int fd) {
    const auto file = files.find(fd);
    FUZZ_CHECK(file != files.end());
    return file->second;
}

// A transfer on the control file ends the oldest request.
void answer(bool to_host, std::size_t length) {
    FUZZ_CHECK(!unanswered.empty());
    const Request request = unanswered.front();
    unanswered.erase(unanswered.begin());
    // Against the request's direction it is a stall, which has no bytes. The kernel cuts what is
    // longer than the host asked for; only a configuration may be.
    FUZZ_CHECK(to_host == request.to_host || length == 0);
    FUZZ_CHECK(length <= request.length || length == 32);
}

ssize_t read_control(std::uint8_t* buffer, std::size_t size) {
    if (size == 0) {
        answer(false, 0);
        return fails() ? -1 : 0;
    }
    FUZZ_CHECK(size == 5 * kEventSize);
    if (events == nullptr) {
        errno = EAGAIN;
        return -1;
    }
    const std::size_t count = std::min(size, events->size());
    std::copy_n(events->begin(), count, buffer);
    for (std::size_t at = 0; at + kEventSize <= count; at += kEventSize) {
        const std::uint8_t* const event = buffer + at;
        if (event[8] == kSetupEvent && event[9] == 0 && event[10] == 0 && event[11] == 0) {
            unanswered.push_back({(event[0] & kDeviceToHost) != 0,
                                  event[6] | static_cast<std::size_t>(event[7]) << 8});
        }
    }
    return static_cast<ssize_t>(count);
}

}  // namespace

void event_files_reset() {
    files.clear();
    unanswered.clear();
    failures = nullptr;
    events = nullptr;
}

void event_files_fail_by(Input* input) {
    failures = input;
}

void event_files_send(const Bytes* bytes) {
    events = bytes;
}

std::size_t event_files_open() {
    return files.size();
}

bool event_file_is_open(int fd) {
    return files.count(fd) > 0;
}

void event_files_check_answered() {
    FUZZ_CHECK(unanswered.empty());
}

extern "C" {
int __wrap_open(const char* path, int flags, ...) {
    constexpr std::string_view kDirectory = "/dev/gadget/";
    if (!std::string_view(path).starts_with(kDirectory)) {
        va_list arguments;
        va_start(arguments, flags);
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
        va_end(arguments);
        return __real_open(path, flags, mode);
    }
    const std::string name = path + kDirectory.size();
    // The kernel opens each file once.
    for (const auto& [fd, open_name] : files) {
        FUZZ_CHECK(open_name != name);
    }
    if (fails()) {
        return -1;
    }
    files[next_descriptor] = name;
    return next_descriptor++;
}

int __wrap_close(int fd) {
    if (!is_ours(fd)) {
        return __real_close(fd);
    }
    FUZZ_CHECK(files.erase(fd) == 1);
    return 0;
}

ssize_t __wrap_read(int fd, void* buffer, std::size_t size) {
    if (!is_ours(fd)) {
        return __real_read(fd, buffer, size);
    }
    if (name_of(fd) == kControlFile) {
        return read_control(static_cast<std::uint8_t*>(buffer), size);
    }
    if (fails()) {
        return -1;
    }
    memset(buffer, 0x55, size);
    return static_cast<ssize_t>(size);
}

ssize_t __wrap_write(int fd, const void* bytes, std::size_t length) {
    if (!is_ours(fd)) {
        return __real_write(fd, bytes, length);
    }
    // All of it can be read; and the control file's first write, before any event, describes the
    // device.
    const ExactBlock block({static_cast<const std::uint8_t*>(bytes), length});
    if (name_of(fd) == kControlFile && !unanswered.empty()) {
        answer(true, length);
    }
    return fails() ? -1 : static_cast<ssize_t>(length);
}

int __wrap_ioctl(int fd, unsigned long /*request*/, ...) {
    name_of(fd);
    return fails() ? -1 : 0;
}

int __wrap_fcntl(int fd, int operation, ...) {
    if (!is_ours(fd)) {
        va_list arguments;
        va_start(arguments, operation);
        void* const argument = va_arg(arguments, void*);
        va_end(arguments);
        return __real_fcntl(fd, operation, argument);
    }
    name_of(fd);
    return fails() ? -1 : operation == F_GETFL ? O_RDWR : 0;
}

int __wrap_poll(pollfd* fds, nfds_t count, int /*timeout*/) {
    FUZZ_CHECK(count == 1 && name_of(fds->fd) == kControlFile);
    fds->revents = events != nullptr ? POLLIN : 0;
    return fails() ? -1 : 1;
}

DIR* __wrap_opendir(const char* path) {
    if (strcmp(path, "/dev/gadget") != 0) {
        return __real_opendir(path);
    }
    if (fails()) {
        return nullptr;
    }
    next_entry = 0;
    return reinterpret_cast<DIR*>(&entry);
}

dirent* __wrap_readdir(DIR* directory) {
    if (directory != reinterpret_cast<DIR*>(&entry)) {
        return __real_readdir(directory);
    }
    if (next_entry == std::size(kEntries)) {
        return nullptr;
    }
    snprintf(entry.d_name, sizeof entry.d_name, "%s", kEntries[next_entry++]);
    return &entry;
}

int __wrap_closedir(DIR* directory) {
    return directory == reinterpret_cast<DIR*>(&entry) ? 0 : __real_closedir(directory);
}
}
