// The reader thread: the bytes it takes off the OUT endpoint, and every way in which it ends.
#include "usb/usb_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "app/millisecond_clock.h"
#include "tests/unit/fake_gadgetfs.h"
#include "usb/usb-gadget/usb-gadget-internal.h"
#include "usb/usb_description.h"
#include "usb/usb_link_state.h"
#include "video/usb_stream_demux.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

const std::string kIn = "ep6in-bulk";
const std::string kOut = "ep2out-bulk";

std::mutex demux_mutex;
std::condition_variable demux_called;
std::vector<std::size_t> fills;  // fill count at each call of the demultiplexer
Bytes seen;                      // the buffer at the last call
int demux_result = 0;
bool demux_consumes = false;
bool demux_stops_the_link = false;
bool demux_cancels_its_thread = false;
int demux_cancel_state = -1;  // at the last call

std::mutex sleep_mutex;
std::condition_variable sleep_called;
std::vector<useconds_t> sleeps;
std::atomic<pid_t> newest_reader;  // the thread that last began with its long sleep

void note_sleep(useconds_t time) {
    const std::lock_guard lock(sleep_mutex);
    sleeps.push_back(time);
    sleep_called.notify_all();
}

}  // namespace

int usb_stream_demux(std::uint8_t* buffer, std::size_t* fill_count) {
    if (demux_cancels_its_thread) {
        pthread_cancel(pthread_self());
    }
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &demux_cancel_state);
    pthread_setcancelstate(demux_cancel_state, nullptr);
    const std::lock_guard lock(demux_mutex);
    fills.push_back(*fill_count);
    seen.assign(buffer, buffer + *fill_count);
    if (demux_consumes) {
        *fill_count = 0;
    }
    if (demux_stops_the_link) {
        usb_link.stop = 1;
    }
    demux_called.notify_all();
    return demux_result;
}

extern "C" {
int __real_usleep(useconds_t time);
int __wrap_usleep(useconds_t time);

// Long pauses are noted and cut to a millisecond; still a cancellation point.
int __wrap_usleep(useconds_t time) {
    if (time == 1000000) {
        newest_reader = gettid();
    }
    note_sleep(time);
    return __real_usleep(time < 1000 ? time : 1000);
}
}

namespace {

class UsbReader : public testing::Test {
  protected:
    UsbReader() {
        fake_reset();
        fills.clear();
        seen.clear();
        sleeps.clear();
        demux_result = 0;
        demux_consumes = false;
        demux_stops_the_link = false;
        demux_cancels_its_thread = false;
        demux_cancel_state = -1;
        usb_link.stop = 0;
        usb_link.busy = 0;
        usb_link.receiving = 0;
        usb_link.last_rx_ms = 0;
        usb_link.fill_count = 0;
        usb_link.handling_events = 0;
        usb_link.receive_buffer = new std::uint8_t[50100];
        usb_link.handle = usb_gadget_open(usb_description(0x18D1, 0x2D01));
        usb_link.handle->speed = kUsbSpeedHigh;
        set_config(usb_link.handle);
        usb_link.in_endpoint = usb_gadget_endpoint(usb_link.handle, 6);
        usb_link.out_endpoint = usb_gadget_endpoint(usb_link.handle, 2);
        take_calls();
        CaptureStderr();
    }
    ~UsbReader() override {
        usb_reader_stop();
        GetCapturedStderr();
        delete[] usb_link.receive_buffer.exchange(nullptr);
        free_device(usb_link.handle);
    }

    static void start() { ASSERT_TRUE(usb_reader_start()); }
    // Until the thread has ended by itself; the lines printed.
    static std::string finish() {
        pthread_join(usb_link.reader, nullptr);
        usb_link.reader = 0;
        std::string log = GetCapturedStderr();
        CaptureStderr();
        return log;
    }
    // Likewise for a thread that ends by a cancellation.
    static std::string finish_cancelled() {
        void* result = nullptr;
        pthread_join(usb_link.reader, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        usb_link.reader = 0;
        std::string log = GetCapturedStderr();
        CaptureStderr();
        return log;
    }
    // The kernel lists a thread for a moment longer than it can be waited for.
    static bool wait_for_end_of(pid_t thread) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (tgkill(getpid(), thread, 0) == 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }
    static std::ptrdiff_t reads_begun() {
        const std::lock_guard lock(fake.mutex);
        return std::count(fake.calls.begin(), fake.calls.end(), kOut + " waits");
    }
    static bool wait_for_demux(std::size_t calls) {
        std::unique_lock lock(demux_mutex);
        return demux_called.wait_for(lock, std::chrono::seconds(10),
                                     [calls] { return fills.size() >= calls; });
    }
    static bool wait_for_sleeps(std::size_t count) {
        std::unique_lock lock(sleep_mutex);
        return sleep_called.wait_for(lock, std::chrono::seconds(10),
                                     [count] { return sleeps.size() >= count; });
    }
    static std::vector<useconds_t> first_sleeps(std::ptrdiff_t count) {
        const std::lock_guard lock(sleep_mutex);
        return {sleeps.begin(), sleeps.begin() + count};
    }
    static void expect_both_endpoints_closed() {
        EXPECT_EQ(usb_link.in_endpoint, nullptr);
        EXPECT_EQ(usb_link.out_endpoint, nullptr);
        EXPECT_EQ(take_calls(), (Calls{kIn + " close", kOut + " close"}));
    }
};

TEST_F(UsbReader, SleepsOneSecondBeforeTheFirstRead) {
    usb_link.stop = 1;
    start();
    EXPECT_EQ(finish(), "");
    EXPECT_EQ(sleeps, std::vector<useconds_t>{1000000});
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, PacketsAreGatheredAndHandedOn) {
    const std::uint32_t before = clock_ms();
    fake_send(kOut, {0x55, 0xCC});
    fake_send(kOut, {0x49, 0x57, 0x01});
    start();
    ASSERT_TRUE(wait_for_demux(2));
    EXPECT_EQ(fills, (std::vector<std::size_t>{2, 5}));
    EXPECT_EQ(seen, (Bytes{0x55, 0xCC, 0x49, 0x57, 0x01}));
    EXPECT_EQ(usb_link.receiving, 1);
    EXPECT_LE(usb_link.last_rx_ms - before, clock_ms() - before);
}

TEST_F(UsbReader, WhatTheDemultiplexerConsumedMakesRoom) {
    demux_consumes = true;
    fake_send(kOut, Bytes(512, 0x11));
    fake_send(kOut, {0x22, 0x33});
    start();
    ASSERT_TRUE(wait_for_demux(2));
    EXPECT_EQ(fills, (std::vector<std::size_t>{512, 2}));
    EXPECT_EQ(seen, (Bytes{0x22, 0x33}));
}

TEST_F(UsbReader, ReadsAreOf512Bytes) {
    fake_send(kOut, Bytes(600, 0x11));  // what is above is lost with the packet
    start();
    ASSERT_TRUE(wait_for_demux(1));
    EXPECT_EQ(fills, std::vector<std::size_t>{512});
}

TEST_F(UsbReader, BusyFlagIsSetDuringTheRead) {
    start();
    ASSERT_TRUE(wait_for_call(kOut + " waits"));
    EXPECT_EQ(usb_link.busy, 1);
    EXPECT_EQ(usb_link.receiving, 0);
    demux_stops_the_link = true;
    fake_send(kOut, {0x55});
    finish();
    EXPECT_EQ(usb_link.busy, 0);
}

TEST_F(UsbReader, WaitsForEndpointZeroBeforeTheRead) {
    usb_link.busy = 1;
    fake_send(kOut, {0x55});
    start();
    ASSERT_TRUE(wait_for_sleeps(3));
    EXPECT_EQ(first_sleeps(3), (std::vector<useconds_t>{1000000, 1000, 1000}));
    {
        const std::lock_guard lock(fake.mutex);
        EXPECT_EQ(fake.calls, Calls{});  // not even a read that waits
    }
    usb_link.busy = 0;
    EXPECT_TRUE(wait_for_demux(1));
}

// -- hand-over -----------------------------------------------------------------------------------

TEST_F(UsbReader, StartReplacesAReaderThatWaitsAndKeepsTheEndpointsOpen) {
    ASSERT_TRUE(usb_reader_start());
    ASSERT_TRUE(wait_for_call(kOut + " waits"));
    const pid_t first = newest_reader;
    ASSERT_TRUE(usb_reader_start());
    EXPECT_TRUE(wait_for_end_of(first));
    EXPECT_NE(usb_link.in_endpoint, nullptr);
    EXPECT_NE(usb_link.out_endpoint, nullptr);
    EXPECT_THAT(take_calls(), testing::Not(testing::Contains(testing::HasSubstr("close"))));
    // The first was stopped in its read, with the flag set; endpoint zero's service clears it.
    usb_link.busy = 0;
    fake_send(kOut, {0x55, 0xCC});
    ASSERT_TRUE(wait_for_demux(1));
    EXPECT_EQ(seen, (Bytes{0x55, 0xCC}));
}

// -- overflow ------------------------------------------------------------------------------------

TEST_F(UsbReader, FillOf49486BytesIsKept) {
    usb_link.fill_count = 49486 - 512;
    demux_stops_the_link = true;
    fake_send(kOut, Bytes(512, 0x11));
    start();
    EXPECT_EQ(finish(), "");
    EXPECT_EQ(fills, std::vector<std::size_t>{49486});
}

TEST_F(UsbReader, FillOf49487BytesEmptiesTheBuffer) {
    usb_link.fill_count = 49487 - 512;
    demux_stops_the_link = true;
    fake_send(kOut, Bytes(512, 0x11));
    start();
    EXPECT_EQ(finish(), "Buffer overflowed\n");
    EXPECT_EQ(fills, std::vector<std::size_t>{0});
    EXPECT_EQ(usb_link.receiving, 1);
}

TEST_F(UsbReader, LargestFillStaysInTheBuffer) {
    usb_link.fill_count = 49486;
    fake_send(kOut, Bytes(512, 0x11));
    fake_send(kOut, {0x22});
    start();
    ASSERT_TRUE(wait_for_demux(2));
    EXPECT_EQ(fills, (std::vector<std::size_t>{0, 1}));
    EXPECT_EQ(seen, Bytes{0x22});
}

// -- ends ----------------------------------------------------------------------------------------

TEST_F(UsbReader, FailedReadEndsTheLink) {
    fake_break(kOut);
    usb_link.receiving = 1;
    start();
    EXPECT_EQ(finish(), "read failed\n");
    EXPECT_EQ(usb_link.receiving, 0);
    EXPECT_EQ(usb_link.stop, 1);
    EXPECT_EQ(usb_link.busy, 0);
    EXPECT_TRUE(fills.empty());
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, EmptyTransferEndsTheLink) {
    fake_send(kOut, {});
    start();
    EXPECT_EQ(finish(), "read failed\n");
    EXPECT_EQ(usb_link.stop, 1);
}

TEST_F(UsbReader, UnplugWhileReadingEndsTheLink) {
    start();
    ASSERT_TRUE(wait_for_call(kOut + " waits"));
    fake_break(kOut);
    EXPECT_EQ(finish(), "read failed\n");
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, ReadIsTooLongForFullSpeed) {
    usb_link.handle->speed = kUsbSpeedFull;
    fake_send(kOut, {0x55});
    start();
    EXPECT_EQ(finish(), "read failed\n");
    EXPECT_EQ(usb_link.stop, 1);
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, EndpointDisabledBeforeTheFirstReadEndsTheLink) {
    usb_link.in_endpoint = nullptr;
    usb_link.out_endpoint = nullptr;
    start();
    EXPECT_EQ(finish(), "read failed\n");
    EXPECT_EQ(usb_link.stop, 1);
    EXPECT_EQ(usb_link.busy, 0);
}

TEST_F(UsbReader, MissingBufferEndsTheThreadAlone) {
    delete[] usb_link.receive_buffer.exchange(nullptr);
    start();
    EXPECT_EQ(finish(), "");
    EXPECT_EQ(usb_link.stop, 0);
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, FatalResultOfTheDemultiplexerEndsTheLink) {
    demux_result = -1;
    fake_send(kOut, {0x55});
    start();
    EXPECT_EQ(finish(), "");
    EXPECT_EQ(usb_link.receiving, 0);
    EXPECT_EQ(usb_link.stop, 1);
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, StopFlagIsSeenAfterTheDemultiplexer) {
    demux_stops_the_link = true;
    fake_send(kOut, {0x55});
    fake_send(kOut, {0x66});
    start();
    EXPECT_EQ(finish(), "");
    EXPECT_EQ(fills.size(), 1U);
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, LeavesOnlyOutsideTheServiceOfEndpointZero) {
    usb_link.handling_events = 1;
    fake_break(kOut);
    start();
    ASSERT_TRUE(wait_for_sleeps(3));
    EXPECT_EQ(usb_link.stop, 1);
    EXPECT_EQ(take_calls(), Calls{});
    usb_link.handling_events = 0;
    EXPECT_EQ(finish(), "read failed\n");
    expect_both_endpoints_closed();
}

// -- cancellation --------------------------------------------------------------------------------

TEST_F(UsbReader, CancelledWhileReadingClosesBothEndpoints) {
    start();
    ASSERT_TRUE(wait_for_call(kOut + " waits"));
    usb_reader_stop();
    EXPECT_EQ(usb_link.reader, 0U);
    EXPECT_EQ(usb_link.stop, 0);  // the link goes on: the camera may come back
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, CancelledInItsFirstSleepClosesBothEndpoints) {
    usb_link.busy = 1;  // it gets no further than the waiting
    start();
    ASSERT_TRUE(wait_for_sleeps(1));
    usb_reader_stop();
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, CancellationWaitsForTheDemultiplexerAndNoLonger) {
    demux_cancels_its_thread = true;
    fake_send(kOut, {0x55, 0xCC});
    fake_send(kOut, {0x49});
    start();
    EXPECT_EQ(finish_cancelled(), "");
    EXPECT_EQ(demux_cancel_state, PTHREAD_CANCEL_DISABLE);
    EXPECT_EQ(fills, std::vector<std::size_t>{2});
    EXPECT_EQ(reads_begun(), 1);
    EXPECT_EQ(usb_link.busy, 0);
    EXPECT_EQ(usb_link.stop, 0);
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, CancellationWaitsForTheBookkeepingToo) {
    fake.data_cancels_reader = true;
    usb_link.fill_count = 49487 - 512;
    fake_send(kOut, Bytes(512, 0x11));
    fake_send(kOut, {0x49});
    start();
    EXPECT_EQ(finish_cancelled(), "Buffer overflowed\n");  // printing is a cancellation point
    EXPECT_EQ(usb_link.fill_count, 0U);
    EXPECT_EQ(fills, std::vector<std::size_t>{0});
    EXPECT_EQ(reads_begun(), 1);
    EXPECT_EQ(usb_link.receiving, 1);
    expect_both_endpoints_closed();
}

TEST_F(UsbReader, StoppingOneThatHasEndedIsHarmless) {
    usb_link.stop = 1;
    start();
    ASSERT_TRUE(wait_for_call(kOut + " close"));
    usb_reader_stop();
    EXPECT_EQ(usb_link.reader, 0U);
    usb_reader_stop();
    EXPECT_EQ(usb_link.reader, 0U);
}

TEST_F(UsbReader, AnotherReaderGoesOnAfterACancelledOne) {
    start();
    ASSERT_TRUE(wait_for_call(kOut + " waits"));
    usb_reader_stop();
    usb_link.busy =
        0;  // as the pass over endpoint zero leaves it, in which the reader is cancelled
    ASSERT_TRUE(set_config(usb_link.handle));
    usb_link.in_endpoint = usb_gadget_endpoint(usb_link.handle, 6);
    usb_link.out_endpoint = usb_gadget_endpoint(usb_link.handle, 2);
    fake_send(kOut, {0x55});
    start();
    EXPECT_TRUE(wait_for_demux(1));
}

}  // namespace
