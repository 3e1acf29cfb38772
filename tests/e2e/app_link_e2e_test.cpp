// The main application as the running receiver sees it.

#include "tests/e2e/e2e_support.h"

namespace {

class MainApplication : public ReceiverTest {
  protected:
    std::uint16_t start_and_find_port() {
        start();
        EXPECT_TRUE(receiver->wait_for("Gadget init done\n", 10s)) << receiver->output();
        const auto socket = receiver->app_socket();
        return socket ? socket->port : std::uint16_t{0};
    }
};

TEST_F(MainApplication, IsFoundLostAndFoundAgain) {
    const std::uint16_t port = start_and_find_port();
    ASSERT_NE(port, 0);
    const UdpPeer peer;
    ASSERT_TRUE(peer.send(port, {'x'}));
    ASSERT_TRUE(receiver->wait_for("Main application found\n", 2s)) << receiver->output();
    const auto sent = std::chrono::steady_clock::now();
    ASSERT_TRUE(receiver->wait_for("Main application lost\n", 5s)) << receiver->output();
    const auto silence = std::chrono::steady_clock::now() - sent;
    EXPECT_GT(silence, 950ms);
    EXPECT_LT(silence, 3000ms);
    // A datagram in the very moment in which the loss is noted still counts for the old presence.
    bool found = false;
    for (int i = 0; i < 20 && !found; ++i) {
        ASSERT_TRUE(peer.send(port, {'x'}));
        found = receiver->wait_for("Main application found\n", 50ms, 2);
    }
    EXPECT_TRUE(found) << receiver->output();
}

TEST_F(MainApplication, IsFoundOnceForTwoSenders) {
    const std::uint16_t port = start_and_find_port();
    ASSERT_NE(port, 0);
    const UdpPeer first("127.0.0.1");
    const UdpPeer second("127.0.0.2");
    ASSERT_TRUE(first.send(port, {'x'}));
    ASSERT_TRUE(second.send(port, {'x'}));
    ASSERT_TRUE(receiver->wait_for("Main application lost\n", 5s)) << receiver->output();
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
    const std::uint16_t port = start_and_find_port();
    ASSERT_NE(port, 0);
    const UdpPeer peer;
    for (const std::size_t size : {1U, 2U, 9999U, 10000U, 10001U, 65507U}) {
        for (const int value : {0xFF, int{'!'}, int{'{'}, 0x00}) {
            const auto byte = static_cast<std::uint8_t>(value);
            ASSERT_TRUE(peer.send(port, Bytes(size, byte))) << size;
            const auto end = std::chrono::steady_clock::now() + 2s;
            auto socket = receiver->app_socket();
            while (socket && socket->unread != 0 && std::chrono::steady_clock::now() < end) {
                socket = receiver->app_socket();
            }
            ASSERT_TRUE(socket.has_value()) << receiver->output();
            EXPECT_EQ(socket->unread, 0U) << size;
            EXPECT_EQ(socket->drops, 0U) << size;
        }
    }
    EXPECT_TRUE(receiver->wait_for("Main application lost\n", 5s)) << receiver->output();
    EXPECT_EQ(receiver->count("Main application found\n"), 1);
    EXPECT_EQ(receiver->wait_exit(0ms), std::nullopt) << receiver->output();
}

}  // namespace
