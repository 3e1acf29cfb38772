// What is read from the control file, and what the callback is told.
#include <gtest/gtest.h>

#include "tests/unit/fake_gadgetfs.h"
#include "usb/usb_description.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

const std::string kControl = "fe980000.usb";

const Bytes kConnectHigh = {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
const Bytes kConnectFull = {2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
const Bytes kDisconnect = {0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0};
const Bytes kSuspend = {0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0};
const Bytes kNothing = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
const Bytes kUnknown = {0, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0};

struct Told {
    UsbGadgetHandle* handle;
    std::uint32_t type;
    int speed;  // of the handle at that moment
    void* argument;
};
std::vector<Told> told;

void record_event(UsbGadgetHandle* handle, const UsbGadgetEvent* event, void* argument) {
    told.push_back({handle, event->type, handle->speed, argument});
}

class UsbGadgetEvents : public testing::Test {
  protected:
    UsbGadgetEvents() {
        fake_reset();
        device_ = usb_gadget_open(usb_description(0x18D1, 0x2D01));
        usb_gadget_set_event_cb(device_, record_event, &argument_);
        take_calls();
        told.clear();
    }
    ~UsbGadgetEvents() override { free_device(device_); }

    ssize_t handle(const Bytes& bytes) {
        fake_send(kControl, bytes);
        return usb_gadget_handle_event(device_);
    }

    int argument_ = 0;
    UsbGadgetHandle* device_ = nullptr;
};

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

TEST_F(UsbGadgetEvents, ConnectStoresTheSpeedThenCallsBack) {
    EXPECT_EQ(handle(kConnectHigh), 12);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].handle, device_);
    EXPECT_EQ(told[0].type, 2U);
    EXPECT_EQ(told[0].speed, 3);
    EXPECT_EQ(told[0].argument, &argument_);
}

TEST_F(UsbGadgetEvents, DisconnectForgetsTheSpeed) {
    handle(kConnectHigh);
    EXPECT_EQ(handle(kDisconnect), 12);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[1].type, 3U);
    EXPECT_EQ(told[1].speed, 0);
}

TEST_F(UsbGadgetEvents, SuspendKeepsTheSpeed) {
    handle(kConnectFull);
    EXPECT_EQ(handle(kSuspend), 12);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[1].type, 4U);
    EXPECT_EQ(told[1].speed, 2);
}

TEST_F(UsbGadgetEvents, OtherTypesAreIgnored) {
    EXPECT_EQ(handle(kNothing + kUnknown), 24);
    EXPECT_TRUE(told.empty());
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(UsbGadgetEvents, WithoutACallbackTheSpeedIsNotKept) {
    usb_gadget_set_event_cb(device_, nullptr, nullptr);
    EXPECT_EQ(handle(kConnectHigh + kDisconnect + kSuspend), 36);
    EXPECT_EQ(device_->speed, 0);
    handle(kConnectHigh);
    EXPECT_EQ(device_->speed, 0);
}

TEST_F(UsbGadgetEvents, WithoutACallbackADisconnectLeavesTheSpeed) {
    handle(kConnectHigh);
    usb_gadget_set_event_cb(device_, nullptr, nullptr);
    handle(kDisconnect);
    EXPECT_EQ(device_->speed, 3);
}

TEST_F(UsbGadgetEvents, FewerThanTwelveBytesAreNoEvent) {
    usb_gadget_set_debug_level(device_, 2);
    for (std::size_t length = 0; length < 12; ++length) {
        CaptureStderr();
        EXPECT_EQ(handle(Bytes(kConnectHigh.begin(),
                               kConnectHigh.begin() + static_cast<std::ptrdiff_t>(length))),
                  static_cast<ssize_t>(length));
        EXPECT_EQ(GetCapturedStderr(), "usb-gadget: 0 events received\n");
    }
    EXPECT_TRUE(told.empty());
}

TEST_F(UsbGadgetEvents, PartOfAnEventAtTheEndIsDropped) {
    EXPECT_EQ(handle(kConnectHigh + Bytes(kDisconnect.begin(), kDisconnect.end() - 1)), 23);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].type, 2U);
}

TEST_F(UsbGadgetEvents, SixtyBytesAreFiveEventsInTheirOrder) {
    EXPECT_EQ(handle(kConnectFull + kSuspend + kDisconnect + kConnectHigh + kSuspend), 60);
    ASSERT_EQ(told.size(), 5U);
    const std::uint32_t types[] = {2, 4, 3, 2, 4};
    const int speeds[] = {2, 2, 0, 3, 3};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(told[i].type, types[i]) << i;
        EXPECT_EQ(told[i].speed, speeds[i]) << i;
    }
}

TEST_F(UsbGadgetEvents, AtMostFiveEventsAreRead) {
    const Bytes six = kSuspend + kSuspend + kSuspend + kSuspend + kSuspend + kDisconnect;
    EXPECT_EQ(handle(six), 60);
    EXPECT_EQ(told.size(), 5U);
}

TEST_F(UsbGadgetEvents, FailedReadIsReturnedAsItIs) {
    const int control = usb_gadget_control_fd(device_);
    fcntl(control, F_SETFL, O_NONBLOCK);  // nothing to read is an error then
    usb_gadget_set_debug_level(device_, 2);
    CaptureStderr();
    errno = 0;
    EXPECT_EQ(usb_gadget_handle_event(device_), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(UsbGadgetEvents, EveryStepIsReportedAtLevelTwo) {
    usb_gadget_set_debug_level(device_, 2);
    const Bytes language = {0x80, 6, 0, 3, 0, 0, 0xFF, 0x01, 3, 0, 0, 0};
    CaptureStderr();
    handle(kConnectHigh + language + kDisconnect + kUnknown);
    EXPECT_EQ(GetCapturedStderr(),
              "usb-gadget: 4 events received\n"
              "usb-gadget: event 1\n"
              "usb-gadget: connected with speed 3\n"
              "usb-gadget: event 3\n"
              "usb-gadget: setup: ctrl->bRequestType = 128, ctrl->bRequest = 6, "
              "ctrl->wValue = 768, ctrl->wIndex = 0, ctrl->wLength = 511\n"
              "usb-gadget: event 2\n"
              "usb-gadget: event 5\n");
}

TEST_F(UsbGadgetEvents, NothingIsReportedAtLevelZero) {
    usb_gadget_set_debug_level(device_, 0);
    CaptureStderr();
    handle(kConnectHigh + kDisconnect);
    EXPECT_EQ(GetCapturedStderr(), "");
}

}  // namespace
