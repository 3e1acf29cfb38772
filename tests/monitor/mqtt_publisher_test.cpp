// What no real broker brings about; the others are in tests/mqtt.
#include "monitor/mqtt_publisher.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "tests/monitor/memory_limit.h"

namespace {

using namespace std::chrono_literals;

// Its side of one connection, by the test's thread. It takes no memory.
class FakeBroker {
  public:
    explicit FakeBroker(in_addr_t address = INADDR_LOOPBACK, std::uint16_t port = 0)
        : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in here{};
        here.sin_family = AF_INET;
        here.sin_addr.s_addr = htonl(address);
        here.sin_port = htons(port);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&here), sizeof here), 0);
        EXPECT_EQ(listen(listener_, 1), 0);
        socklen_t length = sizeof here;
        getsockname(listener_, reinterpret_cast<sockaddr*>(&here), &length);
        port_ = ntohs(here.sin_port);
        received_.reserve(1 << 20);
    }
    ~FakeBroker() {
        close(connection_);
        close(listener_);
    }
    FakeBroker(const FakeBroker&) = delete;
    FakeBroker& operator=(const FakeBroker&) = delete;

    std::uint16_t port() const { return port_; }
    bool accepts() {
        pollfd readable = {listener_, POLLIN, 0};
        close(connection_);
        received_.clear();
        connection_ = poll(&readable, 1, 10000) == 1 ? accept(listener_, nullptr, nullptr) : -1;
        return connection_ >= 0;
    }
    // 0: it is welcome, 5: it is not authorised.
    void answer(std::uint8_t code) const {
        const std::uint8_t connack[] = {0x20, 0x02, 0x00, code};
        send(connection_, connack, sizeof connack, MSG_NOSIGNAL);
    }
    void hang_up() {
        close(connection_);
        connection_ = -1;
    }
    bool receives(const char* text, std::chrono::milliseconds timeout) {
        const auto end = std::chrono::steady_clock::now() + timeout;
        while (received_.find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            pollfd readable = {connection_, POLLIN, 0};
            std::array<char, 4096> piece;
            const ssize_t count =
                poll(&readable, 1, 50) == 1 ? recv(connection_, piece.data(), piece.size(), 0) : 0;
            received_.append(piece.data(), static_cast<std::size_t>(count > 0 ? count : 0));
        }
        return true;
    }

  private:
    const int listener_;
    int connection_ = -1;
    std::uint16_t port_ = 0;
    std::string received_;
};

TEST(MqttPublisherTest, ShortageOfMemoryEndsNothingAndTheStateComesBehindIt) {
    FakeBroker broker;
    TelemetryStore store;
    store.set_text("key", "a value that is longer than what a string has within itself");
    MqttPublisher publisher(store, {"127.0.0.1", broker.port(), "camera", "", ""});
    publisher.start();
    ASSERT_TRUE(broker.accepts());
    ASSERT_TRUE(broker.receives("MQTT", 10s));
    too_much_memory = 16;
    broker.answer(0);
    const bool is_online =
        broker.receives("camera/presence", 10s) && broker.receives("online", 10s);
    const bool has_state = broker.receives("camera/state", 1s);
    too_much_memory = kNothingIsTooMuch;
    EXPECT_TRUE(is_online);
    EXPECT_FALSE(has_state);
    EXPECT_TRUE(broker.receives("camera/state", 10s));
    EXPECT_TRUE(broker.receives("within itself", 10s));
    publisher.stop();
}

TEST(MqttPublisherTest, BrokerThatRefusesAgainAndAgainIsALineOfTheLog) {
    FakeBroker broker;
    TelemetryStore store;
    MqttPublisher publisher(store, {"127.0.0.1", broker.port(), "camera", "", ""});
    publisher.start();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(broker.accepts());
        ASSERT_TRUE(broker.receives("MQTT", 10s));
        broker.answer(5);
    }
    publisher.stop();
    std::uint64_t seen = 0;
    const std::string lines = store.lines(&seen);
    EXPECT_EQ(seen, 1U) << lines;
    EXPECT_NE(lines.find("MQTT broker 127.0.0.1: Connection Refused: not authori"),
              std::string::npos)
        << lines;
}

// The file in place of the system's, for this test.
class OwnFile {
  public:
    OwnFile(const char* place, const std::string& text) : place_(place) {
        const int file = mkstemp(file_.data());
        fchmod(file, 0644);
        EXPECT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(file);
        is_there_ = mount(file_.c_str(), place_, nullptr, MS_BIND, nullptr) == 0;
    }
    ~OwnFile() {
        if (is_there_) {
            umount(place_);
        }
        unlink(file_.c_str());
    }
    OwnFile(const OwnFile&) = delete;
    OwnFile& operator=(const OwnFile&) = delete;

    bool is_there() const { return is_there_; }

  private:
    const char* const place_;
    std::string file_ = testing::TempDir() + "own-file-XXXXXX";
    bool is_there_ = false;
};

TEST(MqttPublisherTest, EachAddressOfTheBrokersNameHasItsTurn) {
    const OwnFile hosts("/etc/hosts", "127.0.0.2 broker.example\n127.0.0.1 broker.example\n");
    if (!hosts.is_there()) {
        GTEST_SKIP() << "no names of its own: " << strerror(errno);
    }
    FakeBroker one;
    FakeBroker other(INADDR_LOOPBACK + 1, one.port());
    TelemetryStore store;
    MqttPublisher publisher(store, {"broker.example", one.port(), "camera", "", ""});
    publisher.start();
    // The system has the one first that is more like this machine's own.
    ASSERT_TRUE(one.accepts());
    one.hang_up();
    EXPECT_TRUE(other.accepts());
    other.hang_up();
    EXPECT_TRUE(one.accepts());
    publisher.stop();
}

// A board without its network: somebody is to be asked for names, and never answers.
TEST(MqttPublisherTest, NameServerThatIsSilentHoldsNobodyUpAtTheEnd) {
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in here{};
    here.sin_family = AF_INET;
    here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    here.sin_port = htons(53);
    const OwnFile resolver("/etc/resolv.conf", "nameserver 127.0.0.1\n");
    if (bind(server, reinterpret_cast<const sockaddr*>(&here), sizeof here) != 0 ||
        !resolver.is_there()) {
        close(server);
        GTEST_SKIP() << "no name server of its own: " << strerror(errno);
    }
    TelemetryStore store;
    MqttPublisher publisher(store, {"broker.example", 1883, "camera", "", ""});
    publisher.start();
    pollfd readable = {server, POLLIN, 0};
    EXPECT_EQ(poll(&readable, 1, 10000), 1) << "the name is asked for";
    const auto begin = std::chrono::steady_clock::now();
    publisher.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
    close(server);
}

}  // namespace
