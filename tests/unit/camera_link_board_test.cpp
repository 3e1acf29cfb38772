// The camera link as a whole on the simulated board: a USB host behind the kernel's rules.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "link/udp_bridge.h"
#include "simulator/simulated_board.h"
#include "usb/camera_send.h"
#include "usb/gadget.h"
#include "usb/usb_link_state.h"
#include "usb/usb_reader.h"
#include "video/usb_stream_demux.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

constexpr auto kSoon = Milliseconds(10000);

std::mutex taken_mutex;
std::condition_variable taken_more;
Bytes taken;  // what the demultiplexer was given

}  // namespace

int udp_bridge_open(std::uint16_t /*port*/) {
    return 0;
}

int usb_stream_demux(std::uint8_t* buffer, std::size_t* fill_count) {
    const std::lock_guard lock(taken_mutex);
    taken.insert(taken.end(), buffer, buffer + *fill_count);
    *fill_count = 0;
    taken_more.notify_all();
    return 0;
}

namespace {

// A link that has been opened, and a thread in the watchdog's place, only that it looks more often.
// Its pauses are the reader's chance: no bulk read is begun while endpoint zero is serviced.
class CameraLinkOnBoard : public testing::Test {
  protected:
    CameraLinkOnBoard() {
        taken.clear();
        setenv("GADGETFS_SIM_ROOT", board_.root().c_str(), 1);
        usb_link.stop = 0;
        CaptureStderr();
        opened_ = gadget_init(0x18D1, 0x2D01) == 0;
    }
    ~CameraLinkOnBoard() override {
        quit_ = true;
        if (watchdog_.joinable()) {
            watchdog_.join();
        }
        UsbGadgetHandle* handle = usb_link.handle;
        gadget_exit();
        while (UsbGadgetEndpoint* endpoint = handle->closed) {
            handle->closed = endpoint->next;
            delete endpoint;
        }
        delete handle;
        GetCapturedStderr();
        unsetenv("GADGETFS_SIM_ROOT");
    }
    void SetUp() override {
        ASSERT_TRUE(opened_);
        watch();
    }
    void watch() {
        watchdog_ = std::thread([this] {
            while (!quit_ && (gadget_is_receiving() || gadget_poll() == 1)) {
                std::this_thread::sleep_for(Milliseconds(20));
            }
        });
    }
    static bool wait_for_taken(std::size_t count) {
        std::unique_lock lock(taken_mutex);
        return taken_more.wait_for(lock, kSoon, [count] { return taken.size() >= count; });
    }
    static bool wait_for_no_endpoints() {
        const auto deadline = std::chrono::steady_clock::now() + kSoon;
        while (usb_link.in_endpoint != nullptr || usb_link.out_endpoint != nullptr) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    SimulatedBoard board_;
    bool opened_ = false;
    std::atomic<bool> quit_ = false;
    std::thread watchdog_;
};

TEST_F(CameraLinkOnBoard, HostEnumeratesTheDevice) {
    EXPECT_TRUE(board_.enumerate());
    EXPECT_TRUE(board_.wait_for_endpoints(kSoon));
}

// The watchdog has yet to look for the first time.
class CameraLinkWithoutWatchdog : public CameraLinkOnBoard {
  protected:
    void SetUp() override { ASSERT_TRUE(opened_); }
};

TEST_F(CameraLinkWithoutWatchdog, HostThatConfiguresFirstIsHeard) {
    auto configured = std::async(std::launch::async, [this] { return board_.configure(); });
    // The request is made, and is not for the kernel to answer.
    EXPECT_EQ(configured.wait_for(kHostAsksAfter + Milliseconds(80)), std::future_status::timeout);
    EXPECT_EQ(usb_link.out_endpoint, nullptr);
    watch();
    EXPECT_TRUE(configured.get());
    EXPECT_TRUE(board_.wait_for_endpoints(kSoon));
}

TEST_F(CameraLinkOnBoard, BytesOfTheCameraReachTheDemultiplexer) {
    ASSERT_TRUE(board_.configure());
    Bytes sent;
    for (int i = 0; i < 5000; ++i) {
        sent.push_back(static_cast<std::uint8_t>(i * 7 + i / 256));
    }
    EXPECT_TRUE(board_.bulk_out(sent));
    EXPECT_TRUE(wait_for_taken(sent.size()));
    const std::lock_guard lock(taken_mutex);
    EXPECT_EQ(taken, sent);
}

TEST_F(CameraLinkOnBoard, PacketIsOneTransferToTheCamera) {
    ASSERT_TRUE(board_.configure());
    const std::uint8_t packet[] = {0x55, 0x0E, 0x04, 0x66};
    EXPECT_EQ(camera_send(packet, sizeof packet), 4);
    EXPECT_EQ(board_.wait_for_bulk_in(0, kSoon), (Bytes{0x55, 0x0E, 0x04, 0x66}));
}

TEST_F(CameraLinkOnBoard, DisconnectBeforeDataAllowsANewConfiguration) {
    ASSERT_TRUE(board_.configure());
    board_.disconnect();  // in the reader's first second: it has not read yet
    // The kernel drops an event that has not been read when the next connect comes.
    ASSERT_TRUE(wait_for_no_endpoints());
    EXPECT_TRUE(board_.configure());
    EXPECT_TRUE(board_.wait_for_endpoints(kSoon));
    const Bytes sent = {0x55, 0xCC, 0x49};
    EXPECT_TRUE(board_.bulk_out(sent));
    EXPECT_TRUE(wait_for_taken(sent.size()));
}

TEST_F(CameraLinkOnBoard, HostMayConfigureAgainAfterConfigurationZero) {
    ASSERT_TRUE(board_.configure());
    EXPECT_EQ(board_.control({0x00, 9, 0, 0, 0}).status, ControlStatus::kAcknowledged);
    EXPECT_EQ(board_.control({0x00, 9, 2, 0, 0}).status, ControlStatus::kAcknowledged);
    const Bytes sent = {0x55, 0xCC, 0x49};
    EXPECT_TRUE(board_.bulk_out(sent));
    EXPECT_TRUE(wait_for_taken(sent.size()));
}

TEST_F(CameraLinkOnBoard, UnplugAfterDataEndsTheLink) {
    ASSERT_TRUE(board_.configure());
    ASSERT_TRUE(board_.bulk_out(Bytes{0x55}));
    ASSERT_TRUE(wait_for_taken(1));
    board_.disconnect();
    watchdog_.join();  // its loop ends with the link
    watchdog_ = std::thread([] {});
    EXPECT_EQ(usb_link.stop, 1);
    EXPECT_FALSE(gadget_is_receiving());
}

}  // namespace
