// The UDP channel to the main application, over the loopback interface.
#include "link/app_link.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <string>
#include <vector>

#include "event_list.h"
#include "fake_clock.h"
#include "link_start_calls.h"
#include "udp_peer.h"

namespace {

using testing::Eq;
using testing::ExitedWithCode;
using Events = std::vector<std::string>;

constexpr std::uint16_t kBufferSize = 10000;
constexpr std::int64_t kSomeTimeMs = 1700000000123;  // 0xCFE5687B in 32 bits

EventList<std::string> events;
EventList<Bytes> buffers;  // whole, as it was in each callback of a datagram

// The record as a callback finds it.
struct PeerRecord {
    std::uint32_t last_receive_ms;
    std::string host;
    std::uint16_t port;
    std::uint32_t bytes_received;
    bool operator==(const PeerRecord&) const = default;
};
EventList<PeerRecord> records;  // of the plain callbacks and the connected one, as they came

void note_record() {
    const char* host = app_link.peer_host;
    records.add({app_link.last_receive_ms, host == nullptr ? "none" : host, app_link.peer_port,
                 app_link.bytes_received});
}

std::string sender(const char* host, std::uint16_t port) {
    return std::string(host) + ":" + std::to_string(port);
}

void on_found() {
    note_record();
    events.add("found");
}

void on_lost() {
    note_record();
    events.add("lost");
}

void on_connected(const char* host, std::uint16_t port) {
    note_record();
    events.add("connected " + sender(host, port));
}

void on_datagram(const std::uint8_t* bytes, std::uint16_t length, const char* host,
                 std::uint16_t port) {
    buffers.add(Bytes(bytes, bytes + kBufferSize));
    events.add(std::to_string(length) + " from " + sender(host, port));
}

// Of a datagram whose event has come.
Bytes last_buffer() {
    return buffers.wait_for(1).back();
}

void open_channel(bool clear = true) {
    // On the heap, for the address sanitizer, and never freed: the receive thread has no end.
    app_link_set_buffer(new std::uint8_t[kBufferSize](), kBufferSize);
    ASSERT_EQ(app_link_open(0, 1000, clear), 0);
}

std::uint16_t channel_port() {
    return bound_port(app_link.socket);
}

// One channel for all tests that do not end it: its thread cannot be stopped.
class AppLinkChannel : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        app_link_set_found_callback(on_found);
        app_link_set_lost_callback(on_lost);
        app_link_set_connected_callback(on_connected);
        app_link_set_datagram_callback(on_datagram);
        socket_hook = set_unwanted_flags;
        open_channel();
        socket_hook = nullptr;
    }

    void SetUp() override {
        fake_clock_ms = kSomeTimeMs;
        app_link.last_receive_ms = 0;
        app_link.peer_host = nullptr;
        app_link.peer_port = 0;
        app_link.bytes_received = 0;
        events.clear();
        records.clear();
        buffers.clear();
    }

    void TearDown() override { fake_clock_ms = -1; }

    // The peer's first datagram, which brings three events.
    void be_found(const UdpPeer& peer) {
        ASSERT_TRUE(peer.send({'!'}, channel_port()));
        ASSERT_EQ(events.wait_for(3).size(), 3U);
        events.clear();
        records.clear();
        buffers.clear();
    }
};

TEST_F(AppLinkChannel, SocketIsBlockingOnAnyAddressAndUnshared) {
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    ASSERT_EQ(getsockname(app_link.socket, reinterpret_cast<sockaddr*>(&local), &length), 0);
    EXPECT_EQ(local.sin_family, AF_INET);
    EXPECT_EQ(local.sin_addr.s_addr, 0U);
    EXPECT_NE(local.sin_port, 0);
    EXPECT_EQ(app_link.address_length, 16U);

    EXPECT_EQ(fcntl(app_link.socket, F_GETFL) & O_NONBLOCK, 0);

    for (const auto& [option, expected] :
         {std::pair{SO_TYPE, int{SOCK_DGRAM}}, {SO_PROTOCOL, 17}, {SO_REUSEPORT, 0}}) {
        int value = -1;
        length = sizeof(value);
        ASSERT_EQ(getsockopt(app_link.socket, SOL_SOCKET, option, &value, &length), 0);
        EXPECT_EQ(value, expected) << option;
    }
}

TEST_F(AppLinkChannel, FirstDatagramFindsThePeerBeforeItIsHandedOn) {
    const UdpPeer peer;
    ASSERT_TRUE(peer.send({'!', '{', '}'}, channel_port()));
    const std::string from = sender("127.0.0.1", peer.port());
    EXPECT_EQ(events.wait_for(3), (Events{"found", "connected " + from, "3 from " + from}));
    EXPECT_EQ(app_link.last_receive_ms, 0xCFE5687B);
    EXPECT_EQ(app_link.peer_port, peer.port());
}

TEST_F(AppLinkChannel, PeerIsInTheRecordAndItsTimeIsNotWhenItIsFound) {
    const UdpPeer peer("127.0.0.2");
    ASSERT_TRUE(peer.send({'!', '{', '}'}, channel_port()));
    ASSERT_EQ(events.wait_for(3).size(), 3U);
    const PeerRecord expected = {0, "127.0.0.2", peer.port(), 3};
    EXPECT_EQ(records.wait_for(2), (std::vector<PeerRecord>{expected, expected}));
}

TEST_F(AppLinkChannel, PeerIsStillInTheRecordWhenItIsLost) {
    const UdpPeer peer("127.0.0.2");
    be_found(peer);
    fake_clock_ms = kSomeTimeMs + 1001;
    app_link_check_presence();
    EXPECT_EQ(records.wait_for(1),
              (std::vector<PeerRecord>{{0xCFE5687B, "127.0.0.2", peer.port(), 1}}));
    EXPECT_EQ(app_link.peer_host, nullptr);
    EXPECT_EQ(app_link.peer_port, 0);
    EXPECT_EQ(app_link.last_receive_ms, 0U);
}

TEST_F(AppLinkChannel, LaterDatagramsFromAnySenderFindNobodyAgain) {
    const UdpPeer first("127.0.0.1");
    const UdpPeer second("127.0.0.2");
    be_found(first);
    ASSERT_TRUE(second.send({1, 2}, channel_port()));
    EXPECT_EQ(events.wait_for(1), (Events{"2 from " + sender("127.0.0.2", second.port())}));
    EXPECT_EQ(app_link.peer_port, second.port());
    ASSERT_TRUE(first.send({1, 2, 3}, channel_port()));
    EXPECT_EQ(events.wait_for(2).back(), "3 from " + sender("127.0.0.1", first.port()));
    EXPECT_EQ(app_link.peer_port, first.port());
}

TEST_F(AppLinkChannel, ReceivedDatagramIsFollowedByNulBytes) {
    const UdpPeer peer;
    ASSERT_TRUE(peer.send(numbered_bytes(300), channel_port()));
    ASSERT_EQ(events.wait_for(3).size(), 3U);
    ASSERT_TRUE(peer.send({'!', 'x'}, channel_port()));
    ASSERT_EQ(events.wait_for(4).size(), 4U);
    Bytes expected(kBufferSize, 0);
    expected[0] = '!';
    expected[1] = 'x';
    EXPECT_EQ(last_buffer(), expected);
}

TEST_F(AppLinkChannel, DatagramOfTheBufferSizeFillsIt) {
    const UdpPeer peer;
    be_found(peer);
    ASSERT_TRUE(peer.send(numbered_bytes(10000), channel_port()));
    EXPECT_EQ(events.wait_for(1), (Events{"10000 from " + sender("127.0.0.1", peer.port())}));
    EXPECT_EQ(last_buffer(), numbered_bytes(10000));
}

TEST_F(AppLinkChannel, LongerDatagramIsCut) {
    const UdpPeer peer;
    be_found(peer);
    for (const std::size_t length : {10001U, 65507U}) {
        events.clear();
        ASSERT_TRUE(peer.send(numbered_bytes(length), channel_port()));
        EXPECT_EQ(events.wait_for(1), (Events{"10000 from " + sender("127.0.0.1", peer.port())}));
        EXPECT_EQ(last_buffer(), numbered_bytes(10000));
    }
}

TEST_F(AppLinkChannel, ReceivedBytesAreCountedAsTheyWereTaken) {
    const UdpPeer peer;
    be_found(peer);
    const std::uint32_t before = app_link.bytes_received;
    ASSERT_TRUE(peer.send(numbered_bytes(7), channel_port()));
    ASSERT_TRUE(peer.send(numbered_bytes(20000), channel_port()));
    ASSERT_EQ(events.wait_for(2).size(), 2U);
    EXPECT_EQ(app_link.bytes_received - before, 10007U);
}

TEST_F(AppLinkChannel, PeerIsLostAfterMoreThanTheTimeOut) {
    const UdpPeer peer;
    be_found(peer);
    fake_clock_ms = kSomeTimeMs + 1000;
    app_link_check_presence();
    EXPECT_EQ(events.wait_for(0), Events{});
    EXPECT_EQ(app_link.peer_port, peer.port());

    fake_clock_ms = kSomeTimeMs + 1001;
    app_link_check_presence();
    EXPECT_EQ(events.wait_for(0), (Events{"lost"}));
    EXPECT_EQ(app_link.last_receive_ms, 0U);
    EXPECT_EQ(app_link.peer_host, nullptr);
    EXPECT_EQ(app_link.peer_port, 0);

    app_link_check_presence();
    EXPECT_EQ(events.wait_for(0), (Events{"lost"}));
}

TEST_F(AppLinkChannel, LostPeerIsFoundAgain) {
    const UdpPeer peer;
    be_found(peer);
    fake_clock_ms = kSomeTimeMs + 5000;
    app_link_check_presence();
    ASSERT_TRUE(peer.send({'!'}, channel_port()));
    const std::string from = sender("127.0.0.1", peer.port());
    EXPECT_EQ(events.wait_for(4), (Events{"lost", "found", "connected " + from, "1 from " + from}));
}

TEST_F(AppLinkChannel, EachDatagramRenewsThePresence) {
    const UdpPeer peer;
    be_found(peer);
    fake_clock_ms = kSomeTimeMs + 900;
    ASSERT_TRUE(peer.send({'!'}, channel_port()));
    ASSERT_EQ(events.wait_for(1).size(), 1U);
    fake_clock_ms = kSomeTimeMs + 1900;
    app_link_check_presence();
    EXPECT_EQ(events.wait_for(0).size(), 1U);
    EXPECT_NE(app_link.last_receive_ms, 0U);
}

TEST_F(AppLinkChannel, PresenceOutlivesTheWrapOfTheClock) {
    constexpr std::int64_t kWrapMs = 400 * (std::int64_t{1} << 32);
    const UdpPeer peer;
    fake_clock_ms = kWrapMs - 500;
    be_found(peer);
    fake_clock_ms = kWrapMs + 500;
    app_link_check_presence();
    EXPECT_EQ(events.wait_for(0), Events{});
    fake_clock_ms = kWrapMs + 501;
    app_link_check_presence();
    EXPECT_EQ(events.wait_for(0), (Events{"lost"}));
}

TEST_F(AppLinkChannel, ClockSetBackLosesThePeer) {
    const UdpPeer peer;
    be_found(peer);
    fake_clock_ms = kSomeTimeMs - 1;
    app_link_check_presence();
    EXPECT_EQ(events.wait_for(0), (Events{"lost"}));
}

TEST_F(AppLinkChannel, WithoutAPeerNobodyIsLost) {
    app_link_check_presence();
    EXPECT_EQ(events.wait_for(0), Events{});
}

TEST_F(AppLinkChannel, SentBytesArriveFromTheChannelsPort) {
    UdpPeer peer("127.0.0.2");
    const Bytes bytes = {0x07, 'a', '=', '1', ','};
    const std::uint32_t before = app_link.bytes_sent;
    EXPECT_EQ(app_link_send_to(bytes.data(), bytes.size(), "127.0.0.2", peer.port()), 5);
    EXPECT_EQ(peer.receive(), bytes);
    EXPECT_EQ(ntohs(peer.last_source.sin_port), channel_port());
    EXPECT_EQ(app_link.bytes_sent - before, 5U);
    EXPECT_EQ(app_link.address_host, htonl(0x7F000002));
    EXPECT_EQ(app_link.address_port, htons(peer.port()));
}

TEST_F(AppLinkChannel, HostThatIsNoAddressKeepsTheLastOne) {
    UdpPeer peer("127.0.0.2");
    const Bytes bytes = {1};
    app_link_send_to(bytes.data(), 1, "127.0.0.2", 9);
    for (const char* host : {"", "localhost", "127.0.0.256", "%s%n", "127.0.0.1.1"}) {
        EXPECT_EQ(app_link_send_to(bytes.data(), 1, host, peer.port()), 1) << host;
        EXPECT_EQ(peer.receive(), bytes) << host;
    }
}

TEST_F(AppLinkChannel, SendAfterADatagramGoesWhereItIsTold) {
    const UdpPeer stranger("127.0.0.3");
    UdpPeer peer("127.0.0.2");
    be_found(stranger);
    EXPECT_EQ(app_link.address_host, htonl(0x7F000003));
    EXPECT_EQ(app_link.address_port, htons(stranger.port()));
    const Bytes bytes = {1, 2};
    EXPECT_EQ(app_link_send_to(bytes.data(), 2, "127.0.0.2", peer.port()), 2);
    EXPECT_EQ(peer.receive(), bytes);
}

TEST_F(AppLinkChannel, FailedSendIsReturnedAndCountedAllTheSame) {
    const Bytes bytes(65508);
    const std::uint32_t before = app_link.bytes_sent;
    EXPECT_EQ(app_link_send_to(bytes.data(), bytes.size(), "127.0.0.1", 9), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_EQ(app_link.bytes_sent - before, 65508U);
}

TEST_F(AppLinkChannel, ReplyGoesToTheLastSender) {
    UdpPeer first("127.0.0.1");
    UdpPeer second("127.0.0.2");
    be_found(first);
    ASSERT_TRUE(second.send({'!'}, channel_port()));
    ASSERT_EQ(events.wait_for(1).size(), 1U);
    const Bytes bytes = {4, 5, 6};
    EXPECT_EQ(app_link_reply(bytes.data(), 3), 3);
    EXPECT_EQ(second.receive(), bytes);
}

TEST_F(AppLinkChannel, ReplyWithoutASenderFails) {
    const Bytes bytes = {4};
    EXPECT_EQ(app_link_reply(bytes.data(), 1), -1);
    app_link.peer_host = "127.0.0.1";
    EXPECT_EQ(app_link_reply(bytes.data(), 1), -1);
    app_link.peer_host = nullptr;
    app_link.peer_port = 9;
    EXPECT_EQ(app_link_reply(bytes.data(), 1), -1);
}

// -- tests in a process of their own -----------------------------------------------------------

TEST(AppLinkDeathTest, EmptyDatagramEndsTheProcess) {
    const auto receive_empty = [] {
        open_channel();
        UdpPeer().send({}, channel_port());
        pause();
    };
    EXPECT_EXIT(receive_empty(), ExitedWithCode(3), Eq("UDP read failed\n"));
}

TEST(AppLinkDeathTest, ReceiveErrorEndsTheProcess) {
    const auto fail_to_receive = [] {
        open_channel();
        const timeval limit = {0, 1000};
        setsockopt(app_link.socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        // Ends the wait that may have begun without the limit.
        UdpPeer().send({'!'}, channel_port());
        pause();
    };
    EXPECT_EXIT(fail_to_receive(), ExitedWithCode(3), Eq("UDP read failed\n"));
}

TEST(AppLinkDeathTest, PortInUseFailsTheOpen) {
    const UdpPeer owner;
    ASSERT_TRUE(owner.is_bound());
    const auto open_taken = [&] { _exit(app_link_open(owner.port(), 1000, true) == -1 ? 0 : 1); };
    EXPECT_EXIT(open_taken(), ExitedWithCode(0), Eq(""));
}

TEST(AppLinkDeathTest, NoSocketFailsTheOpen) {
    const auto open_without_descriptors = [] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        _exit(app_link_open(0, 1000, true) == -1 ? 0 : 1);
    };
    EXPECT_EXIT(open_without_descriptors(), ExitedWithCode(0), Eq(""));
}

TEST(AppLinkDeathTest, OpenWithoutAThreadSucceeds) {
    const auto open_without_thread = [] {
        static int refused = 0;
        thread_hook = [](ThreadBody /*body*/) {
            ++refused;
            return EAGAIN;
        };
        _exit(app_link_open(0, 1000, true) == 0 && refused == 1 ? 0 : 1);
    };
    EXPECT_EXIT(open_without_thread(), ExitedWithCode(0), Eq(""));
}

TEST(AppLinkDeathTest, OpenTakesTheGivenPort) {
    const auto open_given = [] {
        const std::uint16_t free_port = UdpPeer().port();
        app_link_set_buffer(new std::uint8_t[kBufferSize](), kBufferSize);
        const int result = app_link_open(free_port, 1000, true);
        _exit(result == 0 && channel_port() == free_port ? 0 : 1);
    };
    EXPECT_EXIT(open_given(), ExitedWithCode(0), Eq(""));
}

TEST(AppLinkDeathTest, OpenStartsTheCountsAnew) {
    const auto open_again = [] {
        app_link.bytes_received = 5;
        app_link.bytes_sent = 6;
        open_channel();
        _exit(app_link.bytes_received == 0 && app_link.bytes_sent == 0 ? 0 : 1);
    };
    EXPECT_EXIT(open_again(), ExitedWithCode(0), Eq(""));
}

TEST(AppLinkDeathTest, WithoutClearingTheOldBytesStay) {
    const auto receive_two = [] {
        app_link_set_datagram_callback(on_datagram);
        open_channel(false);
        const UdpPeer peer;
        peer.send({1, 2, 3}, channel_port());
        events.wait_for(1);
        peer.send({9}, channel_port());
        events.wait_for(2);
        Bytes bytes = last_buffer();
        bytes.resize(4);
        _exit(bytes == Bytes{9, 2, 3, 0} ? 0 : 1);
    };
    EXPECT_EXIT(receive_two(), ExitedWithCode(0), Eq(""));
}

TEST(AppLinkDeathTest, WithoutCallbacksThePeerIsForgottenButKeepsItsName) {
    const auto come_and_go = [] {
        fake_clock_ms = kSomeTimeMs;
        app_link_set_found_callback(nullptr);
        app_link_set_lost_callback(nullptr);
        app_link_set_connected_callback(nullptr);
        app_link_set_datagram_callback(nullptr);
        app_link.last_receive_ms = 0;
        open_channel();
        const UdpPeer peer;
        peer.send({1, 2, 3}, channel_port());
        while (app_link.last_receive_ms == 0) {
            usleep(1000);
        }
        fake_clock_ms = kSomeTimeMs + 2000;
        app_link_check_presence();
        _exit(app_link.last_receive_ms == 0 && app_link.peer_host != nullptr &&
                      app_link.peer_port == peer.port()
                  ? 0
                  : 1);
    };
    EXPECT_EXIT(come_and_go(), ExitedWithCode(0), Eq(""));
}

TEST(AppLinkDeathTest, TimeOutIsTheOneGivenAtTheOpen) {
    const auto check_at_both_sides = [] {
        fake_clock_ms = kSomeTimeMs;
        app_link_set_lost_callback(on_lost);
        if (app_link_open(0, 3000, true) != 0) {
            _exit(1);
        }
        app_link.last_receive_ms = 0xCFE5687B;
        fake_clock_ms = kSomeTimeMs + 3000;
        app_link_check_presence();
        if (app_link.last_receive_ms == 0) {
            _exit(2);
        }
        fake_clock_ms = kSomeTimeMs + 3001;
        app_link_check_presence();
        _exit(app_link.last_receive_ms == 0 ? 0 : 3);
    };
    EXPECT_EXIT(check_at_both_sides(), ExitedWithCode(0), Eq(""));
}

}  // namespace
