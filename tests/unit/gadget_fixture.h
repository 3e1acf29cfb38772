// The camera link on a gadgetfs in the test's own process, with stand-ins for what it is built on:
// the shell, the pauses, the bridge, the reader thread, and the calls that a test wants to fail.
//
// Included by one source file of a test that is linked with the calls of fake_gadgetfs.h wrapped,
// and -Wl,--wrap=fcntl,--wrap=usleep,--wrap=system,--wrap=poll,--wrap=pthread_mutex_init too.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>

#include <new>
#include <string>
#include <vector>

#include "link/udp_bridge.h"
#include "tests/unit/fake_gadgetfs.h"
#include "usb/gadget.h"
#include "usb/usb_description.h"
#include "usb/usb_link_state.h"
#include "usb/usb_reader.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// What the code under test did beyond the gadget files. Pauses and the reader's stop are among the
// calls instead, where their place in the order is seen.
inline std::vector<std::string> steps;
inline bool allocation_fails = false;
inline bool mutex_fails = false;
inline bool thread_fails = false;
inline bool poll_fails = false;
inline int bridge_result = 0;
inline std::vector<useconds_t> sleeps;
inline short polled_events = 0;
inline int polled_timeout = 0;
inline short forced_events = 0;  // what poll returns at once; 0: what the file has
inline int busy_in_poll = 0;
inline int handling_in_poll = 0;
inline int handling_in_event = 0;
inline int busy_in_event = 0;
// What the host did before the device was looked at: there as its flags are asked for.
inline Bytes first_events;
inline bool control_breaks_first = false;
inline int fcntls = 0;
inline int failing_fcntl = 0;  // the first, second, third; 0: none

// -- what the link is built on, seen from the test -----------------------------------------------

int udp_bridge_open(std::uint16_t port) {
    steps.push_back("bridge " + std::to_string(port));
    return bridge_result;
}

bool usb_reader_start() {
    if (thread_fails) {
        return false;
    }
    steps.push_back("start reader");
    handling_in_event = usb_link.handling_events;
    busy_in_event = usb_link.busy;
    usb_link.reader = 1;
    return true;
}
void usb_reader_stop() {
    fake_call("stop reader");
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocation_fails ? nullptr : ::operator new[](size);
}

extern "C" {
int __wrap_system(const char* command);
int __wrap_usleep(useconds_t time);
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);

int __wrap_poll(pollfd* files, nfds_t count, int timeout) {
    polled_events = files->events;
    polled_timeout = timeout;
    busy_in_poll = usb_link.busy;
    handling_in_poll = usb_link.handling_events;
    if (forced_events != 0) {
        files->revents = forced_events;
        return 1;
    }
    if (poll_fails) {
        errno = ENOMEM;
        return -1;
    }
    return __real_poll(files, count, timeout);
}

// "FILE gets flags", "FILE is non-blocking" and "FILE blocks" among the calls.
int __wrap_fcntl(int fd, int operation, ...) {
    va_list arguments;
    va_start(arguments, operation);
    const int flags = operation == F_SETFL ? va_arg(arguments, int) : 0;
    va_end(arguments);
    const std::string name = fake_name(fd);
    if (operation == F_GETFL && !first_events.empty()) {
        fake_send(name, first_events);
    }
    if (operation == F_GETFL && control_breaks_first) {
        fake_break(name);
    }
    if (++fcntls == failing_fcntl) {
        errno = EBADF;
        return -1;
    }
    const char* const text = operation == F_GETFL             ? " gets flags"
                             : flags == O_RDWR                ? " blocks"
                             : flags == (O_RDWR | O_NONBLOCK) ? " is non-blocking"
                                                              : " gets other flags";
    fake_call(name + text);
    return __real_fcntl(fd, operation, flags);
}

int __wrap_system(const char* command) {
    steps.push_back(command);
    return 256;  // all of them may fail
}

int __wrap_usleep(useconds_t time) {
    sleeps.push_back(time);
    fake_call("pause " + std::to_string(time) + ", stop flag " + std::to_string(usb_link.stop));
    usb_link.busy = 0;  // whom a wait in a loop waits for
    return 0;
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    if (mutex == &usb_link.mutex && mutex_fails) {
        return ENOMEM;
    }
    return __real_pthread_mutex_init(mutex, attributes);
}
}

inline const std::string kControl = "fe980000.usb";
inline const Bytes kDisconnect = {0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0};
inline const Bytes kConnectFull = {2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
inline const Bytes kConnectHigh = {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
inline const Bytes kSuspend = {0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0};
inline const Bytes kConfigure2 = {0x00, 9, 2, 0, 0, 0, 0, 0, 3, 0, 0, 0};
inline const Bytes kConfigure0 = {0x00, 9, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0};

inline std::string last_of(const std::vector<std::string>& texts) {
    return texts.empty() ? "" : texts.back();
}

// While it lives, each line that is printed is among the calls.
class LinesAmongCalls {
  public:
    LinesAmongCalls() {
        cookie_io_functions_t functions{};
        functions.write = [](void* /*cookie*/, const char* text, std::size_t length) {
            fake_call("prints " + std::string(text, length));
            return static_cast<ssize_t>(length);
        };
        stderr = fopencookie(nullptr, "w", functions);
        setvbuf(stderr, nullptr, _IOLBF, 0);
    }
    LinesAmongCalls(const LinesAmongCalls&) = delete;
    LinesAmongCalls& operator=(const LinesAmongCalls&) = delete;
    ~LinesAmongCalls() {
        fclose(stderr);
        stderr = before_;
    }

  private:
    FILE* before_ = stderr;
};

class Gadget : public testing::Test {
  protected:
    Gadget() {
        fake_reset();
        allocation_fails = mutex_fails = thread_fails = poll_fails = false;
        bridge_result = 0;
        forced_events = 0;
        busy_in_poll = handling_in_poll = handling_in_event = busy_in_event = 0;
        first_events.clear();
        control_breaks_first = false;
        fcntls = failing_fcntl = 0;
        usb_link.handling_events = 0;
        usb_link.in_endpoint = nullptr;
        usb_link.out_endpoint = nullptr;
        usb_link.reader = 0;
        usb_link.stop = 0;
        usb_link.busy = 0;
        usb_link.receiving = 0;
        usb_link.last_rx_ms = 0;
        usb_link.handle = nullptr;
        usb_link.control = {};
        steps.clear();
        sleeps.clear();
    }
    ~Gadget() override {
        delete[] usb_link.receive_buffer.exchange(nullptr);
        free_device(usb_link.handle);
    }

    // Opened, with the lines and calls of it dropped.
    static void start() {
        CaptureStderr();
        EXPECT_EQ(gadget_init(0x18D1, 0x2D01), 0);
        GetCapturedStderr();
        take_calls();
        steps.clear();
    }
    // One pass of endpoint zero's service with that to read; the lines of it.
    static std::string pass(const Bytes& events) {
        fake_send(kControl, events);
        CaptureStderr();
        EXPECT_EQ(gadget_poll(), 1);
        return GetCapturedStderr();
    }
};
