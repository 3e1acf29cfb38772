// The camera link: its start, endpoint zero's service, its events and its end. The reader thread
// itself is shown in usb_reader_test; here a stand-in takes its place.
#include "usb/gadget.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <new>
#include <utility>

#include "app/millisecond_clock.h"
#include "link/udp_bridge.h"
#include "tests/unit/fake_gadgetfs.h"
#include "usb/camera_send.h"
#include "usb/usb_description.h"
#include "usb/usb_link_state.h"
#include "usb/usb_reader.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

// What the code under test did beyond the gadget files. Pauses and the reader's stop are among the
// calls instead, where their place in the order is seen.
std::vector<std::string> steps;
bool allocation_fails = false;
bool mutex_fails = false;
bool thread_fails = false;
bool poll_fails = false;
int bridge_result = 0;
std::vector<useconds_t> sleeps;
short polled_events = 0;
int polled_timeout = 0;
short forced_events = 0;  // what poll returns at once; 0: what the file has
int busy_in_poll = 0;
int handling_in_poll = 0;
int handling_in_event = 0;
int busy_in_event = 0;
// What the host did before the device was looked at: there as its flags are asked for.
Bytes first_events;
bool control_breaks_first = false;
int fcntls = 0;
int failing_fcntl = 0;  // the first, second, third; 0: none

}  // namespace

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
int __real_poll(pollfd* files, nfds_t count, int timeout);
int __wrap_poll(pollfd* files, nfds_t count, int timeout);
int __real_fcntl(int fd, int operation, ...);
int __wrap_fcntl(int fd, int operation, ...);
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

namespace {

const std::string kControl = "fe980000.usb";
const Bytes kDisconnect = {0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0};
const Bytes kConnectFull = {2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
const Bytes kConnectHigh = {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
const Bytes kSuspend = {0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0};
const Bytes kConfigure2 = {0x00, 9, 2, 0, 0, 0, 0, 0, 3, 0, 0, 0};
const Bytes kConfigure0 = {0x00, 9, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0};

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

using GadgetDeathTest = Gadget;

// -- start ---------------------------------------------------------------------------------------

TEST_F(Gadget, StartMountsThenOpensTheAccessoryDevice) {
    CaptureStderr();
    EXPECT_EQ(gadget_start(), 0);
    EXPECT_EQ(GetCapturedStderr(),
              "Mounting gadgetfs\n"
              "USB device opened\n"
              "Gadget init done\n");
    EXPECT_EQ(steps, (std::vector<std::string>{
                         "modprobe gadgetfs > /dev/null 2>&1",
                         "mkdir /dev/gadget > /dev/null 2>&1",
                         "mount -t gadgetfs none /dev/gadget > /dev/null 2>&1",
                         "bridge 6000",
                     }));
    const Calls calls = take_calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_TRUE(calls[0].ends_with(" 12 01 00 02 FF 00 00 00 D1 18 01 2D 00 00 19 2D 65 01"));
}

TEST_F(Gadget, StartReportsAFailedInit) {
    fake.directory = {"dummy_udc"};
    CaptureStderr();
    EXPECT_EQ(gadget_start(), 1);
    EXPECT_EQ(GetCapturedStderr(),
              "Mounting gadgetfs\n"
              "Couldn't open USB device\n"
              "Gadget init failed\n");
}

TEST_F(Gadget, StartReportsMissingMemory) {
    allocation_fails = true;
    CaptureStderr();
    EXPECT_EQ(gadget_start(), 1);
    EXPECT_EQ(GetCapturedStderr(),
              "Mounting gadgetfs\n"
              "Couldn't allocate memory\n"
              "Gadget init failed\n");
}

TEST_F(Gadget, StartReportsAMissingMutexOnTheSameLine) {
    mutex_fails = true;
    CaptureStderr();
    EXPECT_EQ(gadget_start(), 1);
    EXPECT_EQ(GetCapturedStderr(),
              "Mounting gadgetfs\n"
              "USB device opened\n"
              "Mutex init failedGadget init failed\n");
}

TEST_F(Gadget, InitTakesTheLinkIntoItsFirstState) {
    usb_link.receiving = 1;
    usb_link.fill_count = 77;
    const std::uint32_t before = clock_ms();
    start();
    EXPECT_FALSE(gadget_is_receiving());
    EXPECT_LE(gadget_last_rx_ms() - before, clock_ms() - before);
    EXPECT_EQ(usb_link.fill_count, 0U);
    EXPECT_NE(usb_link.receive_buffer, nullptr);
    EXPECT_EQ(usb_link.control.fd, usb_gadget_control_fd(usb_link.handle));
    EXPECT_EQ(usb_link.control.events, 3);
    EXPECT_EQ(usb_link.handle->event_cb, loopback_event_cb);
    EXPECT_EQ(usb_link.handle->event_argument, nullptr);
    EXPECT_EQ(usb_link.handle->debug_level, 0);
    EXPECT_EQ(usb_link.reader, 0U);
}

TEST_F(Gadget, InitWorksWithoutTheBridge) {
    bridge_result = -1;
    start();
}

TEST_F(Gadget, InitFailsWithoutMemory) {
    allocation_fails = true;
    CaptureStderr();
    EXPECT_EQ(gadget_init(0x18D1, 0x2D01), -1);
    EXPECT_EQ(GetCapturedStderr(), "Couldn't allocate memory\n");
    EXPECT_EQ(steps, std::vector<std::string>{"bridge 6000"});
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(Gadget, InitFailsWithoutADevice) {
    fake.has_directory = false;
    CaptureStderr();
    EXPECT_EQ(gadget_init(0x18D1, 0x2D01), -1);
    EXPECT_EQ(GetCapturedStderr(), "Couldn't open USB device\n");
}

TEST_F(Gadget, InitFailsWithoutAMutex) {
    mutex_fails = true;
    CaptureStderr();
    EXPECT_EQ(gadget_init(0x18D1, 0x2D01), -1);
    EXPECT_EQ(GetCapturedStderr(), "USB device opened\nMutex init failed");
}

// -- the first look at the control file ----------------------------------------------------------

// The device opened with that to find in the first look; the lines between the opening's own.
std::string first_look(const Bytes& events) {
    const std::string before = "USB device opened\n";
    const std::string after = "Gadget init done\n";
    first_events = events;
    CaptureStderr();
    EXPECT_EQ(gadget_init(0x18D1, 0x2D01), 0);
    const std::string lines = GetCapturedStderr();
    EXPECT_TRUE(lines.starts_with(before) && lines.ends_with(after)) << lines;
    return lines.substr(before.size(), lines.size() - before.size() - after.size());
}

// All of them since the opening, the read that may wait included, but for the description.
Calls calls_behind_the_description() {
    const std::lock_guard lock(fake.mutex);
    return fake.calls.empty() ? Calls{} : Calls(fake.calls.begin() + 1, fake.calls.end());
}

TEST_F(Gadget, InitLooksOnceWithoutWaitingThenTheFileBlocksAgain) {
    {
        const LinesAmongCalls lines;
        EXPECT_EQ(gadget_init(0x18D1, 0x2D01), 0);
    }
    EXPECT_EQ(calls_behind_the_description(), (Calls{
                                                  "prints USB device opened\n",
                                                  "fe980000.usb gets flags",
                                                  "fe980000.usb is non-blocking",
                                                  "fe980000.usb waits",
                                                  "fe980000.usb blocks",
                                                  "prints Gadget init done\n",
                                              }));
    EXPECT_EQ(fake.read_size, 60U);
    EXPECT_EQ(__real_fcntl(usb_link.control.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(usb_link.busy, 0);
    EXPECT_EQ(usb_link.handling_events, 0);
}

TEST_F(Gadget, FirstLookTakesWhatIsThereAndNoMore) {
    EXPECT_EQ(first_look(kConnectHigh), "");
    EXPECT_EQ(usb_link.handle->speed, 3);
    EXPECT_EQ(std::ranges::count(calls_behind_the_description(), "fe980000.usb waits"), 1);
}

TEST_F(Gadget, FirstLookMayFindADisconnect) {
    EXPECT_EQ(first_look(kDisconnect), "USB disconnected\n");
    EXPECT_EQ(take_calls().back(), "fe980000.usb blocks");
}

TEST_F(Gadget, FirstLookMayFindASuspend) {
    EXPECT_EQ(first_look(kSuspend), "");
}

TEST_F(Gadget, FirstLookAnswersARequest) {
    EXPECT_EQ(first_look({0x80, 6, 0, 3, 0, 0, 255, 0, 3, 0, 0, 0}), "");
    EXPECT_EQ(calls_behind_the_description(), (Calls{
                                                  "fe980000.usb gets flags",
                                                  "fe980000.usb is non-blocking",
                                                  "fe980000.usb waits",
                                                  "fe980000.usb write 04 03 09 04",
                                                  "fe980000.usb blocks",
                                              }));
}

TEST_F(Gadget, FirstLookMayConfigureTheDevice) {
    Bytes events = kConnectHigh;
    events.insert(events.end(), kConfigure2.begin(), kConfigure2.end());
    EXPECT_EQ(first_look(events), "USB connected\n");
    EXPECT_STREQ(usb_link.in_endpoint.load()->name, "ep6in-bulk");
    EXPECT_STREQ(usb_link.out_endpoint.load()->name, "ep2out-bulk");
    EXPECT_EQ(steps.back(), "start reader");
    EXPECT_EQ(handling_in_event, 1);
    EXPECT_EQ(busy_in_event, 1);
    const Calls calls = take_calls();
    ASSERT_GE(calls.size(), 2U);
    EXPECT_EQ(calls[calls.size() - 2], "fe980000.usb read");  // the acknowledgement
    EXPECT_EQ(calls.back(), "fe980000.usb blocks");
    EXPECT_EQ(gadget_poll(), 1);
}

TEST_F(Gadget, FirstLookThatFailsIsNoFailureOfTheInit) {
    control_breaks_first = true;
    EXPECT_EQ(first_look({}), "");
    EXPECT_EQ(take_calls().back(), "fe980000.usb blocks");
}

TEST_F(Gadget, FileThatWouldBlockIsNotLookedAt) {
    for (const int failing : {1, 2}) {
        fake_reset();
        fcntls = 0;
        failing_fcntl = failing;
        EXPECT_EQ(first_look(kDisconnect), "") << failing;  // there, so that a read would not wait
        for (const std::string& call : calls_behind_the_description()) {
            EXPECT_NE(call, "fe980000.usb waits");
        }
        EXPECT_EQ(fcntls, failing);
        delete[] usb_link.receive_buffer.exchange(nullptr);
        free_device(std::exchange(usb_link.handle, nullptr));
    }
}

TEST_F(Gadget, FileThatStaysNonBlockingIsNoFailureOfTheInit) {
    failing_fcntl = 3;
    EXPECT_EQ(first_look({}), "");
    EXPECT_EQ(fcntls, 3);
    EXPECT_EQ(gadget_poll(), 1);
}

TEST_F(Gadget, FirstLookComesBeforeTheMutex) {
    mutex_fails = true;
    first_events = kDisconnect;
    CaptureStderr();
    EXPECT_EQ(gadget_init(0x18D1, 0x2D01), -1);
    EXPECT_EQ(GetCapturedStderr(), "USB device opened\nUSB disconnected\nMutex init failed");
}

// -- endpoint zero -------------------------------------------------------------------------------

TEST_F(Gadget, PollWaitsTenMillisecondsWithTheBusyFlagSet) {
    start();
    CaptureStderr();
    EXPECT_EQ(gadget_poll(), 1);
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(polled_timeout, 10);
    EXPECT_EQ(polled_events, 3);  // POLLIN and POLLPRI
    EXPECT_EQ(busy_in_poll, 1);
    EXPECT_EQ(usb_link.busy, 0);
    EXPECT_TRUE(sleeps.empty());
}

TEST_F(Gadget, PollDoesNotWaitForAReadThatHasNotReturnedDataYet) {
    start();
    usb_link.busy = 1;
    EXPECT_EQ(gadget_poll(), 1);
    EXPECT_TRUE(sleeps.empty());
    EXPECT_EQ(usb_link.busy, 0);
}

TEST_F(Gadget, PollWaitsForTheReadWhileDataFlows) {
    start();
    usb_link.busy = 1;
    usb_link.receiving = 1;
    EXPECT_EQ(gadget_poll(), 1);
    EXPECT_EQ(sleeps, std::vector<useconds_t>{1000});
}

TEST_F(Gadget, PassIsMarkedInItsPollAndInItsEvents) {
    start();
    pass(kConfigure2);
    EXPECT_EQ(handling_in_poll, 1);
    EXPECT_EQ(handling_in_event, 1);  // as the reader was started
    EXPECT_EQ(usb_link.handling_events, 0);
}

TEST_F(Gadget, ControlFileIsReadForPollInAlone) {
    start();
    for (const int events : {POLLPRI, POLLHUP, POLLERR, POLLPRI | POLLHUP | POLLERR}) {
        forced_events = static_cast<short>(events);
        fake_send(kControl, kDisconnect);  // so that a read would not wait
        CaptureStderr();
        EXPECT_EQ(gadget_poll(), 1);
        EXPECT_EQ(GetCapturedStderr(), "");
        const std::lock_guard lock(fake.mutex);
        EXPECT_EQ(fake.calls, Calls{}) << events;  // not even a read that waits
    }
    forced_events = POLLIN | POLLHUP;
    fake_send(kControl, kDisconnect);
    CaptureStderr();
    EXPECT_EQ(gadget_poll(), 1);
    EXPECT_EQ(GetCapturedStderr(), "USB disconnected\n");
}

TEST_F(Gadget, PollAnswersTheHost) {
    start();
    EXPECT_EQ(pass({0x80, 6, 0, 3, 0, 0, 255, 0, 3, 0, 0, 0}), "");
    EXPECT_EQ(take_calls(), Calls{"fe980000.usb write 04 03 09 04"});
}

TEST_F(Gadget, FailedPollEndsTheLink) {
    start();
    poll_fails = true;
    CaptureStderr();
    EXPECT_EQ(gadget_poll(), 0);
    EXPECT_EQ(GetCapturedStderr(), "poll error or break!\n");
    EXPECT_EQ(usb_link.busy, 0);
}

TEST_F(Gadget, StopFlagEndsTheLinkWithoutALookAtTheEvents) {
    start();
    usb_link.stop = 1;
    fake_send(kControl, kDisconnect);
    CaptureStderr();
    EXPECT_EQ(gadget_poll(), 0);
    EXPECT_EQ(GetCapturedStderr(), "poll error or break!\n");
    EXPECT_EQ(usb_link.busy, 0);
    EXPECT_EQ(usb_link.handling_events, 0);
}

TEST_F(Gadget, FailedReadOfTheControlFileDoesNotEndTheLink) {
    start();
    usb_gadget_set_debug_level(usb_link.handle, 2);
    fake_break(kControl);  // readable from now on, and each read fails
    CaptureStderr();
    EXPECT_EQ(gadget_poll(), 1);
    EXPECT_EQ(GetCapturedStderr(), "");  // not even a number of events
}

// -- events --------------------------------------------------------------------------------------

TEST_F(Gadget, ConfigurationConnectsOnceBothEndpointsAreEnabled) {
    start();
    EXPECT_EQ(pass(kConfigure2), "USB connected\n");
    EXPECT_STREQ(usb_link.in_endpoint.load()->name, "ep6in-bulk");
    EXPECT_STREQ(usb_link.out_endpoint.load()->name, "ep2out-bulk");
    EXPECT_EQ(steps.back(), "start reader");
    EXPECT_EQ(usb_link.reader, 1U);
}

TEST_F(Gadget, ConfigurationAloneDoesNotSayConnectedWithOneEndpoint) {
    start();
    fake.directory = {"fe980000.usb", "ep6in-bulk"};
    EXPECT_EQ(pass(kConfigure2), "");
    EXPECT_NE(usb_link.in_endpoint, nullptr);
    EXPECT_EQ(usb_link.out_endpoint, nullptr);
    EXPECT_EQ(usb_link.reader, 0U);
}

TEST_F(Gadget, OutEndpointMayBeEnabledFirst) {
    start();
    pass(kConfigure2);
    usb_link.in_endpoint = nullptr;
    usb_link.out_endpoint = nullptr;
    const UsbGadgetEvent out{USB_GADGET_EP_ENABLE, 2};
    const UsbGadgetEvent in{USB_GADGET_EP_ENABLE, 6};
    CaptureStderr();
    loopback_event_cb(usb_link.handle, &out, nullptr);
    EXPECT_EQ(GetCapturedStderr(), "");
    CaptureStderr();
    loopback_event_cb(usb_link.handle, &in, nullptr);
    EXPECT_EQ(GetCapturedStderr(), "USB connected\n");
}

TEST_F(Gadget, AnyEnabledEndpointSaysConnectedWhileBothAreSet) {
    start();
    pass(kConfigure2);
    steps.clear();
    const UsbGadgetEvent other{USB_GADGET_EP_ENABLE, 9};
    CaptureStderr();
    loopback_event_cb(usb_link.handle, &other, nullptr);
    EXPECT_EQ(GetCapturedStderr(), "USB connected\n");
    EXPECT_TRUE(steps.empty());
}

TEST_F(Gadget, ConfigurationZeroClearsBothEndpoints) {
    start();
    pass(kConfigure2);
    EXPECT_EQ(pass(kConfigure0), "");
    EXPECT_EQ(usb_link.in_endpoint, nullptr);
    EXPECT_EQ(usb_link.out_endpoint, nullptr);
}

TEST_F(Gadget, DisabledEndpointsAreToldApartByTheirNumbers) {
    start();
    pass(kConfigure2);
    const UsbGadgetEvent other{USB_GADGET_EP_DISABLE, 3};
    loopback_event_cb(usb_link.handle, &other, nullptr);
    EXPECT_NE(usb_link.in_endpoint, nullptr);
    EXPECT_NE(usb_link.out_endpoint, nullptr);
    const UsbGadgetEvent in{USB_GADGET_EP_DISABLE, 6};
    loopback_event_cb(usb_link.handle, &in, nullptr);
    EXPECT_EQ(usb_link.in_endpoint, nullptr);
    EXPECT_NE(usb_link.out_endpoint, nullptr);
    const UsbGadgetEvent out{USB_GADGET_EP_DISABLE, 2};
    loopback_event_cb(usb_link.handle, &out, nullptr);
    EXPECT_EQ(usb_link.out_endpoint, nullptr);
}

TEST_F(Gadget, DisconnectStopsTheReader) {
    start();
    pass(kConfigure2);
    take_calls();
    EXPECT_EQ(pass(kDisconnect), "USB disconnected\n");
    EXPECT_EQ(take_calls(), Calls{"stop reader"});
}

TEST_F(Gadget, ConnectAndSuspendSayNothing) {
    start();
    EXPECT_EQ(pass(kConnectHigh), "");
    EXPECT_EQ(pass(kSuspend), "");
    EXPECT_TRUE(steps.empty());
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(GadgetDeathTest, ReaderThatCannotBeStartedIsAnAssertionFailure) {
    start();
    thread_fails = true;
    fake_send(kControl, kConfigure2);
    EXPECT_DEATH(gadget_poll(), "gadget.c:168: loopback_event_cb: Assertion `0' failed.");
}

// -- sending -------------------------------------------------------------------------------------

TEST_F(Gadget, SendingBeforeTheConfigurationSendsNothing) {
    start();
    const std::uint8_t packet[] = {0x55, 0x0E};
    EXPECT_EQ(camera_send(packet, sizeof packet), 0);
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(Gadget, PacketIsOneWriteOnTheInEndpoint) {
    start();
    pass(kConnectHigh);
    pass(kConfigure2);
    take_calls();
    const std::uint8_t packet[] = {0x55, 0x0E, 0x04, 0x66};
    EXPECT_EQ(camera_send(packet, sizeof packet), 4);
    EXPECT_EQ(take_calls(), Calls{"ep6in-bulk write 55 0E 04 66"});
}

TEST_F(Gadget, PacketOf513BytesFailsAtHighSpeed) {
    start();
    pass(kConnectHigh);
    pass(kConfigure2);
    take_calls();
    const Bytes packet(513, 0x55);
    EXPECT_EQ(camera_send(packet.data(), 513), -1);
    EXPECT_EQ(take_calls(), Calls{});
    EXPECT_EQ(camera_send(packet.data(), 512), 512);
}

TEST_F(Gadget, PacketOf65BytesFailsAtFullSpeed) {
    start();
    pass(kConnectFull);
    pass(kConfigure2);
    take_calls();
    const Bytes packet(65, 0x55);
    EXPECT_EQ(camera_send(packet.data(), 65), -1);
    EXPECT_EQ(take_calls(), Calls{});
    EXPECT_EQ(camera_send(packet.data(), 64), 64);
    EXPECT_EQ(take_calls(), Calls{"ep6in-bulk write" + hex(packet.data(), 64)});
}

TEST_F(Gadget, SendingOnceTheEndpointIsDisabledSendsNothing) {
    start();
    pass(kConfigure2);
    pass(kConfigure0);
    take_calls();
    const std::uint8_t packet[] = {0x55};
    EXPECT_EQ(camera_send(packet, 1), 0);
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(Gadget, PacketThatTheKernelRefusesFails) {
    start();
    pass(kConfigure2);
    fake.refuses_write = {"ep6in-bulk"};
    const std::uint8_t packet[] = {0x55};
    EXPECT_EQ(camera_send(packet, 1), -1);
}

// -- end -----------------------------------------------------------------------------------------

TEST_F(Gadget, ExitGivesTheSendersAPauseThenClosesTheDevice) {
    start();
    pass(kConfigure2);
    take_calls();
    {
        const LinesAmongCalls lines;
        gadget_exit();
    }
    EXPECT_EQ(take_calls(), (Calls{
                                "pause 200000, stop flag 1",
                                "stop reader",
                                "fe980000.usb close",
                                "ep2out-bulk close",
                                "ep6in-bulk close",
                                "prints Exit gadget\n",
                            }));
}

TEST_F(Gadget, ExitLeavesNothingOfTheLink) {
    start();
    pass(kConfigure2);
    usb_link.receiving = 1;
    CaptureStderr();
    gadget_exit();
    EXPECT_EQ(GetCapturedStderr(), "Exit gadget\n");
    EXPECT_EQ(usb_link.stop, 1);
    EXPECT_FALSE(gadget_is_receiving());
    EXPECT_EQ(gadget_last_rx_ms(), 0U);
    EXPECT_EQ(usb_link.receive_buffer, nullptr);
    const std::uint8_t packet[] = {0x55};
    EXPECT_EQ(camera_send(packet, 1), 0);
}

}  // namespace
