// As fast as the board's controller goes: the receiver with its ring, next to a reader with nothing
// behind it, in turns on the same board. Its clock counts instructions, so that the figures tell of
// the programs and not of the machine that emulates it.

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <thread>

#include "client/ring_reader.h"
#include "simulator/camera_stream.h"
#include "tests/board/board_support.h"

namespace {

constexpr double kLeastRatio = 0.9;
constexpr int kRounds = 3;
constexpr int kBursts = 4;  // in each round
constexpr std::size_t kPictures = 24;
constexpr std::size_t kPicture = 48000;

// Neither a parameter set nor filler, and different in each.
Bytes picture(std::size_t number) {
    Bytes bytes(kPicture);
    std::uint32_t random = static_cast<std::uint32_t>(number) + 1;
    for (std::uint8_t& byte : bytes) {
        random = random * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(random >> 24);
    }
    const Bytes start = {0x00, 0x00, 0x00, 0x01, 0x41};
    std::ranges::copy(start, bytes.begin());
    return bytes;
}

struct Bursts {
    std::vector<double> seconds;
    double cpu_seconds = 0;  // of the process that read

    double total_seconds() const { return std::reduce(seconds.begin(), seconds.end()); }
};

void print(const char* name, const Bursts& bursts, std::size_t size) {
    const double megabytes = static_cast<double>(size) / 1e6;
    const double all_megabytes = megabytes * static_cast<double>(bursts.seconds.size());
    printf("%-12s", name);
    for (const double seconds : bursts.seconds) {
        printf(" %.2f", megabytes / seconds);
    }
    printf(" MB/s; together %.2f MB/s, %.3f s of CPU for each MB\n",
           all_megabytes / bursts.total_seconds(), bursts.cpu_seconds / all_megabytes);
}

class Throughput : public BoardTest {
  protected:
    Throughput() {
        leave_out_interface_strings(true);
        for (std::size_t i = 0; i < kPictures; ++i) {
            pictures.push_back(picture(i));
        }
        stream = camera_stream(pictures, 10);
    }

    // User and system time of the process so far.
    double cpu_seconds() const {
        std::ifstream file("/proc/" + std::to_string(receiver->pid()) + "/stat");
        std::string text{std::istreambuf_iterator<char>(file), {}};
        std::istringstream fields(text.substr(text.rfind(')') + 1));
        std::string skipped;
        for (int field = 3; field < 14; ++field) {
            fields >> skipped;
        }
        double user = 0;
        double system = 0;
        fields >> user >> system;
        return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }

    // With a link that has been used already.
    void measure(Bursts* bursts) {
        ASSERT_TRUE(host->bulk_out(idle_stream(kUsbHostTransfer)));
        ASSERT_TRUE(host->wait_for_bulk_out_taken(10s)) << receiver->output();
        for (int i = 0; i < kBursts; ++i) {
            const double cpu_before = cpu_seconds();
            const auto start = std::chrono::steady_clock::now();
            ASSERT_TRUE(host->bulk_out(stream, kUsbHostTransfer, 30s)) << receiver->output();
            ASSERT_TRUE(host->wait_for_bulk_out_taken(10s)) << receiver->output();
            const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
            bursts->seconds.push_back(passed.count());
            bursts->cpu_seconds += cpu_seconds() - cpu_before;
        }
    }

    void end_process() {
        receiver.reset();
        ASSERT_TRUE(host->wait_until_gone(10s));
        host->close();
    }

    void measure_receiver() {
        ASSERT_NO_FATAL_FAILURE(start_linked());
        ASSERT_NO_FATAL_FAILURE(measure(&of_receiver));
        ASSERT_NO_FATAL_FAILURE(expect_pictures_in_ring());
        end_process();
    }

    void measure_bare_reader() {
        receiver = std::make_unique<ReceiverProcess>(
            std::vector<std::string>{}, std::vector<std::string>{kPathWithStandIn}, kBareReader);
        ASSERT_NO_FATAL_FAILURE(link_up());
        ASSERT_NO_FATAL_FAILURE(measure(&of_bare_reader));
        end_process();
    }

    // Behind the priming frame. What the reader has taken last may be on its way still.
    void expect_pictures_in_ring() {
        std::vector<Bytes> parts;
        RingReader ring;
        ASSERT_TRUE(ring.open());
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (parts.size() < 1 + kBursts * kPictures &&
               std::chrono::steady_clock::now() < deadline) {
            ring.take([&](std::uint16_t, std::span<const std::uint8_t> part) {
                parts.emplace_back(part.begin(), part.end());
            });
            std::this_thread::sleep_for(1ms);
        }
        ASSERT_EQ(parts.size(), 1 + kBursts * kPictures);
        for (auto burst = parts.begin() + 1; burst != parts.end(); burst += kPictures) {
            EXPECT_TRUE(std::equal(pictures.begin(), pictures.end(), burst));
        }
    }

    std::vector<Bytes> pictures;
    Bytes stream;
    Bursts of_receiver;
    Bursts of_bare_reader;
};

TEST_F(Throughput, OfTheReceiverIsNineTenthsOfABareReadersAtLeast) {
    for (int round = 0; round < kRounds; ++round) {
        ASSERT_NO_FATAL_FAILURE(measure_bare_reader());
        ASSERT_NO_FATAL_FAILURE(measure_receiver());
    }
    const double ratio = of_bare_reader.total_seconds() / of_receiver.total_seconds();
    print("bare reader", of_bare_reader, stream.size());
    print("receiver", of_receiver, stream.size());
    printf("ratio        %.2f\n", ratio);
    EXPECT_GE(ratio, kLeastRatio);
}

}  // namespace
