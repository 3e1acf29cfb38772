// What becomes of reports and commands, and when the receiver or its camera is lost.
#include "monitor/receiver_link.h"

#include <arpa/inet.h>
#include <cJSON.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/ip_icmp.h>
#include <netinet/udp.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <thread>

#include "tests/monitor/receiver_link_fixture.h"

namespace {

using namespace std::chrono_literals;

// What a router says of a datagram from the monitor to there. False where no such socket may be
// made.
bool tell_host_unreachable(const sockaddr_in& to) {
    struct {
        icmphdr icmp;
        iphdr ip;
        udphdr udp;
    } message{};
    message.icmp.type = ICMP_DEST_UNREACH;
    message.icmp.code = ICMP_HOST_UNREACH;
    message.ip.version = 4;
    message.ip.ihl = 5;
    message.ip.protocol = IPPROTO_UDP;
    message.ip.tot_len = htons(sizeof message.ip + sizeof message.udp);
    message.ip.saddr = htonl(INADDR_LOOPBACK);
    message.ip.daddr = to.sin_addr.s_addr;
    message.udp.source = htons(kTelemetryPort);
    message.udp.dest = to.sin_port;
    message.udp.len = htons(sizeof message.udp);
    std::uint32_t sum = 0;
    std::array<std::uint16_t, sizeof message / 2> words{};
    memcpy(words.data(), &message, sizeof message);
    for (const std::uint16_t word : words) {
        sum += word;
    }
    sum = (sum >> 16) + (sum & 0xFFFF);
    message.icmp.checksum = static_cast<std::uint16_t>(~(sum + (sum >> 16)) & 0xFFFF);
    const int fd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
    sockaddr_in here{};
    here.sin_family = AF_INET;
    here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool sent = sendto(fd, &message, sizeof message, 0,
                             reinterpret_cast<const sockaddr*>(&here), sizeof here) > 0;
    close(fd);
    return sent;
}

// One more address of the loopback, where it is this test's own. False where it is not.
bool add_address(const std::string& address) {
    struct if_nameindex* names = if_nameindex();
    const bool only_loopback = names != nullptr && names[0].if_index != 0 && names[1].if_index == 0;
    if_freenameindex(names);
    ifreq alias{};
    strcpy(alias.ifr_name, "lo:1");
    sockaddr_in added{};
    added.sin_family = AF_INET;
    inet_pton(AF_INET, address.c_str(), &added.sin_addr);
    memcpy(&alias.ifr_addr, &added, sizeof added);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool done = only_loopback && ioctl(fd, SIOCSIFADDR, &alias) == 0;
    close(fd);
    return done;
}

double processor_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Of one processor, in the next second.
double share_of_processor() {
    const double before = processor_seconds();
    usleep(1000000);
    return processor_seconds() - before;
}

constexpr double kLittle = 0.3;

TEST_F(ReceiverLinkTest, WaitsUntilTheFirstReport) {
    EXPECT_EQ(store.presence(), (Presence{"waiting", "waiting"}));
    EXPECT_FALSE(link.send(Datagram{0x00}));
    receiver->report(report_of("empty"));
    EXPECT_TRUE(becomes({"present", "waiting"}));
    receiver->report(report_of("example"));
    EXPECT_TRUE(becomes({"present", "present"}));
    EXPECT_EQ(store.value("camera_model"), "DJI Osmo RAW (X5R)");
}

TEST_F(ReceiverLinkTest, StaysPresentWithADatagramThatSaysNothing) {
    receiver->report(report_of("example"));
    EXPECT_EQ(receiver->receive(), Datagram{0x00});
    const auto first = std::chrono::steady_clock::now();
    EXPECT_EQ(receiver->receive(), Datagram{0x00});
    EXPECT_LT(std::chrono::steady_clock::now() - first, 1s);
}

TEST_F(ReceiverLinkTest, CommandGoesWhereTheReportsComeFrom) {
    receiver->report(report_of("example"));
    ASSERT_TRUE(becomes({"present", "present"}));
    const Datagram command = {'!', '{', '}'};
    EXPECT_TRUE(link.send(command));
    Datagram got = receiver->receive();
    while (got == Datagram{0x00}) {
        got = receiver->receive();
    }
    EXPECT_EQ(got, command);
}

TEST_F(ReceiverLinkTest, DatagramOfNoBytesIsNotSent) {
    receiver->report(report_of("example"));
    ASSERT_TRUE(becomes({"present", "present"}));
    EXPECT_FALSE(link.send({}));
}

TEST_F(ReceiverLinkTest, SilenceOfAReceiverThatHoldsItsPortIsTheCameras) {
    receiver->report(report_of("example"));
    ASSERT_TRUE(becomes({"present", "present"}));
    EXPECT_TRUE(becomes({"present", "lost"}));
    receiver->report(report_of("example"));
    EXPECT_TRUE(becomes({"present", "present"}));
}

TEST_F(ReceiverLinkTest, ReceiverThatEndsIsLostAndComesBackFromAnotherPort) {
    receiver->report(report_of("example"));
    ASSERT_TRUE(becomes({"present", "present"}));
    receiver.reset();
    const auto end = std::chrono::steady_clock::now();
    EXPECT_TRUE(becomes({"lost", "lost"}));
    EXPECT_LT(std::chrono::steady_clock::now() - end, 3s);
    FakeReceiver other;
    other.report(report_of("example"));
    EXPECT_TRUE(becomes({"present", "present"}));
    EXPECT_EQ(other.receive(), Datagram{0x00});
    EXPECT_TRUE(becomes({"present", "lost"})) << "its silence is the camera's, as ever";
}

TEST_F(ReceiverLinkTest, ReceiverThatNoWayLeadsToIsLostAndCostsNothing) {
    receiver->report(report_of("example"));
    ASSERT_TRUE(becomes({"present", "present"}));
    const auto told = std::chrono::steady_clock::now();
    if (!tell_host_unreachable(receiver->address())) {
        GTEST_SKIP() << "no raw sockets here";
    }
    EXPECT_LT(share_of_processor(), kLittle);
    EXPECT_TRUE(becomes({"lost", "lost"}));
    EXPECT_LT(std::chrono::steady_clock::now() - told, 5s) << "mere silence takes seven";
    receiver->report(report_of("example"));
    EXPECT_TRUE(becomes({"present", "present"}));
}

TEST_F(ReceiverLinkTest, ErrorThatACommandIsToldOfDoesNotStay) {
    receiver->report(report_of("example"));
    ASSERT_TRUE(becomes({"present", "present"}));
    receiver.reset();
    int told = 0;
    for (int i = 0; i < 100; ++i) {
        told += link.send(Datagram{0x00}) ? 0 : 1;
        usleep(1000);
    }
    EXPECT_GT(told, 0);
    EXPECT_LT(share_of_processor(), kLittle);
}

TEST_F(ReceiverLinkTest, CommandIsNotRefusedForADatagramToTheReceiverBefore) {
    const std::uint16_t port = ntohs(receiver->address().sin_port);
    const Datagram command = {'!', '{', '}'};
    TelemetryStore other_store;
    ReceiverLink to_port(other_store, {kTelemetryPort + 1, "127.0.0.1", port});
    ASSERT_TRUE(to_port.start());
    for (int i = 0; i < 20; ++i) {
        receiver.reset();
        to_port.send(Datagram{0x00});
        receiver = std::make_unique<FakeReceiver>("127.0.0.1", port);
        ASSERT_TRUE(to_port.send(command));
        Datagram arrived = receiver->receive();
        for (int more = 0; more < 3 && arrived == Datagram{0x00}; ++more) {
            arrived = receiver->receive();
        }
        ASSERT_EQ(arrived, command);
    }
}

TEST_F(ReceiverLinkTest, ReceiverOfAnotherMachineIsHeardAndCommandedThere) {
    constexpr char kThere[] = "192.0.2.1";
    if (!add_address(kThere)) {
        GTEST_SKIP() << "addresses are not this test's own";
    }
    link.stop();
    TelemetryStore far_store;
    ReceiverLink far(far_store, {kTelemetryPort + 1, kThere, 0});
    ASSERT_TRUE(far.start());
    const FakeReceiver there(kThere);
    there.report(report_of("example"), kTelemetryPort + 1);
    EXPECT_EQ(there.receive(), Datagram{0x00});
    EXPECT_TRUE(comes_true([&] { return far_store.presence().receiver == "present"; }));
    receiver->report(Datagram{0x07}, kTelemetryPort + 1);
    usleep(200000);
    EXPECT_EQ(far_store.reports(ReportKind::kWrong), 0U) << "others are not listened to";
}

TEST_F(ReceiverLinkTest, ReceiverOfAnotherNetworkThatIsNotThereCostsNothing) {
    TelemetryStore far_store;
    ReceiverLink far(far_store, {kTelemetryPort + 1, "192.0.2.7", 6000});
    ASSERT_TRUE(far.start());
    EXPECT_LT(share_of_processor(), kLittle);
    EXPECT_EQ(far_store.presence(), (Presence{"waiting", "waiting"}));
}

// Neither is the receiver kept from its datagrams nor the log from what else there is to say.
TEST_F(ReceiverLinkTest, FloodOfMalformedReportsHoldsNothingUp) {
    store.add_line("before");
    receiver->report(report_of("example"));
    ASSERT_TRUE(becomes({"present", "present"}));
    std::atomic<bool> stop{false};
    std::thread flood([&] {
        const FakeReceiver other;
        while (!stop) {
            other.report(Datagram{0x06, 0x00});
        }
    });
    const auto end = std::chrono::steady_clock::now() + 2s;
    int presences = 0;
    while (std::chrono::steady_clock::now() < end) {
        presences += receiver->receive() == Datagram{0x00} ? 1 : 0;
    }
    EXPECT_GE(presences, 2);
    stop = true;
    flood.join();
    EXPECT_GT(store.reports(ReportKind::kWrong), 200U);
    std::uint64_t seen = 0;
    const std::string lines = store.lines(&seen);
    EXPECT_NE(lines.find("before"), std::string::npos);
    EXPECT_LE(seen, 20U) << lines;
}

TEST_F(ReceiverLinkTest, MalformedReportChangesNothingAndIsCounted) {
    receiver->report(Datagram{0x06, 0x00, 0x01});
    EXPECT_TRUE(comes_true([&] { return store.reports(ReportKind::kWrong) == 1; }));
    EXPECT_EQ(store.value("yaw"), "");
    EXPECT_EQ(store.presence(), (Presence{"waiting", "waiting"}));
    EXPECT_FALSE(link.send(Datagram{0x00})) << "nor does its sender get the commands";
}

TEST_F(ReceiverLinkTest, DatagramsOfAnyKindAreSurvived) {
    const std::string report = report_of("example");
    // A socket holds no more at once than a slow reader has left room for.
    std::size_t sent = 0;
    const auto are_counted = [&] {
        return comes_true([&] { return store.reports(ReportKind::kWrong) >= sent; });
    };
    for (std::size_t length = 0; length < report.size(); length += 7, ++sent) {
        receiver->report(report.substr(0, length));
    }
    EXPECT_TRUE(are_counted());
    for (std::size_t length = 1; length < 40; ++length, ++sent) {
        receiver->report(Datagram(length, 0x06));
    }
    EXPECT_TRUE(are_counted());
    for (const Datagram& large : {Datagram(60000, 0x07), Datagram(60000, 'x')}) {
        receiver->report(large);
        ++sent;
        EXPECT_TRUE(are_counted());
    }
    receiver->report(std::string("camera_detected=1,") + std::string(1200, '\xFF'));
    ++sent;
    EXPECT_TRUE(are_counted());
    receiver->report(Datagram());
    receiver->report(report);
    EXPECT_TRUE(becomes({"present", "present"}));
}

TEST_F(ReceiverLinkTest, ValuesThatAreNoTextStayJson) {
    std::string report = report_of("example");
    const std::string model = "DJI Osmo RAW (X5R)";
    report.replace(report.find(model), model.size(), "\"}\\\xFF\x01</script>\xC3");
    receiver->report(report);
    EXPECT_TRUE(comes_true([&] { return !store.value("camera_model").empty(); }));
    EXPECT_EQ(store.json("camera_model"), R"("\"}\\\ufffd\u0001</script>\ufffd")");
    std::uint64_t all = 0;
    const std::string json = "{" + store.changes(&all) + "}";
    cJSON* parsed = cJSON_Parse(json.c_str());
    EXPECT_NE(parsed, nullptr) << json;
    cJSON_Delete(parsed);
}

TEST_F(ReceiverLinkTest, CameraWhoseVideoAndValuesStandStillIsLost) {
    const std::string report = report_of("example");
    const auto report_for = [&](std::chrono::milliseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end) {
            receiver->report(report);
            usleep(100000);
        }
    };
    receiver->report(report);
    ASSERT_TRUE(becomes({"present", "present"}));
    report_for(2500ms);
    EXPECT_EQ(store.presence(), (Presence{"present", "present"})) << "no video, no sign";
    link.saw_picture();
    report_for(2500ms);
    EXPECT_EQ(store.presence(), (Presence{"present", "lost"}));
    link.saw_picture();
    EXPECT_TRUE(becomes({"present", "present"}));
}

}  // namespace
