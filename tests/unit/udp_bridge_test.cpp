// The raw way to the camera: what arrives on the bridge's port is what camera_send() gets.
#include "link/udp_bridge.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <string>
#include <vector>

#include "event_list.h"
#include "link_start_calls.h"
#include "udp_peer.h"
#include "usb/camera_send.h"

namespace {

EventList<Bytes> sent;

constexpr std::uint16_t kBridgePort = 26017;  // below those that the kernel gives away
constexpr std::uint16_t kReplyPort = 6000;

// The bridge keeps its socket to itself: found by its port among the process's descriptors.
int bridge_socket() {
    int found = -1;
    DIR* descriptors = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(descriptors)) {
        const int descriptor = atoi(entry->d_name);
        if (bound_port(descriptor) == kBridgePort) {
            found = descriptor;
        }
    }
    closedir(descriptors);
    return found;
}

}  // namespace

// Stands for the camera.
ssize_t camera_send(const std::uint8_t* packet, std::size_t length) {
    sent.add(Bytes(packet, packet + length));
    return -1;  // the bridge does not look at the result
}

namespace {

// One bridge for all tests that do not end it: its thread cannot be stopped.
class UdpBridge : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        socket_hook = set_unwanted_flags;
        ASSERT_EQ(udp_bridge_open(kBridgePort), 0);
        socket_hook = nullptr;
    }
    void SetUp() override { sent.clear(); }
};

TEST_F(UdpBridge, SocketIsBlockingOnAnyAddress) {
    const int socket = bridge_socket();
    ASSERT_GE(socket, 0);
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    ASSERT_EQ(getsockname(socket, reinterpret_cast<sockaddr*>(&local), &length), 0);
    EXPECT_EQ(local.sin_addr.s_addr, 0U);
    EXPECT_EQ(fcntl(socket, F_GETFL) & O_NONBLOCK, 0);
    int protocol = 0;
    length = sizeof(protocol);
    ASSERT_EQ(getsockopt(socket, SOL_SOCKET, SO_PROTOCOL, &protocol, &length), 0);
    EXPECT_EQ(protocol, 17);
}

TEST_F(UdpBridge, DatagramGoesToTheCameraUnchanged) {
    const Bytes packet = {0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0xDE,
                          0x2F, 0x40, 0x02, 0x02, 0x01, 0x04, 0x32};
    ASSERT_TRUE(UdpPeer().send(packet, kBridgePort));
    EXPECT_EQ(sent.wait_for(1), (std::vector<Bytes>{packet}));
}

TEST_F(UdpBridge, NothingIsCheckedOrJoined) {
    const UdpPeer peer;
    ASSERT_TRUE(peer.send({0}, kBridgePort));
    ASSERT_TRUE(peer.send({0x55, 0x55, 0xFF}, kBridgePort));
    EXPECT_EQ(sent.wait_for(2), (std::vector<Bytes>{{0}, {0x55, 0x55, 0xFF}}));
}

TEST_F(UdpBridge, AnySenderMaySend) {
    ASSERT_TRUE(UdpPeer("127.0.0.1").send({1}, kBridgePort));
    ASSERT_TRUE(UdpPeer("127.0.0.2").send({2}, kBridgePort));
    EXPECT_EQ(sent.wait_for(2), (std::vector<Bytes>{{1}, {2}}));
}

TEST_F(UdpBridge, EmptyDatagramIsIgnored) {
    const UdpPeer peer;
    testing::internal::CaptureStderr();
    ASSERT_TRUE(peer.send({}, kBridgePort));
    ASSERT_TRUE(peer.send({7}, kBridgePort));
    EXPECT_EQ(sent.wait_for(1), (std::vector<Bytes>{{7}}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(UdpBridge, DatagramOfTheBufferSizeIsWhole) {
    ASSERT_TRUE(UdpPeer().send(numbered_bytes(10000), kBridgePort));
    EXPECT_EQ(sent.wait_for(1), (std::vector<Bytes>{numbered_bytes(10000)}));
}

TEST_F(UdpBridge, LongerDatagramIsCut) {
    const UdpPeer peer;
    ASSERT_TRUE(peer.send(numbered_bytes(10001), kBridgePort));
    ASSERT_TRUE(peer.send(numbered_bytes(65507), kBridgePort));
    EXPECT_EQ(sent.wait_for(2), (std::vector<Bytes>{numbered_bytes(10000), numbered_bytes(10000)}));
}

TEST_F(UdpBridge, ReceiveErrorsArePrintedAndReceivingGoesOn) {
    const int socket = bridge_socket();
    ASSERT_GE(socket, 0);
    int lines[2];
    ASSERT_EQ(pipe(lines), 0);
    const int stderr_before = dup(STDERR_FILENO);
    dup2(lines[1], STDERR_FILENO);

    // Makes each wait of the socket end in an error. The datagram ends the one without a limit.
    timeval limit = {0, 1000};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    const UdpPeer peer;
    peer.send({1}, kBridgePort);
    constexpr char kTwice[] = "UDP read failed\nUDP read failed\n";
    std::string printed;
    while (printed.size() < sizeof(kTwice) - 1) {
        char byte = 0;
        ASSERT_EQ(read(lines[0], &byte, 1), 1);
        printed.push_back(byte);
    }
    limit = {0, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    peer.send({2}, kBridgePort);
    const std::vector<Bytes> packets = sent.wait_for(2);

    dup2(stderr_before, STDERR_FILENO);
    close(stderr_before);
    close(lines[0]);
    close(lines[1]);
    EXPECT_EQ(printed, kTwice);
    EXPECT_EQ(packets, (std::vector<Bytes>{{1}, {2}}));
}

TEST_F(UdpBridge, ReplyGoesToTheFixedPortOfTheLastSender) {
    UdpPeer listener("127.0.0.5", kReplyPort);
    ASSERT_TRUE(listener.is_bound());
    const UdpPeer other_port("127.0.0.5");
    ASSERT_TRUE(other_port.send({1}, kBridgePort));
    ASSERT_EQ(sent.wait_for(1).size(), 1U);
    const Bytes reply = {0x55, 1, 2};
    EXPECT_EQ(udp_bridge_reply(reply.data(), reply.size()), 3);
    EXPECT_EQ(listener.receive(), reply);
    EXPECT_EQ(ntohs(listener.last_source.sin_port), kBridgePort);
}

TEST(UdpBridgeDeathTest, PortInUseFailsTheOpen) {
    const UdpPeer owner;
    ASSERT_TRUE(owner.is_bound());
    const auto open_taken = [&] { _exit(udp_bridge_open(owner.port()) == -1 ? 0 : 1); };
    EXPECT_EXIT(open_taken(), testing::ExitedWithCode(0), testing::Eq(""));
}

TEST(UdpBridgeDeathTest, NoSocketFailsTheOpen) {
    const auto open_without_descriptors = [] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        _exit(udp_bridge_open(kBridgePort) == -1 ? 0 : 1);
    };
    EXPECT_EXIT(open_without_descriptors(), testing::ExitedWithCode(0), testing::Eq(""));
}

TEST(UdpBridgeDeathTest, NoThreadFailsTheOpenWithItsError) {
    const auto open_without_thread = [] {
        thread_hook = [](ThreadBody /*body*/) { return EAGAIN; };
        _exit(udp_bridge_open(0) == EAGAIN ? 0 : 1);
    };
    EXPECT_EXIT(open_without_thread(), testing::ExitedWithCode(0), testing::Eq(""));
}

}  // namespace
