// The start of the camera's side: the device first, the watchdog over it only when there is one.
#include "app/camera_link_start.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "app/supervision.h"
#include "event_list.h"
#include "link_start_calls.h"
#include "usb/gadget.h"

namespace {
EventList<std::string> calls;
int gadget_start_result = 0;
}  // namespace

int gadget_start() {
    calls.add("gadget_start");
    return gadget_start_result;
}

void* usb_watchdog_thread(void* unused) {
    pthread_detach(pthread_self());  // nobody waits for a watchdog, which has no end
    calls.add(unused == nullptr ? "watchdog" : "watchdog with an argument");
    return nullptr;
}

namespace {

using Calls = std::vector<std::string>;

TEST(CameraLinkStart, WatchdogStartsAfterTheDevice) {
    calls.clear();
    testing::internal::CaptureStderr();
    EXPECT_EQ(camera_link_start(), 0);
    EXPECT_EQ(calls.wait_for(2), (Calls{"gadget_start", "watchdog"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CameraLinkStart, WithoutADeviceThereIsNoWatchdog) {
    calls.clear();
    gadget_start_result = 1;
    EXPECT_EQ(camera_link_start(), 1);
    gadget_start_result = 0;
    // A watchdog would be seen at the latest before the one of a start that succeeds.
    EXPECT_EQ(camera_link_start(), 0);
    EXPECT_EQ(calls.wait_for(3), (Calls{"gadget_start", "gadget_start", "watchdog"}));
}

TEST(CameraLinkStart, WithoutAThreadForTheWatchdogTheStartSucceeds) {
    static int refused = 0;
    calls.clear();
    testing::internal::CaptureStderr();
    thread_hook = [](ThreadBody body) {
        EXPECT_EQ(body, &usb_watchdog_thread);
        ++refused;
        return EAGAIN;
    };
    EXPECT_EQ(camera_link_start(), 0);
    thread_hook = nullptr;
    EXPECT_EQ(refused, 1);
    EXPECT_EQ(calls.wait_for(1), (Calls{"gadget_start"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
