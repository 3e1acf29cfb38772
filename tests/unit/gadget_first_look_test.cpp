// The look for events as the device is opened, by which the kernel knows of a process that listens.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "tests/unit/gadget_fixture.h"

namespace {

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
    EXPECT_EQ(last_of(take_calls()), "fe980000.usb blocks");
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
    EXPECT_EQ(last_of(steps), "start reader");
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
    EXPECT_EQ(last_of(take_calls()), "fe980000.usb blocks");
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

}  // namespace
