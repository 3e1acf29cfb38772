// A link under load: a host that does not read, and ends from outside while everything is busy.

#include <signal.h>

#include <algorithm>
#include <sstream>
#include <thread>

#include "tests/board/board_support.h"
#include "tests/board/full_rate_stream.h"
#include "tests/e2e/main_application.h"
#include "tests/e2e/udp_peer.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t kBridgePort = 6000;
constexpr std::uint32_t kFlood = 1000;         // more than a socket holds unread
constexpr std::uint32_t kCertainlyHeld = 100;  // as many as one does
constexpr std::uint16_t kCommands = 10;

Bytes datagram(std::uint32_t number) {
    Bytes bytes(400, 0xEE);
    bytes[0] = static_cast<std::uint8_t>(number);
    bytes[1] = static_cast<std::uint8_t>(number >> 8);
    return bytes;
}

Bytes record_packet(std::uint16_t sequence, bool start) {
    const Bytes payload = {static_cast<std::uint8_t>(start)};
    return camera_packet({.sender = 0x02,
                          .receiver = 0x01,
                          .sequence = sequence,
                          .type = 0x40,
                          .set = 0x02,
                          .id = 0x02},
                         payload);
}

class Load : public BoardTest {
  protected:
    void start_with_application() {
        start_linked(app.arguments());
        const auto socket = receiver->app_socket();
        ASSERT_TRUE(socket);
        app.send_to(socket->port);
    }
    void record(bool start) const {
        ASSERT_TRUE(app.command(start ? R"({"cmd":"record","param":"start"})"
                                      : R"({"cmd":"record","param":"stop"})"));
    }
    // A text each second, a record each 200 ms.
    void expect_reports_for(std::chrono::seconds time) {
        while (app.receive(1ms)) {  // what waits by now
        }
        int texts = 0;
        int records = 0;
        const auto end = Clock::now() + time;
        while (Clock::now() < end) {
            if (const auto report = app.receive(100ms)) {
                ++(report->at(0) == 0x07 ? texts : records);
            }
        }
        EXPECT_GE(texts, time.count() - 1);
        EXPECT_GE(records, 4 * time.count());
    }

    MainApplication app;
};

// Both ways to the camera are held up, each with what its socket holds. The rest goes on.
TEST_F(Load, HostThatDoesNotReadHoldsUpTheCommandsAlone) {
    start_with_application();
    host->hold_bulk_in(true);
    FullRateStream stream(*host);
    NumberedParts parts;
    const UdpPeer tool;
    for (std::uint32_t i = 0; i < kFlood; ++i) {
        ASSERT_TRUE(tool.send(kBridgePort, datagram(i)));
    }
    for (std::uint16_t i = 0; i < kCommands; ++i) {
        record(i % 2 == 0);
    }

    const std::uint32_t parts_before = parts.wait_for(1, 10s);
    std::thread main_application([this] { expect_reports_for(4s); });
    const std::uint32_t parts_after = parts.follow_until(Clock::now() + 4s);
    main_application.join();
    EXPECT_GE(parts_after, parts_before + 20);
    EXPECT_EQ(host->bulk_in().size(), 0U);
    EXPECT_EQ(receiver->wait_exit(0ms), std::nullopt) << receiver->output();

    host->hold_bulk_in(false);
    ASSERT_TRUE(host->wait_for_bulk_in(kCertainlyHeld + kCommands - 1, 20s));
    while (host->wait_for_bulk_in(host->bulk_in().size(), 1s)) {
    }
    ASSERT_TRUE(tool.send(kBridgePort, datagram(kFlood)));
    record(true);
    const std::size_t held = host->bulk_in().size();
    ASSERT_TRUE(host->wait_for_bulk_in(held + 1, 10s));

    std::vector<Bytes> from_tool;
    std::vector<Bytes> from_application;
    for (const Bytes& transfer : host->bulk_in()) {
        (transfer[0] == 0x55 && transfer.size() == 14 ? from_application : from_tool)
            .push_back(transfer);
    }
    std::vector<Bytes> commands;
    for (std::uint16_t i = 0; i <= kCommands; ++i) {
        commands.push_back(record_packet(i, i % 2 == 0));
    }
    EXPECT_EQ(from_application, commands);
    // The oldest, and then the one that was sent when there was room again.
    const auto taken = static_cast<std::uint32_t>(from_tool.size()) - 1;
    EXPECT_GE(taken, kCertainlyHeld);
    EXPECT_LT(taken, kFlood);
    std::vector<Bytes> datagrams;
    for (std::uint32_t i = 0; i < taken; ++i) {
        datagrams.push_back(datagram(i));
    }
    datagrams.push_back(datagram(kFlood));
    EXPECT_EQ(from_tool, datagrams);

    stream.stop();
    EXPECT_EQ(parts.wait_for(stream.sent(), 10s), stream.sent());
    EXPECT_FALSE(parts.damaged());
    printf("%u datagrams and %u commands were held, %u parts went by\n", taken, kCommands,
           stream.sent());
}

class LoadEnd : public Load {
  protected:
    // Data, commands and datagrams as fast as they go.
    void end_by_signal(int number) {
        start_with_application();
        const FullRateStream stream(*host);
        std::atomic<bool> stop = false;
        std::thread commands([&] {
            const UdpPeer tool;
            for (bool on = true; !stop; on = !on) {
                tool.send(kBridgePort, datagram(0));
                record(on);
                std::this_thread::sleep_for(5ms);
            }
        });
        EXPECT_TRUE(host->wait_for_bulk_in(50, 10s));
        const auto before = Clock::now();
        receiver->signal(number);
        status = receiver->wait_exit(10s);
        EXPECT_LT(Clock::now() - before, 2s);
        stop = true;
        commands.join();
    }
    std::optional<int> status;
};

TEST_F(LoadEnd, TerminatedAtOnce) {
    end_by_signal(SIGTERM);
    EXPECT_EQ(status, 1);
    const std::string lines = receiver->lines_without_delta();
    const std::string signal_line = "\nsignal 15 handler\n";
    EXPECT_EQ(receiver->count(signal_line), 1) << lines;
    const std::size_t end = lines.find(signal_line);
    ASSERT_NE(end, std::string::npos) << lines;
    // Before the process is gone the thread that takes commands may get on with one.
    std::istringstream after(lines.substr(end + signal_line.size()));
    for (std::string line; std::getline(after, line);) {
        EXPECT_TRUE(line.starts_with("JSON commands from app: ") || line == "Record start" ||
                    line == "Record stop")
            << line;
    }
    expect_start_works();
}

TEST_F(LoadEnd, KilledAtOnce) {
    end_by_signal(SIGKILL);
    EXPECT_EQ(status, -SIGKILL);
    expect_start_works();
}

TEST_F(LoadEnd, TerminatedAtOnceWithTheCommandsHeldUp) {
    start_with_application();
    host->hold_bulk_in(true);
    const UdpPeer tool;
    for (std::uint32_t i = 0; i < 10; ++i) {
        tool.send(kBridgePort, datagram(i));
        record(true);
    }
    {
        const FullRateStream stream(*host);
        std::this_thread::sleep_for(1s);
        const auto before = Clock::now();
        receiver->signal(SIGTERM);
        EXPECT_EQ(receiver->wait_exit(10s), 1);
        EXPECT_LT(Clock::now() - before, 2s);
    }
    EXPECT_TRUE(receiver->lines_without_delta().ends_with("signal 15 handler\n"));
    host->hold_bulk_in(false);
    expect_start_works();
}

}  // namespace
