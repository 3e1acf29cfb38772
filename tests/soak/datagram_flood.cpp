#include "tests/soak/datagram_flood.h"

#include <algorithm>
#include <random>
#include <string>
#include <utility>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr milliseconds kTick{1};
constexpr double kTicksPerSecond = 1000;
constexpr double kCatchingUp = 2;  // times the rate

// First bytes that a message of the main application has: the zoom message, JSON.
constexpr std::uint8_t kMeaningful[] = {0x05, '!'};

const char* const kTexts[] = {
    "!",
    "!{",
    "!{}",
    "![[[[[[[[[[[[[[[[[[[[[[[[[[[[[[",
    R"(!{"cmd":"no such command","param":"1"})",
    R"(!{"cmd":"iso"})",
    R"(!{"cmd":"record","param":"neither"})",
    R"(!{"cmd":"set","name":"nothing","value":"rel"})",
    "{\"cmd\":\"iso\",\"param\":\"100\"}",
};

Bytes noise(std::mt19937& random) {
    Bytes bytes(1 + random() % (random() % 16 == 0 ? 9000 : 300));
    std::ranges::generate(bytes, [&] { return static_cast<std::uint8_t>(random()); });
    if (std::ranges::find(kMeaningful, bytes[0]) != std::end(kMeaningful)) {
        bytes[0] = 0x55;
    }
    return bytes;
}

}  // namespace

DatagramFlood::DatagramFlood(std::uint16_t port, double per_second, std::vector<Bytes> datagrams)
    : port_(port),
      per_second_(per_second),
      datagrams_(std::move(datagrams)),
      thread_([this] { run(); }) {}

// What a pause of the machine kept back is sent behind it, so that the rate holds; but not in one
// burst, which would be another rate.
void DatagramFlood::run() {
    const auto most_at_once =
        static_cast<std::size_t>(kCatchingUp * per_second_ / kTicksPerSecond) + 1;
    while (!stop_) {
        const std::chrono::duration<double> passed = steady_clock::now() - begun_;
        const auto due =
            std::min(static_cast<std::size_t>(passed.count() * per_second_), sent_ + most_at_once);
        for (std::size_t i = sent_; i < due; ++i) {
            if (peer_.send(port_, datagrams_[i % datagrams_.size()])) {
                ++sent_;
            }
        }
        std::this_thread::sleep_for(kTick);
    }
}

void DatagramFlood::stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
        ended_ = steady_clock::now();
    }
}

double DatagramFlood::rate() const {
    const auto end = thread_.joinable() ? steady_clock::now() : ended_;
    return static_cast<double>(sent_) / std::chrono::duration<double>(end - begun_).count();
}

std::vector<Bytes> garbage_datagrams(std::size_t count) {
    std::mt19937 random(1);
    std::vector<Bytes> datagrams;
    while (datagrams.size() < count) {
        if (random() % 3 == 0) {
            const std::string text = kTexts[random() % std::size(kTexts)];
            datagrams.emplace_back(text.begin(), text.end());
        } else {
            datagrams.push_back(noise(random));
        }
    }
    return datagrams;
}
