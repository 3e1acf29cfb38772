// The samples of a soak: a file of tab-separated values as they come, and at the end the table and
// what was out of bounds. Reentrant.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

enum class Column : std::size_t {
    kResident,
    kAnonymous,
    kProportional,
    kData,
    kDescriptors,
    kThreads,
    kCommandMedian,
    kCommandLongest,
    kRingMedian,
    kRingLongest,
    kTextPause,
    kStatusPause,
    kParts,
    kPartsLost,
    kCommands,
    kCommandsLost,
    kStickPackets,
};
inline constexpr std::size_t kColumnCount = 17;

struct Sample {
    double seconds = 0;    // since the soak began
    unsigned session = 0;  // each has a process of its own
    std::array<double, kColumnCount> values{};

    double& operator[](Column column) { return values[static_cast<std::size_t>(column)]; }
    double operator[](Column column) const { return values[static_cast<std::size_t>(column)]; }
};

// The file's first line and a sample's, with their line ends.
std::string header_line();
std::string sample_line(const Sample& sample);

struct ColumnSummary {
    double first, least, median, most, last;
    // Within the sessions: each process is compared with itself alone.
    double slope_per_hour;
};
ColumnSummary summary_of(const std::vector<Sample>& samples, Column column);

// All columns, a line each.
std::string summary_table(const std::vector<Sample>& samples);

// One line for each thing that must not be: memory or descriptors that grow in one process beyond
// what its first sample had, a thread too few or too many, anything lost, sticks without effect.
std::vector<std::string> findings_in(const std::vector<Sample>& samples);
