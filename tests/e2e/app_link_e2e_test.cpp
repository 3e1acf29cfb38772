// The main application as the running receiver sees it.

#include "tests/e2e/e2e_support.h"

namespace {

class MainApplication : public ReceiverTest {
  protected:
    std::uint16_t start_and_find_port() {
        start();
        EXPECT_TRUE(receiver->wait_for("Gadget init done\n", 10s)) << receiver->output();
        return receiver->app_port().value_or(0);
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
    EXPECT_LT(silence, 2500ms);
    ASSERT_TRUE(peer.send(port, {'x'}));
    EXPECT_TRUE(receiver->wait_for("Main application found\n", 2s, 2)) << receiver->output();
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
    EXPECT_TRUE(receiver->lines_without_delta().ends_with("UDP read failed\n"));
}

TEST_F(MainApplication, DatagramsOfAnySizeDoNoHarm) {
    const std::uint16_t port = start_and_find_port();
    ASSERT_NE(port, 0);
    const UdpPeer peer;
    for (const std::size_t size : {1, 2, 9999, 10000, 10001, 65507}) {
        ASSERT_TRUE(peer.send(port, Bytes(size, 0xFF))) << size;
        ASSERT_TRUE(peer.send(port, Bytes(size, '!'))) << size;
    }
    ASSERT_TRUE(receiver->wait_for("Main application found\n", 2s)) << receiver->output();
    EXPECT_TRUE(receiver->wait_for("Main application lost\n", 5s)) << receiver->output();
    EXPECT_EQ(receiver->wait_exit(0ms), std::nullopt) << receiver->output();
}

}  // namespace
