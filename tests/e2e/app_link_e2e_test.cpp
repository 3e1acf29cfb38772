// The main application as the running receiver sees it.

#include <optional>

#include "tests/e2e/e2e_support.h"

namespace {

class MainApplication : public ReceiverTest {
  protected:
    std::uint16_t start_and_find_port() {
        start();
        EXPECT_TRUE(receiver->wait_for("Gadget init done\n", 10s)) << receiver->output();
        return find_port();
    }
    // The same with a camera, without which the receiver ends after five seconds.
    std::uint16_t start_with_camera() {
        start_configured();
        if (HasFatalFailure()) {
            return 0;
        }
        camera.emplace(*board);
        return find_port();
    }
    std::uint16_t find_port() const {
        const auto socket = receiver->app_socket();
        return socket ? socket->port : std::uint16_t{0};
    }
    void TearDown() override { camera.reset(); }

    std::optional<IdleCamera> camera;
};

// A datagram in the very moment in which the loss is noted still counts for the old presence. The
// clock is read before the last datagram leaves and after the loss is seen: a busy machine can only
// add to the silence, and one that was not too long tells the limit.
TEST_F(MainApplication, IsFoundLostAndFoundAgain) {
    const std::uint16_t port = start_with_camera();
    ASSERT_NE(port, 0);
    const UdpPeer peer;
    auto sent = std::chrono::steady_clock::now();
    const auto be_found = [&](int times) {
        bool found = false;
        for (int i = 0; i < 20 && !found; ++i) {
            sent = std::chrono::steady_clock::now();
            ASSERT_TRUE(peer.send(port, {'x'}));
            found = receiver->wait_for("Main application found\n", 500ms, times);
        }
        ASSERT_TRUE(found) << receiver->output();
    };
    int losses = 0;
    auto silence = std::chrono::steady_clock::duration::max();
    while (silence >= 3000ms && losses < 5) {
        ++losses;
        ASSERT_NO_FATAL_FAILURE(be_found(losses));
        ASSERT_TRUE(receiver->wait_for("Main application lost\n", 10s, losses))
            << receiver->output();
        silence = std::chrono::steady_clock::now() - sent;
        EXPECT_GT(silence, 950ms);
    }
    EXPECT_LT(silence, 3000ms);
    be_found(losses + 1);
}

// Both datagrams are there when it looks, however long their sending takes.
TEST_F(MainApplication, IsFoundOnceForTwoSenders) {
    const std::uint16_t port = start_with_camera();
    ASSERT_NE(port, 0);
    const UdpPeer first("127.0.0.1");
    const UdpPeer second("127.0.0.2");
    ASSERT_TRUE(receiver->stand_still());
    ASSERT_TRUE(first.send(port, {'x'}));
    ASSERT_TRUE(second.send(port, {'x'}));
    receiver->go_on();
    ASSERT_TRUE(receiver->wait_for("Main application lost\n", 10s)) << receiver->output();
    EXPECT_EQ(receiver->count("Main application found\n"), 1);
}

TEST_F(MainApplication, EmptyDatagramEndsWithStatus3) {
    const std::uint16_t port = start_and_find_port();
    ASSERT_NE(port, 0);
    ASSERT_TRUE(UdpPeer().send(port, {}));
    ASSERT_EQ(receiver->wait_exit(5s), 3) << receiver->output();
    EXPECT_EQ(receiver->lines_without_delta(), kStartLines + "UDP read failed\n");
}

TEST_F(MainApplication, DatagramsOfAnySizeDoNoHarm) {
    const std::uint16_t port = start_with_camera();
    ASSERT_NE(port, 0);
    const UdpPeer peer;
    // A presence may end in a pause of the machine between two datagrams, and in no other.
    int pauses = 0;
    auto last = std::chrono::steady_clock::now();
    for (const std::size_t size : {1U, 2U, 9999U, 10000U, 10001U, 65507U}) {
        for (const int value : {0xFF, int{'!'}, int{'{'}, 0x00}) {
            const auto byte = static_cast<std::uint8_t>(value);
            ASSERT_TRUE(peer.send(port, Bytes(size, byte))) << size;
            const auto end = std::chrono::steady_clock::now() + 10s;
            auto socket = receiver->app_socket();
            while (socket && socket->unread != 0 && std::chrono::steady_clock::now() < end) {
                socket = receiver->app_socket();
            }
            const auto now = std::chrono::steady_clock::now();
            pauses += now - last > 900ms ? 1 : 0;
            last = now;
            ASSERT_TRUE(socket.has_value()) << receiver->output();
            EXPECT_EQ(socket->unread, 0U) << size;
            EXPECT_EQ(socket->drops, 0U) << size;
        }
    }
    EXPECT_TRUE(receiver->wait_for("Main application lost\n", 10s)) << receiver->output();
    EXPECT_GE(receiver->count("Main application found\n"), 1);
    EXPECT_LE(receiver->count("Main application found\n"), 1 + pauses);
    EXPECT_EQ(receiver->wait_exit(0ms), std::nullopt) << receiver->output();
}

}  // namespace
