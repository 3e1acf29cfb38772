// The camera link: its start, endpoint zero's service, its events and its end. The reader thread
// itself is shown in usb_reader_test; here a stand-in takes its place.
#include "usb/gadget.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "app/millisecond_clock.h"
#include "tests/unit/gadget_fixture.h"
#include "usb/camera_send.h"

namespace {

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
    EXPECT_EQ(last_of(steps), "start reader");
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
