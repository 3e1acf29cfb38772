// The simulated board from inside its process: gadgetfs through the interposed calls of libc, the
// host through the board's own functions.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <ostream>

#include "board_process.h"
#include "simulator/simulated_board.h"

inline constexpr auto kSoon = Milliseconds(5000);

// clang-format off
inline const Bytes kConnectAtHighSpeed = {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
inline const Bytes kSetConfiguration2 = {0x00, 9, 2, 0, 0, 0, 0, 0, 3, 0, 0, 0};
// clang-format on

// Result and errno of a call in one comparable value.
struct Outcome {
    ssize_t result;
    int error;
    bool operator==(const Outcome&) const = default;
};
inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    return stream << outcome.result << " errno " << outcome.error;
}
inline Outcome outcome_of(ssize_t result) {
    return {result, result < 0 ? errno : 0};
}
inline Outcome failed(int error) {
    return {-1, error};
}

inline Outcome read_from(int fd, std::size_t size) {
    Bytes bytes(size);
    return outcome_of(read(fd, bytes.data(), bytes.size()));
}

// A host that does not take its time.
inline const SimulatedBoardOptions kAtOnce = {.host_connects_after = Milliseconds(0),
                                              .host_asks_after = Milliseconds(0)};

class Board : public testing::Test {
  protected:
    explicit Board(const SimulatedBoardOptions& options = kAtOnce) : board(options) {}

    void write_description() {
        ASSERT_GE(control.fd, 0);
        ASSERT_EQ(write(control.fd, kDescription.data(), kDescription.size()), 86);
    }

    // The first look of a process that does not wait.
    void listen() {
        fcntl(control.fd, F_SETFL, O_NONBLOCK);
        ASSERT_EQ(read_from(control.fd, 60), failed(EAGAIN));
        fcntl(control.fd, F_SETFL, 0);
    }

    // As a process that listens, at high speed.
    void connect() {
        write_description();
        board.connect();
        ASSERT_EQ(read_events(), kConnectAtHighSpeed);
    }

    Bytes read_events(std::size_t size = 60) {
        Bytes bytes(size);
        const ssize_t result = read(control.fd, bytes.data(), bytes.size());
        bytes.resize(result < 0 ? 0 : static_cast<std::size_t>(result));
        return bytes;
    }

    static int open_endpoint(const char* path, const Bytes& record) {
        const int fd = open(path, O_RDWR);
        if (fd >= 0) {
            EXPECT_EQ(write(fd, record.data(), record.size()), 18);
        }
        return fd;
    }

    std::future<ControlResult> ask(const SetupPacket& setup, const Bytes& data = {},
                                   Milliseconds timeout = kSoon) {
        return std::async(std::launch::async, [this, setup, data, timeout] {
            return board.control(setup, data, timeout);
        });
    }

    SimulatedBoard board;
    RootVariable variable{board.root()};
    OpenFd control{open("/dev/gadget/fe980000.usb", O_RDWR)};
};

// With both bulk endpoints open.
class ConfiguredBoard : public Board {
  protected:
    void SetUp() override {
        connect();
        in.fd = open_endpoint("/dev/gadget/ep6in", kInRecord);
        out.fd = open_endpoint("/dev/gadget/ep2out", kOutRecord);
        ASSERT_TRUE(board.wait_for_endpoints(kSoon));
    }

    OpenFd in{-1};
    OpenFd out{-1};
};
