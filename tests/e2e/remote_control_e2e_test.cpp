// From another process's sticks and buttons in shared memory to the camera.

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "tests/e2e/e2e_support.h"
#include "tests/e2e/main_application.h"
#include "tests/e2e/remote_control.h"
#include "tests/protocol_page.h"

namespace {

bool is_speed(const Bytes& packet) {
    return packet.size() == 20 && packet[9] == 0x04 && packet[10] == 0x0C;
}

bool is_stop(const Bytes& packet) {
    return is_speed(packet) && Bytes(packet.begin() + 11, packet.end() - 2) ==
                                   Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x90};
}

bool is_position(const Bytes& packet) {
    return packet.size() == 23 && packet[9] == 0x01 && packet[10] == 0x01;
}

class RemoteControlled : public ReceiverTest {
  protected:
    void SetUp() override {
        start_configured(app.arguments());
        const auto socket = receiver->app_socket();
        ASSERT_TRUE(socket);
        app.send_to(socket->port);
        ASSERT_TRUE(board->wait_for_endpoints(5s));
        camera.emplace(*board);
        remote.emplace();
    }
    void TearDown() override {
        camera.reset();
        EXPECT_EQ(refused_packets(), 0U);
    }
    void set_movement(const std::string& mode) {
        ASSERT_TRUE(app.command(R"({"cmd":"set","name":"movement","value":")" + mode + "\"}"));
    }
    std::ptrdiff_t stops() const {
        const std::vector<Bytes> packets = board->bulk_in();
        return std::count_if(packets.begin(), packets.end(), is_stop);
    }
    bool wait_for_stops(std::ptrdiff_t count) const {
        const auto end = std::chrono::steady_clock::now() + 5s;
        while (stops() < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(5ms);
        }
        return stops() >= count;
    }
    // Waits until as many packets have come as there are, and so many more.
    bool wait_for_more(std::size_t count) {
        return board->wait_for_bulk_in(board->bulk_in().size() + count - 1, 5s).has_value();
    }

    // A short deflection: the mode is looked for once a second, and from the first packet on it is
    // known.
    void wait_until_mode_is_known() {
        remote->set(kPan, 0.1);
        ASSERT_TRUE(board->wait_for_bulk_in(0, 5s));
        remote->set(kPan, 0.0);
        ASSERT_TRUE(wait_for_stops(3));
    }
    // How many packets have come of a receiver that stands still: none is on its way any more.
    std::size_t packets_at_rest() const {
        std::size_t packets = board->bulk_in().size();
        for (int same = 0; same < 5;) {
            std::this_thread::sleep_for(2ms);
            const std::size_t seen = board->bulk_in().size();
            same = seen == packets ? same + 1 : 0;
            packets = seen;
        }
        return packets;
    }

    MainApplication app;
    std::optional<IdleCamera> camera;
    std::optional<RemoteControl> remote;
};

TEST_F(RemoteControlled, NothingMovesBeforeAMovementModeIsSet) {
    remote->set(kPan, 1.0);
    remote->set(kRecord, 1.0);
    EXPECT_EQ(board->wait_for_bulk_in(0, 2500ms), std::nullopt);
    set_movement("rel");
    EXPECT_TRUE(board->wait_for_bulk_in(0, 5s));
}

TEST_F(RemoteControlled, StickGivesSpeedAndItsReleaseThreeStops) {
    set_movement("rel");
    remote->set(kPan, 0.5);
    const auto first = board->wait_for_bulk_in(0, 5s);
    EXPECT_EQ(first, (Bytes{0x55, 0x14, 0x04, 0x6D, 0x02, 0x04, 0x00, 0x00, 0x40, 0x04,
                            0x0C, 0xF4, 0x01, 0x00, 0x00, 0x00, 0x00, 0x90, 0xBA, 0x9C}));
    ASSERT_TRUE(wait_for_more(5));
    remote->set(kPan, 0.0);
    ASSERT_TRUE(wait_for_stops(3));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(stops(), 3);
    EXPECT_TRUE(is_stop(board->bulk_in().back()));
}

TEST_F(RemoteControlled, StickGivesAPosition) {
    set_movement("abs");
    remote->set(kPan, -0.5);
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s),
              (Bytes{0x55, 0x17, 0x04, 0x38, 0x02, 0x04, 0x00, 0x00, 0x40, 0x04, 0x0A, 0x7C,
                     0xFC, 0x00, 0x00, 0x00, 0x00, 0x64, 0x00, 0xE0, 0x04, 0xFF, 0xA4}));
    EXPECT_TRUE(receiver->wait_for("abs position pan -900 tilt 0 dutch 0\n", 5s));
}

TEST_F(RemoteControlled, ShellExampleOfTheDocumentation) {
    set_movement("rel");
    ASSERT_NO_FATAL_FAILURE(wait_until_mode_is_known());
    const std::size_t before = board->bulk_in().size();
    ASSERT_EQ(system(page_block("<!-- shell: pan -->").c_str()), 0);
    ASSERT_TRUE(wait_for_stops(6));
    const Bytes first = board->bulk_in().at(before);
    EXPECT_EQ(Bytes(first.begin() + 9, first.end() - 2),
              (Bytes{0x04, 0x0C, 0xF4, 0x01, 0x00, 0x00, 0x00, 0x00, 0x90}));
}

// A packet in each cycle of 20 ms. The clock is read before the stick moves and after the last
// packet has come, so that a busy machine can only add to what passes: no run may be shorter, and
// the shortest is measured against another length of the cycle.
TEST_F(RemoteControlled, HeldStickSendsFiftyPacketsASecond) {
    constexpr std::size_t kCycles = 50;
    constexpr auto kAtLeast = kCycles * 20ms;
    constexpr int kRuns = 8;
    set_movement("rel");
    ASSERT_NO_FATAL_FAILURE(wait_until_mode_is_known());
    auto shortest = std::chrono::steady_clock::duration::max();
    for (std::ptrdiff_t run = 1; run <= kRuns && shortest >= kAtLeast * 2; ++run) {
        const std::size_t before = board->bulk_in().size();
        const auto begin = std::chrono::steady_clock::now();
        remote->set(kPan, 0.1);
        ASSERT_TRUE(board->wait_for_bulk_in(before + kCycles, 20s));
        shortest = std::min(shortest, std::chrono::steady_clock::now() - begin);
        EXPECT_GE(shortest, kAtLeast);
        remote->set(kPan, 0.0);
        ASSERT_TRUE(wait_for_stops(3 * (run + 1)));
    }
    EXPECT_LT(shortest, kAtLeast * 2);
}

// A held stick sends one packet a cycle: they are the clock by which a button is timed. It moves
// while the receiver stands still, so that no cycle passes between the count and the button.
TEST_F(RemoteControlled, ButtonIsTakenWithinOneCycle) {
    set_movement("rel");
    remote->set(kPan, 0.1);
    ASSERT_TRUE(board->wait_for_bulk_in(10, 5s));
    for (int press = 0; press < 20; ++press) {
        ASSERT_TRUE(wait_for_more(2));
        ASSERT_TRUE(receiver->stand_still()) << receiver->output();
        const std::size_t before = packets_at_rest();
        remote->set(kPosition, press % 2 == 0 ? 1.0 : -1.0);
        receiver->go_on();
        ASSERT_TRUE(board->wait_for_bulk_in(before + 4, 5s));
        const std::vector<Bytes> packets = board->bulk_in();
        std::size_t at = before;
        while (at < packets.size() && !is_position(packets[at])) {
            ++at;
        }
        // The cycle that was under way when the button moved.
        EXPECT_LE(at - before, 1U) << press;
        ASSERT_LT(at + 1, packets.size());
        EXPECT_EQ(packets[at][15], 0x10);      // selfie
        EXPECT_EQ(packets[at + 1][15], 0x01);  // then normal
    }
}

TEST_F(RemoteControlled, RecordButtonShootsInPhotoMode) {
    set_movement("rel");
    remote->set(kRecord, 1.0);
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s), (Bytes{0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0x00, 0x00,
                                                     0x40, 0x02, 0x01, 0x01, 0x60, 0x6E}));
    remote->set(kRecord, 0.0);
    remote->set(kMode, 1.0);
    const auto mode = board->wait_for_bulk_in(1, 5s);
    ASSERT_TRUE(mode && mode->size() == 14);
    EXPECT_EQ(Bytes(mode->begin() + 9, mode->begin() + 12), (Bytes{0x02, 0x10, 0x01}));
}

}  // namespace
