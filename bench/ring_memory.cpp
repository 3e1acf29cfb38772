#include "ring_memory.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "video/frame_buffers.h"

namespace {

constexpr int kPartsPerHour = 30 * 3600;
constexpr std::size_t kShortestPart = std::size_t{4} * 1024;
constexpr std::size_t kLongestPart = std::size_t{48} * 1024;
constexpr double kGoal = 24.0;

double resident_megabytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stod(line.substr(6)) / 1024;
        }
    }
    return 0;
}

}  // namespace

void measure_ring_memory() {
    const double before = resident_megabytes();
    const std::vector<std::uint8_t> part(kLongestPart, 0xB1);
    std::minstd_rand random(1);
    std::uniform_int_distribution<std::size_t> part_size(kShortestPart, kLongestPart);
    for (int i = 0; i < kPartsPerHour; ++i) {
        frame_queue_part(part.data(), part_size(random));
    }
    printf(
        "resident memory before %.1f MB, after an hour of 1080p video %.1f MB (goal below %.0f)\n",
        before, resident_megabytes(), kGoal);
}
