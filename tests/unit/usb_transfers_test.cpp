// The bulk transfers of the USB host, with libusb's submitting and cancelling replaced: this test
// is the device that takes and fills them.
#include "simulator/usb_transfers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "simulator/usb_host.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Milliseconds kSoon{10000};
constexpr Milliseconds kAtOnce{0};

// The transfers that are under way. What is cancelled ends on a thread of its own, as in libusb.
class FakeBus {
  public:
    FakeBus() : events_([this] { end_cancelled(); }) {}
    FakeBus(const FakeBus&) = delete;
    FakeBus& operator=(const FakeBus&) = delete;
    ~FakeBus() {
        {
            const std::lock_guard lock(mutex_);
            stop_ = true;
        }
        changed_.notify_all();
        events_.join();
    }

    int submit(libusb_transfer* transfer) {
        const std::lock_guard lock(mutex_);
        if (submit_error == 0) {
            under_way_.push_back(transfer);
            changed_.notify_all();
        }
        return submit_error;
    }
    int cancel(libusb_transfer* transfer) {
        const std::lock_guard lock(mutex_);
        cancelled_.push_back(transfer);
        changed_.notify_all();
        return 0;
    }

    // The n-th under way at that endpoint ends.
    void complete(std::uint8_t endpoint, std::size_t n, libusb_transfer_status status,
                  const Bytes& filled = {}) {
        libusb_transfer* const transfer = of(endpoint).at(n);
        std::copy(filled.begin(), filled.end(), transfer->buffer);
        end(transfer, status, static_cast<int>(filled.size()));
    }
    // What a cancelled transfer has been filled with by then.
    void fill_when_cancelled(const Bytes& bytes) {
        const std::lock_guard lock(mutex_);
        fill_ = bytes;
    }
    std::vector<Bytes> sent() {
        std::vector<Bytes> all;
        for (const libusb_transfer* each : of(kUsbHostOutEndpoint)) {
            all.emplace_back(each->buffer, each->buffer + each->length);
        }
        return all;
    }
    std::size_t reading() { return of(kUsbHostInEndpoint).size(); }
    bool wait_for_sent(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kSoon, [&] {
            return std::ranges::count(under_way_, kUsbHostOutEndpoint,
                                      &libusb_transfer::endpoint) ==
                   static_cast<std::ptrdiff_t>(count);
        });
    }

    int submit_error = 0;
    unsigned freed = 0;

  private:
    std::vector<libusb_transfer*> of(std::uint8_t endpoint) {
        const std::lock_guard lock(mutex_);
        std::vector<libusb_transfer*> found;
        std::ranges::copy_if(under_way_, std::back_inserter(found),
                             [&](const auto* each) { return each->endpoint == endpoint; });
        return found;
    }
    void end(libusb_transfer* transfer, libusb_transfer_status status, int filled) {
        {
            const std::lock_guard lock(mutex_);
            std::erase(under_way_, transfer);
            changed_.notify_all();
        }
        transfer->status = status;
        transfer->actual_length = filled;
        transfer->callback(transfer);
    }
    void end_cancelled() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [this] { return stop_ || !cancelled_.empty(); });
            if (stop_) {
                return;
            }
            libusb_transfer* const transfer = cancelled_.front();
            cancelled_.erase(cancelled_.begin());
            // One that has ended meanwhile may be gone.
            if (std::ranges::count(under_way_, transfer) != 0) {
                const Bytes fill = transfer->endpoint == kUsbHostInEndpoint ? fill_ : Bytes{};
                lock.unlock();
                std::copy(fill.begin(), fill.end(), transfer->buffer);
                end(transfer, LIBUSB_TRANSFER_CANCELLED, static_cast<int>(fill.size()));
                lock.lock();
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<libusb_transfer*> under_way_;
    std::vector<libusb_transfer*> cancelled_;
    Bytes fill_;
    bool stop_ = false;
    std::thread events_;
};

FakeBus* the_bus = nullptr;

class UsbTransfersTest : public testing::Test {
  protected:
    UsbTransfersTest() { the_bus = &bus; }
    void SetUp() override { transfers.begin(nullptr); }
    void TearDown() override { transfers.end(); }

    void out_ends(std::size_t n, libusb_transfer_status status = LIBUSB_TRANSFER_COMPLETED) {
        bus.complete(kUsbHostOutEndpoint, n, status);
    }
    void device_sends(const Bytes& bytes) {
        bus.complete(kUsbHostInEndpoint, 0, LIBUSB_TRANSFER_COMPLETED, bytes);
    }

    FakeBus bus;
    UsbTransfers transfers{3};
};

// -- bulk OUT

TEST_F(UsbTransfersTest, BytesLeaveInOrderInTransfersOfTheGivenSize) {
    EXPECT_TRUE(transfers.send(Bytes{1, 2, 3, 4, 5}, 2, kAtOnce));
    EXPECT_THAT(bus.sent(), ElementsAre(Bytes{1, 2}, Bytes{3, 4}, Bytes{5}));
}

TEST_F(UsbTransfersTest, TransferOfNoBytesIsSentOnRequestOnly) {
    EXPECT_TRUE(transfers.send(Bytes{1, 2}, 2, kAtOnce));
    EXPECT_TRUE(transfers.send_empty(kAtOnce));
    EXPECT_THAT(bus.sent(), ElementsAre(Bytes{1, 2}, Bytes{}));
}

TEST_F(UsbTransfersTest, NoMoreThanItsNumberAreUnderWay) {
    EXPECT_FALSE(transfers.send(Bytes{1, 2, 3, 4}, 1, Milliseconds(20)));
    EXPECT_THAT(bus.sent(), ElementsAre(Bytes{1}, Bytes{2}, Bytes{3}));
}

TEST_F(UsbTransfersTest, SenderWaitsUntilTheDeviceHasTakenOne) {
    bool sent = false;
    std::thread sender([&] { sent = transfers.send(Bytes{1, 2, 3, 4}, 1, kSoon); });
    EXPECT_TRUE(bus.wait_for_sent(3));
    out_ends(0);
    sender.join();
    EXPECT_TRUE(sent);
    EXPECT_THAT(bus.sent(), ElementsAre(Bytes{2}, Bytes{3}, Bytes{4}));
}

TEST_F(UsbTransfersTest, LastTransferIsWaitedFor) {
    EXPECT_TRUE(transfers.wait_for_taken(kAtOnce));
    transfers.send(Bytes{1, 2}, 1, kAtOnce);
    out_ends(0);
    EXPECT_FALSE(transfers.wait_for_taken(kAtOnce));
    out_ends(0);
    EXPECT_TRUE(transfers.wait_for_taken(kAtOnce));
}

TEST_F(UsbTransfersTest, FailedTransferTakesThoseBehindItAlong) {
    transfers.send(Bytes{1, 2, 3}, 1, kAtOnce);
    out_ends(0, LIBUSB_TRANSFER_ERROR);
    EXPECT_TRUE(bus.wait_for_sent(0));
    EXPECT_FALSE(transfers.send(Bytes{4}, 1, kSoon));
    EXPECT_FALSE(transfers.send_empty(kSoon));
    EXPECT_FALSE(transfers.wait_for_taken(kSoon));
    EXPECT_FALSE(transfers.met_no_device());
}

TEST_F(UsbTransfersTest, FailedTransferEndsTheWaitOfASender) {
    bool sent = true;
    std::thread sender([&] { sent = transfers.send(Bytes(5), 1, kSoon); });
    EXPECT_TRUE(bus.wait_for_sent(3));
    out_ends(0, LIBUSB_TRANSFER_STALL);
    sender.join();
    EXPECT_FALSE(sent);
}

TEST_F(UsbTransfersTest, NewBeginningForgetsTheFailure) {
    transfers.send(Bytes{1}, 1, kAtOnce);
    out_ends(0, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_TRUE(transfers.met_no_device());
    transfers.end();
    transfers.begin(nullptr);
    EXPECT_FALSE(transfers.met_no_device());
    EXPECT_TRUE(transfers.send(Bytes{2}, 1, kAtOnce));
}

TEST_F(UsbTransfersTest, RefusedTransferEndsTheSending) {
    bus.submit_error = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_FALSE(transfers.send(Bytes{1}, 1, kAtOnce));
    EXPECT_TRUE(transfers.met_no_device());
    bus.submit_error = 0;
    EXPECT_FALSE(transfers.send(Bytes{2}, 1, kAtOnce));
    EXPECT_THAT(bus.sent(), IsEmpty());
}

TEST_F(UsbTransfersTest, AfterTheEndNothingIsUnderWay) {
    transfers.send(Bytes{1, 2}, 1, kAtOnce);
    transfers.end();
    EXPECT_THAT(bus.sent(), IsEmpty());
    EXPECT_EQ(bus.reading(), 0U);
    EXPECT_FALSE(transfers.send(Bytes{3}, 1, kSoon));
}

// A used transfer keeps hold of its device, which must not outlive libusb's context.
TEST_F(UsbTransfersTest, TransfersAreFreedAtTheEnd) {
    EXPECT_EQ(bus.freed, 0U);
    transfers.end();
    EXPECT_EQ(bus.freed, 4U);
}

// -- bulk IN

TEST_F(UsbTransfersTest, DevicesTransfersAreKeptInOrder) {
    device_sends({1});
    device_sends({2, 3});
    EXPECT_THAT(transfers.received(), ElementsAre(Bytes{1}, Bytes{2, 3}));
    EXPECT_EQ(transfers.wait_for_received(1, kAtOnce), (Bytes{2, 3}));
    EXPECT_EQ(transfers.wait_for_received(2, kAtOnce), std::nullopt);
}

TEST_F(UsbTransfersTest, WaitEndsWhenTheDeviceSends) {
    std::thread device([this] { device_sends({7}); });
    EXPECT_EQ(transfers.wait_for_received(0, kSoon), Bytes{7});
    device.join();
}

TEST_F(UsbTransfersTest, NothingIsReadWhileBulkInIsHeld) {
    transfers.hold_in(true);
    EXPECT_EQ(bus.reading(), 0U);
    transfers.hold_in(false);
    EXPECT_EQ(bus.reading(), 1U);
}

TEST_F(UsbTransfersTest, HoldOutlastsANewBeginning) {
    transfers.end();
    transfers.hold_in(true);
    transfers.begin(nullptr);
    EXPECT_EQ(bus.reading(), 0U);
}

TEST_F(UsbTransfersTest, WhatCameBeforeTheHoldIsKept) {
    bus.fill_when_cancelled({5, 6});
    transfers.hold_in(true);
    EXPECT_THAT(transfers.received(), ElementsAre(Bytes{5, 6}));
}

TEST_F(UsbTransfersTest, WhatHasComeStaysOverANewBeginning) {
    device_sends({1});
    transfers.end();
    transfers.begin(nullptr);
    EXPECT_THAT(transfers.received(), ElementsAre(Bytes{1}));
}

TEST_F(UsbTransfersTest, BrokenReadIsNotRepeated) {
    bus.complete(kUsbHostInEndpoint, 0, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_EQ(bus.reading(), 0U);
    EXPECT_TRUE(transfers.met_no_device());
    EXPECT_THAT(transfers.received(), IsEmpty());
}

}  // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
int __wrap_libusb_submit_transfer(libusb_transfer* transfer) {
    return the_bus->submit(transfer);
}
int __wrap_libusb_cancel_transfer(libusb_transfer* transfer) {
    return the_bus->cancel(transfer);
}
void __real_libusb_free_transfer(libusb_transfer* transfer);
void __wrap_libusb_free_transfer(libusb_transfer* transfer) {
    the_bus->freed += transfer != nullptr ? 1 : 0;
    __real_libusb_free_transfer(transfer);
}
// NOLINTEND(bugprone-reserved-identifier)
}
