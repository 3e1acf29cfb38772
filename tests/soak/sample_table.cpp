#include "tests/soak/sample_table.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>

#include "tests/soak/figures.h"

namespace {

constexpr double kUnlimited = 1e18;
constexpr double kSecondsPerHour = 3600;

// How a column is called, and how much its value may exceed that of the same session's first
// sample (`growth`) and be in any sample (`most`).
struct Rule {
    const char* name;
    double growth;
    double most;
};
// clang-format off
constexpr Rule kRules[kColumnCount] = {
    {"rss_kb",              kUnlimited, kUnlimited},  // the ring's slots are touched one by one
    {"rss_anon_kb",         256,        kUnlimited},
    {"pss_kb",              kUnlimited, kUnlimited},
    {"data_kb",             512,        kUnlimited},
    {"descriptors",         0,          kUnlimited},
    {"threads",             0,          7},           // docs/architecture.md has their table
    {"command_ms",          kUnlimited, kUnlimited},
    {"command_longest_ms",  kUnlimited, kUnlimited},
    {"ring_ms",             kUnlimited, kUnlimited},
    {"ring_longest_ms",     kUnlimited, kUnlimited},
    {"text_pause_ms",       kUnlimited, kUnlimited},
    {"status_pause_ms",     kUnlimited, kUnlimited},
    {"parts",               kUnlimited, kUnlimited},
    {"parts_lost",          kUnlimited, 0},
    {"commands",            kUnlimited, kUnlimited},
    {"commands_lost",       kUnlimited, 0},
    {"stick_packets",       kUnlimited, kUnlimited},
};
// clang-format on

// Of these, a sample without any is a finding.
constexpr Column kNeverNone[] = {Column::kParts, Column::kCommands, Column::kStickPackets};

constexpr double kThreads = 7;

std::string format_number(double value) {
    char text[32];
    snprintf(text, sizeof(text),
             value == static_cast<double>(static_cast<long>(value)) ? "%.0f" : "%.3f", value);
    return text;
}

std::string finding(const Sample& sample, const Rule& rule, double value, const char* what,
                    double bound) {
    return "at " + format_number(sample.seconds) + " s, session " + std::to_string(sample.session) +
           ": " + rule.name + " is " + format_number(value) + ", " + what + " " +
           format_number(bound);
}

double slope_within_sessions(const std::vector<Sample>& samples, Column column) {
    struct Sums {
        double count = 0, time = 0, value = 0;
    };
    std::map<unsigned, Sums> sessions;
    for (const Sample& sample : samples) {
        Sums& sums = sessions[sample.session];
        sums.count += 1;
        sums.time += sample.seconds;
        sums.value += sample[column];
    }
    double products = 0;
    double squares = 0;
    for (const Sample& sample : samples) {
        const Sums& sums = sessions[sample.session];
        const double time = sample.seconds - sums.time / sums.count;
        products += time * (sample[column] - sums.value / sums.count);
        squares += time * time;
    }
    return squares > 0 ? products / squares * kSecondsPerHour : 0;
}

}  // namespace

std::string header_line() {
    std::string line = "seconds\tsession";
    for (const Rule& rule : kRules) {
        line += std::string("\t") + rule.name;
    }
    return line + "\n";
}

std::string sample_line(const Sample& sample) {
    std::string line = format_number(sample.seconds) + "\t" + std::to_string(sample.session);
    for (const double value : sample.values) {
        line += "\t" + format_number(value);
    }
    return line + "\n";
}

ColumnSummary summary_of(const std::vector<Sample>& samples, Column column) {
    if (samples.empty()) {
        return {};
    }
    std::vector<double> values;
    std::ranges::transform(samples, std::back_inserter(values),
                           [column](const Sample& sample) { return sample[column]; });
    const auto [least, most] = std::ranges::minmax(values);
    return {values.front(), least,         percentile(values, 50),
            most,           values.back(), slope_within_sessions(samples, column)};
}

std::string summary_table(const std::vector<Sample>& samples) {
    char line[160];
    snprintf(line, sizeof(line), "%-20s %12s %12s %12s %12s %12s %14s\n", "", "first", "min",
             "median", "max", "last", "slope per hour");
    std::string table = line;
    for (std::size_t i = 0; i < kColumnCount; ++i) {
        const ColumnSummary row = summary_of(samples, static_cast<Column>(i));
        snprintf(line, sizeof(line), "%-20s %12.2f %12.2f %12.2f %12.2f %12.2f %14.2f\n",
                 kRules[i].name, row.first, row.least, row.median, row.most, row.last,
                 row.slope_per_hour);
        table += line;
    }
    return table;
}

std::vector<std::string> findings_in(const std::vector<Sample>& samples) {
    std::vector<std::string> findings;
    std::map<unsigned, const Sample*> first_of;
    for (const Sample& sample : samples) {
        const Sample& first = *first_of.emplace(sample.session, &sample).first->second;
        for (std::size_t i = 0; i < kColumnCount; ++i) {
            const Rule& rule = kRules[i];
            const double value = sample.values[i];
            if (value > first.values[i] + rule.growth) {
                findings.push_back(finding(sample, rule, value, "after", first.values[i]));
            }
            if (value > rule.most) {
                findings.push_back(finding(sample, rule, value, "more than", rule.most));
            }
        }
        if (sample[Column::kThreads] < kThreads) {
            findings.push_back(finding(sample, kRules[static_cast<std::size_t>(Column::kThreads)],
                                       sample[Column::kThreads], "less than", kThreads));
        }
        for (const Column column : kNeverNone) {
            if (sample[column] == 0) {
                findings.push_back(
                    finding(sample, kRules[static_cast<std::size_t>(column)], 0, "and that is", 0));
            }
        }
    }
    return findings;
}
