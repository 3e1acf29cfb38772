// Control requests on the simulated board: who answers them, how, and when a host asks.
#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include "simulated_board_fixture.h"

namespace {

TEST_F(Board, DeviceToHostRequestGetsWhatIsWritten) {
    connect();
    auto answer = ask({0x80, 6, 0x0319, 0x0409, 4});
    EXPECT_EQ(read_events(), (Bytes{0x80, 6, 0x19, 0x03, 0x09, 0x04, 4, 0, 3, 0, 0, 0}));
    pollfd poll_control = {control.fd, POLLIN | POLLOUT, 0};
    EXPECT_EQ(poll(&poll_control, 1, 0), 1);
    EXPECT_EQ(poll_control.revents, POLLOUT);
    EXPECT_EQ(write(control.fd,
                    "\x06\x03"
                    "A\0B\0",
                    6),
              6);
    const ControlResult result = answer.get();
    EXPECT_EQ(result.status, ControlStatus::kAcknowledged);
    EXPECT_EQ(result.data, (Bytes{6, 3, 'A', 0}));  // cut to wLength
    EXPECT_EQ(board.last_control_write(), (Bytes{6, 3, 'A', 0, 'B', 0}));
}

TEST_F(Board, DeviceToHostRequestIsStalledByARead) {
    connect();
    auto answer = ask({0xC0, 51, 0, 0, 2});
    read_events();
    EXPECT_EQ(read_from(control.fd, 0), failed(EL2HLT));
    EXPECT_EQ(answer.get().status, ControlStatus::kStalled);
}

TEST_F(Board, HostToDeviceRequestIsAcknowledgedByARead) {
    connect();
    auto answer = ask({0x00, 9, 2, 0, 0});
    EXPECT_EQ(read_events(), kSetConfiguration2);
    EXPECT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
    EXPECT_EQ(answer.get().status, ControlStatus::kAcknowledged);
}

TEST_F(Board, HostToDeviceRequestIsStalledByAWrite) {
    connect();
    auto answer = ask({0x01, 11, 1, 0, 0});
    read_events();
    EXPECT_EQ(outcome_of(write(control.fd, "", 0)), failed(EL2HLT));
    EXPECT_EQ(answer.get().status, ControlStatus::kStalled);
}

TEST_F(Board, RequestThatIsNotAnsweredTimesOut) {
    connect();
    EXPECT_EQ(board.control({0x00, 9, 2, 0, 0}, {}, Milliseconds(20)).status,
              ControlStatus::kTimedOut);
}

TEST_F(Board, KernelAnswersTheDeviceDescriptorItself) {
    connect();
    const ControlResult result = board.control({0x80, 6, 0x0100, 0, 64});
    EXPECT_EQ(result.status, ControlStatus::kAcknowledged);
    EXPECT_EQ(result.data, (Bytes{18, 1, 0x00, 0x02, 0xFF, 0, 0, 64, 0xD1, 0x18, 0x01, 0x2D, 0, 0,
                                  25, 45, 101, 1}));
}

TEST_F(Board, ProcessCanBeAskedWhatTheKernelWouldAnswer) {
    connect();
    auto answer = std::async(std::launch::async, [this] {
        return board.control_to_process({0x80, 6, 0x0100, 0, 8});
    });
    EXPECT_EQ(read_events(), (Bytes{0x80, 6, 0x00, 0x01, 0, 0, 8, 0, 3, 0, 0, 0}));
    EXPECT_EQ(write(control.fd, "12345678", 8), 8);
    EXPECT_EQ(answer.get().data, (Bytes{'1', '2', '3', '4', '5', '6', '7', '8'}));
}

TEST_F(Board, ProcessThatHasLookedOnceIsAsked) {
    write_description();
    listen();
    board.connect();
    auto answer = ask({0x00, 9, 2, 0, 0});
    EXPECT_EQ(read_events(12), kConnectAtHighSpeed);
    EXPECT_EQ(read_events(12), kSetConfiguration2);
    EXPECT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
    EXPECT_EQ(answer.get().status, ControlStatus::kAcknowledged);
}

TEST_F(Board, KernelAnswersWhileNobodyHasReadEvents) {
    write_description();
    EXPECT_TRUE(board.configure());
    EXPECT_EQ(board.control({0x80, 6, 0x0300, 0, 255}).status, ControlStatus::kStalled);
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
    listen();  // there is nothing else
}

class LinuxsHost : public Board {
  protected:
    LinuxsHost() : Board({}) {}
};

TEST_F(LinuxsHost, TakesItsTimeWithANewDevice) {
    using Clock = std::chrono::steady_clock;
    const auto before = Clock::now();
    write_description();
    board.connect();
    EXPECT_GE(Clock::now() - before, Milliseconds(100));
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
    EXPECT_EQ(board.control({0x80, 6, 0x0100, 0, 64}).status, ControlStatus::kAcknowledged);
    EXPECT_GE(Clock::now() - before, Milliseconds(420));
}

TEST_F(LinuxsHost, AsksNothingWhereNoDeviceIs) {
    board.connect();
    EXPECT_EQ(board.control({0x80, 6, 0x0100, 0, 64}).status, ControlStatus::kTimedOut);
}

// Asked to at 100 ms: less than the request itself is away, and enough for a busy machine to
// answer.
class LateHost : public Board {
  protected:
    LateHost() : Board({.host_asks_after = Milliseconds(3000)}) {}
};

TEST_F(LateHost, WaitsForAnAnswerFromItsRequestOn) {
    write_description();
    board.connect();
    EXPECT_EQ(read_events(), kConnectAtHighSpeed);
    auto answer = ask({0x00, 9, 2, 0, 0}, {}, Milliseconds(2800));
    EXPECT_EQ(read_events(), kSetConfiguration2);
    EXPECT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
    EXPECT_EQ(answer.get().status, ControlStatus::kAcknowledged);
}

TEST_F(Board, EnumerateAsksInTheOrderOfAHost) {
    write_description();
    listen();
    auto done = std::async(std::launch::async, [this] { return board.enumerate(); });
    Bytes asked;
    for (int strings = 0; strings < 6;) {
        const Bytes events = read_events(12);
        ASSERT_EQ(events.size(), 12U);
        if (events[8] != 3) {
            continue;
        }
        if (events[0] == 0x80) {
            asked.push_back(events[2]);
            ++strings;
            ASSERT_EQ(write(control.fd, "\x02\x03", 2), 2);
        } else {
            asked.push_back(events[1]);
            ASSERT_EQ(read_from(control.fd, 0), (Outcome{0, 0}));
        }
    }
    EXPECT_TRUE(done.get());
    EXPECT_EQ(asked, (Bytes{0, 45, 25, 101, 9, 250, 250}));
}

}  // namespace
