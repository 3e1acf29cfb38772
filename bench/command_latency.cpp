#include "command_latency.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "link_under_test.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr unsigned kRounds = 4;  // by turns, so that both meet the same machine
constexpr unsigned kCommandsPerRound = 500;
constexpr auto kBetweenCommands = 2ms;
constexpr unsigned kCommandsBetweenData = 250;  // the camera must not seem silent
constexpr double kMedianGoal = 1.5;
constexpr double kTailGoal = 3.0;

const std::string kCommand = R"(!{"cmd":"record","param":"start"})";
const std::string kPacket("\x55\x0E\x04\x66\x02\x01\x00\x00\x40\x02\x02\x01\x00\x00", 14);

class Sender {
  public:
    explicit Sender(std::uint16_t port) : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
        to_.sin_family = AF_INET;
        to_.sin_port = htons(port);
        to_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    ~Sender() { close(fd_); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;
    void send(const std::string& datagram) const {
        sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to_),
               sizeof(to_));
    }

  private:
    int fd_;
    sockaddr_in to_{};
};

// Appends the times of one round.
bool measure_round(Program program, std::vector<double>* times) {
    const auto link = start_link(program);
    if (!link) {
        return false;
    }
    const Sender sender(link->port);
    const std::string& datagram = program == Program::kReceiver ? kCommand : kPacket;
    for (unsigned i = 0; i < kCommandsPerRound; ++i) {
        if (i % kCommandsBetweenData == 0) {
            link->board.bulk_out(Bytes(1, 0));
        }
        std::this_thread::sleep_for(kBetweenCommands);
        const auto sent = Clock::now();
        sender.send(datagram);
        if (!link->board.wait_for_bulk_in(i, 5s)) {
            fprintf(stderr, "The %s did not send packet %u\n", name_of(program), i);
            return false;
        }
        times->push_back(Microseconds(Clock::now() - sent).count());
    }
    return true;
}

double percentile(std::vector<double>& times, unsigned percent) {
    std::ranges::sort(times);
    return times[(times.size() - 1) * percent / 100];
}

}  // namespace

bool compare_command_latency() {
    std::vector<double> receiver;
    std::vector<double> bare;
    for (unsigned round = 0; round < kRounds; ++round) {
        if (!measure_round(Program::kReceiver, &receiver) ||
            !measure_round(Program::kBareLink, &bare)) {
            return false;
        }
    }
    printf("Datagram to bulk IN, %zu commands each\n", receiver.size());
    const double median = percentile(receiver, 50);
    const double bare_median = percentile(bare, 50);
    printf("  median           receiver %6.1f us, bare link %6.1f us, ratio %.2f (goal <= %.1f)\n",
           median, bare_median, median / bare_median, kMedianGoal);
    const double tail = percentile(receiver, 99);
    const double bare_tail = percentile(bare, 99);
    printf("  99th percentile  receiver %6.1f us, bare link %6.1f us, ratio %.2f (goal <= %.1f)\n",
           tail, bare_tail, tail / bare_tail, kTailGoal);
    return true;
}
