// The simulated board's bulk endpoints, from their opening to the end of a link.
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/usb/gadgetfs.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <fstream>
#include <future>
#include <string>
#include <thread>

#include "simulated_board_fixture.h"

// The thread sanitizer's, in its build alone. NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
[[gnu::weak]] void __tsan_ignore_thread_begin();
[[gnu::weak]] void __tsan_ignore_thread_end();
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ConfiguredBoard, ShowsTheEndpointRecords) {
    EXPECT_EQ(board.endpoint_record("ep6in"), kInRecord);
    EXPECT_EQ(board.endpoint_record("ep2out"), kOutRecord);
    EXPECT_THAT(board.endpoint_record("ep1in"), IsEmpty());
    out.reset();
    const OpenFd again(open("/dev/gadget/ep2out", O_RDWR));
    ASSERT_GE(again.fd, 0);
    EXPECT_THAT(board.endpoint_record("ep2out"), IsEmpty());
}

TEST_F(ConfiguredBoard, BulkOutIsReadTransferByTransfer) {
    Bytes sent(1200);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        sent[i] = static_cast<std::uint8_t>(i % 251);
    }
    ASSERT_TRUE(board.bulk_out(sent));
    Bytes received(1200);
    EXPECT_EQ(read(out.fd, received.data(), 512), 512);
    EXPECT_EQ(read(out.fd, received.data() + 512, 512), 512);
    EXPECT_EQ(read(out.fd, received.data() + 1024, 512 - 336), 176);
    EXPECT_EQ(received, sent);
    EXPECT_TRUE(board.wait_for_bulk_out_taken(kSoon));
}

TEST_F(ConfiguredBoard, BulkOutIsCutAsAsked) {
    ASSERT_TRUE(board.bulk_out(Bytes{1, 2, 3, 4, 5}, 2));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{2, 0}));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{2, 0}));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{1, 0}));
}

TEST_F(ConfiguredBoard, BulkOutWaitsForTheDevice) {
    EXPECT_FALSE(board.bulk_out(Bytes(1000000), 512, Milliseconds(50)));
    EXPECT_FALSE(board.wait_for_bulk_out_taken(Milliseconds(5)));
}

TEST_F(ConfiguredBoard, TransferWithoutBytesReadsAsNone) {
    ASSERT_TRUE(board.bulk_out_empty());
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{0, 0}));
}

TEST_F(ConfiguredBoard, TransferLongerThanTheBufferOverflows) {
    ASSERT_TRUE(board.bulk_out(Bytes(512)));
    EXPECT_EQ(read_from(out.fd, 511), failed(EOVERFLOW));
}

TEST_F(ConfiguredBoard, InjectedFailureIsReadOnce) {
    board.fail_bulk_out(EPROTO);
    ASSERT_TRUE(board.bulk_out(Bytes{7}));
    EXPECT_EQ(read_from(out.fd, 512), failed(EPROTO));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{1, 0}));
}

TEST_F(ConfiguredBoard, BulkInKeepsPacketsApart) {
    EXPECT_EQ(write(in.fd, "first", 5), 5);
    EXPECT_EQ(write(in.fd, "", 0), 0);
    EXPECT_EQ(write(in.fd, "second", 6), 6);
    EXPECT_EQ(board.wait_for_bulk_in(2, kSoon), (Bytes{'s', 'e', 'c', 'o', 'n', 'd'}));
    EXPECT_THAT(board.bulk_in(), ElementsAre(Bytes{'f', 'i', 'r', 's', 't'}, Bytes{},
                                             Bytes{'s', 'e', 'c', 'o', 'n', 'd'}));
    EXPECT_EQ(board.wait_for_bulk_in(3, Milliseconds(1)), std::nullopt);
}

TEST_F(ConfiguredBoard, BulkInBlocksWhileTheHostDoesNotRead) {
    board.hold_bulk_in(true);
    constexpr int kPackets = 1000;
    auto written = std::async(std::launch::async, [this] {
        const Bytes packet(512);
        int count = 0;
        while (count < kPackets && write(in.fd, packet.data(), packet.size()) == 512) {
            ++count;
        }
        return count;
    });
    EXPECT_EQ(written.wait_for(Milliseconds(50)), std::future_status::timeout);
    board.hold_bulk_in(false);
    EXPECT_EQ(written.get(), kPackets);
    EXPECT_TRUE(board.wait_for_bulk_in(kPackets - 1, kSoon));
}

TEST_F(ConfiguredBoard, WrongDirectionIsABadMessage) {
    EXPECT_EQ(read_from(in.fd, 512), failed(EBADMSG));
    EXPECT_EQ(outcome_of(write(out.fd, "x", 1)), failed(EBADMSG));
}

TEST_F(Board, EndpointWithoutItsRecordHasNoTransfers) {
    connect();
    const OpenFd endpoint(open("/dev/gadget/ep2out", O_RDWR));
    EXPECT_EQ(read_from(endpoint.fd, 512), failed(ENODEV));
    EXPECT_FALSE(board.bulk_out(Bytes{1}));
}

TEST_F(Board, EndpointRecordNeedsASpeed) {
    write_description();
    const OpenFd endpoint(open("/dev/gadget/ep2out", O_RDWR));
    ASSERT_GE(endpoint.fd, 0);
    EXPECT_EQ(outcome_of(write(endpoint.fd, kOutRecord.data(), kOutRecord.size())), failed(EINVAL));
}

TEST_F(ConfiguredBoard, DisconnectFailsAPendingRead) {
    auto result = std::async(std::launch::async, [this] { return read_from(out.fd, 512); });
    board.disconnect();
    EXPECT_EQ(result.get(), failed(ESHUTDOWN));
    EXPECT_EQ(read_from(out.fd, 512), failed(ESHUTDOWN));
    EXPECT_EQ(outcome_of(write(in.fd, "x", 1)), failed(ESHUTDOWN));
    EXPECT_FALSE(board.bulk_out(Bytes{1}));
}

TEST_F(ConfiguredBoard, ResetFailsTheEndpointsAndConnectsAgain) {
    board.reset();
    EXPECT_EQ(read_from(out.fd, 512), failed(ESHUTDOWN));
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
}

TEST_F(ConfiguredBoard, DisconnectFailsABlockedWrite) {
    board.hold_bulk_in(true);
    auto error = std::async(std::launch::async, [this] {
        const Bytes packet(512);
        while (write(in.fd, packet.data(), packet.size()) == 512) {
        }
        return errno;
    });
    EXPECT_EQ(error.wait_for(Milliseconds(50)), std::future_status::timeout);
    board.disconnect();
    EXPECT_EQ(error.get(), ESHUTDOWN);
}

TEST_F(ConfiguredBoard, EndpointsOpenAnewAfterADisconnect) {
    board.disconnect();
    in.reset();
    out.reset();
    board.connect();
    in.fd = open_endpoint("/dev/gadget/ep6in", kInRecord);
    out.fd = open_endpoint("/dev/gadget/ep2out", kOutRecord);
    ASSERT_TRUE(board.wait_for_endpoints(kSoon));
    ASSERT_TRUE(board.bulk_out(Bytes{1, 2}));
    EXPECT_EQ(read_from(out.fd, 512), (Outcome{2, 0}));
}

TEST_F(ConfiguredBoard, OpenEndpointIsBusy) {
    EXPECT_EQ(outcome_of(open("/dev/gadget/ep2out", O_RDWR)), failed(EBUSY));
}

TEST_F(ConfiguredBoard, ClearHaltIsCountedForEachFile) {
    EXPECT_EQ(ioctl(out.fd, GADGETFS_CLEAR_HALT), 0);
    EXPECT_EQ(ioctl(out.fd, GADGETFS_CLEAR_HALT), 0);
    EXPECT_EQ(ioctl(in.fd, GADGETFS_CLEAR_HALT), 0);
    EXPECT_EQ(ioctl(in.fd, GADGETFS_FIFO_FLUSH), 0);
    // A later answer on the control file says that the notices have come.
    auto answer = ask({0x01, 11, 0, 0, 0});
    read_events();
    EXPECT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
    EXPECT_EQ(answer.get().status, ControlStatus::kAcknowledged);
    EXPECT_EQ(board.clear_halt_count("ep2out"), 2);
    EXPECT_EQ(board.clear_halt_count("ep6in"), 1);
    EXPECT_EQ(board.clear_halt_count("ep1in"), 0);
}

// What the receiver's reader thread does when it is cancelled.
struct Reader {
    int fd;
    bool cleaned_up;
};

void* read_forever(void* argument) {
    auto* const reader = static_cast<Reader*>(argument);
    pthread_cleanup_push([](void* cleaned) { static_cast<Reader*>(cleaned)->cleaned_up = true; },
                         reader);
    char bytes[512];
    while (read(reader->fd, bytes, sizeof bytes) >= 0) {
    }
    pthread_cleanup_pop(0);
    return nullptr;
}

TEST_F(ConfiguredBoard, BlockedReadIsACancellationPoint) {
    Reader reader = {out.fd, false};
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, read_forever, &reader), 0);
    ASSERT_TRUE(board.bulk_out(Bytes(512)));
    ASSERT_TRUE(board.wait_for_bulk_out_taken(kSoon));
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(reader.cleaned_up);
}

// Asleep in a few looks, one after the other.
bool comes_to_sleep(pid_t thread) {
    const auto deadline = std::chrono::steady_clock::now() + kSoon;
    int asleep = 0;
    while (asleep < 5 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(Milliseconds(10));
        std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/status");
        std::string key;
        std::string state;
        while (file >> key >> state && key != "State:") {
        }
        asleep = key == "State:" && state == "S" ? asleep + 1 : 0;
    }
    return asleep == 5;
}

TEST_F(ConfiguredBoard, CloseWhileAReadIsUnderWayKeepsTheFileBusyUntilItReturns) {
    const int fd = out.fd;
    std::promise<pid_t> reader;
    auto result = std::async(std::launch::async, [fd, &reader] {
        reader.set_value(gettid());
        // For the thread sanitizer a close under a read is a race over the descriptor. It is one.
        if (__tsan_ignore_thread_begin != nullptr) {
            __tsan_ignore_thread_begin();
        }
        char bytes[512];
        ssize_t count = read(fd, bytes, sizeof bytes);
        if (count >= 0) {
            count = read(fd, bytes, sizeof bytes);
        }
        if (__tsan_ignore_thread_end != nullptr) {
            __tsan_ignore_thread_end();
        }
        return count;
    });
    ASSERT_TRUE(board.bulk_out(Bytes{1}));
    ASSERT_TRUE(board.wait_for_bulk_out_taken(kSoon));
    // The second read is entered at once; that it waits is seen by the thread's sleep.
    ASSERT_TRUE(comes_to_sleep(reader.get_future().get()));
    ASSERT_EQ(close(fd), 0);
    out.fd = -1;
    auto opened = std::async(std::launch::async, [] { return open("/dev/gadget/ep2out", O_RDWR); });
    EXPECT_EQ(opened.wait_for(Milliseconds(50)), std::future_status::timeout);
    ASSERT_TRUE(board.bulk_out(Bytes{1, 2, 3}));
    EXPECT_EQ(result.get(), 3);
    out.fd = opened.get();
    EXPECT_GE(out.fd, 0);
}

}  // namespace
