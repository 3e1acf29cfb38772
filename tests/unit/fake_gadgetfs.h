// A gadgetfs in the test's own process, where every call of the device layer is seen one by one,
// the transfers of no bytes included.
//
// Included by one source file of a test that is linked with
// -Wl,--wrap=open,--wrap=close,--wrap=read,--wrap=write,--wrap=ioctl,--wrap=opendir,--wrap=readdir,--wrap=closedir
// so that the calls of the code under test come here. Each open file is one end of a socket pair:
// what the test sends into the other end is what the next read finds, and a read with nothing to
// find blocks as the kernel's does. Thread-safe.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tests/wrapped_calls.h"
#include "usb/usb-gadget/usb-gadget.h"

using Bytes = std::vector<std::uint8_t>;
using Calls = std::vector<std::string>;

struct FakeGadgetfs {
    std::vector<std::string> directory;  // entries, in the order in which they are read
    bool has_directory = true;
    std::set<std::string> refuses_open;
    std::set<std::string> refuses_write;
    std::set<std::string> refuses_clear_halt;
    std::set<std::string> broken;      // reads fail
    bool data_cancels_reader = false;  // who reads data is cancelled in that moment

    // "FILE write 01 02", "FILE write" and "FILE read" for no bytes, "FILE clear-halt",
    // "FILE close", "FILE waits" as a read begins; in the order of the calls.
    Calls calls;
    std::map<int, std::string> files;  // by descriptor
    std::map<std::string, int> peers;  // the test's ends
    std::size_t read_size = 0;         // of the last read
    std::size_t next_entry = 0;
    dirent entry{};

    std::mutex mutex;
    std::condition_variable changed;
};

inline FakeGadgetfs fake;

inline std::string hex(const std::uint8_t* bytes, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, " %02X", static_cast<unsigned>(bytes[i]));
        text += digits;
    }
    return text;
}

// The name under which a descriptor is open; empty for one that is not of the fake.
inline std::string fake_name(int fd) {
    const std::lock_guard lock(fake.mutex);
    const auto file = fake.files.find(fd);
    return file != fake.files.end() ? file->second : "";
}

inline void fake_call(const std::string& text) {
    const std::lock_guard lock(fake.mutex);
    fake.calls.push_back(text);
    fake.changed.notify_all();
}

// Notes a read; true for one of no bytes, which the socket would not show.
inline bool fake_read_ends_here(int fd, std::size_t size) {
    const std::string name = fake_name(fd);
    if (name.empty()) {
        return false;
    }
    fake.read_size = size;
    fake_call(name + (size == 0 ? " read" : " waits"));
    return size == 0;
}

// What a read returns for what the socket had to say. A socket that is shut down reads as at its
// end, where the kernel's file fails.
inline ssize_t fake_read_result(int fd, ssize_t result) {
    const std::lock_guard lock(fake.mutex);
    const auto file = fake.files.find(fd);
    if (file == fake.files.end()) {
        return result;
    }
    if (result == 0 && fake.broken.count(file->second) > 0) {
        errno = ESHUTDOWN;
        return -1;
    }
    if (result > 0 && fake.data_cancels_reader) {
        pthread_cancel(pthread_self());
    }
    return result;
}

extern "C" {
int __wrap_open(const char* path, int flags, ...) {
    const std::string prefix = "/dev/gadget/";
    if (std::strncmp(path, prefix.c_str(), prefix.size()) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
        va_end(arguments);
        return __real_open(path, flags, mode);
    }
    const std::string name = path + prefix.size();
    const std::lock_guard lock(fake.mutex);
    const bool known = std::count(fake.directory.begin(), fake.directory.end(), name) > 0;
    if (!known || fake.refuses_open.count(name) > 0 || (flags & O_ACCMODE) != O_RDWR) {
        errno = known ? EBUSY : ENOENT;
        return -1;
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) < 0) {
        return -1;
    }
    if (fake.peers.count(name) > 0) {
        __real_close(fake.peers[name]);
    }
    fake.files[ends[0]] = name;
    fake.peers[name] = ends[1];
    return ends[0];
}

int __wrap_close(int fd) {
    if (const std::string name = fake_name(fd); !name.empty()) {
        fake_call(name + " close");
        const std::lock_guard lock(fake.mutex);
        fake.files.erase(fd);
    }
    return __real_close(fd);
}

// No locals in memory: a thread is cancelled in here, and the address sanitizer does not clear the
// stack that a cancellation unwinds.
ssize_t __wrap_read(int fd, void* buffer, std::size_t size) {
    return fake_read_ends_here(fd, size) ? 0 : fake_read_result(fd, __real_read(fd, buffer, size));
}

ssize_t __wrap_write(int fd, const void* bytes, std::size_t length) {
    const std::string name = fake_name(fd);
    if (name.empty()) {
        return __real_write(fd, bytes, length);
    }
    fake_call(name + " write" + hex(static_cast<const std::uint8_t*>(bytes), length));
    if (fake.refuses_write.count(name) > 0) {
        errno = EPROTO;
        return -1;
    }
    return static_cast<ssize_t>(length);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    const std::string name = fake_name(fd);
    fake_call(name + (request == 0x6703 ? " clear-halt" : " unknown ioctl"));
    if (fake.refuses_clear_halt.count(name) > 0) {
        errno = EIO;
        return -1;
    }
    return 0;
}

DIR* __wrap_opendir(const char* path) {
    if (std::strcmp(path, "/dev/gadget") != 0) {
        return __real_opendir(path);
    }
    if (!fake.has_directory) {
        errno = ENOENT;
        return nullptr;
    }
    fake.next_entry = 0;
    return reinterpret_cast<DIR*>(&fake);
}

dirent* __wrap_readdir(DIR* directory) {
    if (directory != reinterpret_cast<DIR*>(&fake)) {
        return __real_readdir(directory);
    }
    if (fake.next_entry == fake.directory.size()) {
        return nullptr;
    }
    std::snprintf(fake.entry.d_name, sizeof fake.entry.d_name, "%s",
                  fake.directory[fake.next_entry++].c_str());
    return &fake.entry;
}

int __wrap_closedir(DIR* directory) {
    return directory == reinterpret_cast<DIR*>(&fake) ? 0 : __real_closedir(directory);
}
}

// The control file of a Raspberry Pi 4, with endpoint files as a controller lists them whose names
// tell the type. The Pi's own are called ep2out and ep6in: both kinds of names fit.
inline void fake_reset() {
    const std::lock_guard lock(fake.mutex);
    for (const auto& [name, fd] : fake.peers) {
        __real_close(fd);
    }
    fake.peers.clear();
    fake.directory = {".", "..", "fe980000.usb", "ep2out-bulk", "ep6in-bulk"};
    fake.has_directory = true;
    fake.refuses_open.clear();
    fake.refuses_write.clear();
    fake.refuses_clear_halt.clear();
    fake.broken.clear();
    fake.data_cancels_reader = false;
    fake.calls.clear();
}

// The calls since the last look, "waits" left out.
inline Calls take_calls() {
    const std::lock_guard lock(fake.mutex);
    Calls taken;
    for (const std::string& call : fake.calls) {
        if (!call.ends_with(" waits")) {
            taken.push_back(call);
        }
    }
    fake.calls.clear();
    return taken;
}

// Waits for a call of that text; false after ten seconds.
inline bool wait_for_call(const std::string& text) {
    std::unique_lock lock(fake.mutex);
    return fake.changed.wait_for(lock, std::chrono::seconds(10), [&text] {
        return std::count(fake.calls.begin(), fake.calls.end(), text) > 0;
    });
}

// What the next read of the file returns.
inline void fake_send(const std::string& name, const Bytes& bytes) {
    send(fake.peers.at(name), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

// From now on the file's reads fail with ESHUTDOWN, the one that waits too.
inline void fake_break(const std::string& name) {
    const std::lock_guard lock(fake.mutex);
    fake.broken.insert(name);
    shutdown(fake.peers.at(name), SHUT_RDWR);
}

// Puts a device back that the code under test keeps allocated.
inline void free_device(UsbGadgetHandle* handle) {
    if (handle == nullptr) {
        return;
    }
    usb_gadget_close(handle);
    while (UsbGadgetEndpoint* endpoint = handle->closed) {
        handle->closed = endpoint->next;
        delete endpoint;
    }
    delete handle;
}
