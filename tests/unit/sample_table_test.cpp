// What the soak makes of its samples.

#include "tests/soak/sample_table.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// One in which nothing is out of bounds.
Sample good_sample(double seconds, unsigned session) {
    Sample sample;
    sample.seconds = seconds;
    sample.session = session;
    sample[Column::kThreads] = 7;
    sample[Column::kDescriptors] = 12;
    sample[Column::kAnonymous] = 424;
    sample[Column::kData] = 50000;
    sample[Column::kParts] = 150;
    sample[Column::kCommands] = 50;
    sample[Column::kStickPackets] = 250;
    return sample;
}

TEST(SampleTable, GoodSamplesHaveNoFindings) {
    EXPECT_THAT(findings_in({good_sample(5, 1), good_sample(10, 1), good_sample(15, 2)}),
                IsEmpty());
}

struct Fault {
    const char* name;
    Column column;
    double value;
    const char* finding;
};

class SampleOutOfBounds : public testing::TestWithParam<Fault> {};

TEST_P(SampleOutOfBounds, IsFound) {
    Sample second = good_sample(10, 1);
    second[GetParam().column] = GetParam().value;
    EXPECT_THAT(findings_in({good_sample(5, 1), second}),
                ElementsAre(HasSubstr(GetParam().finding)));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rules, SampleOutOfBounds, testing::Values(
    Fault{"AnonymousMemory", Column::kAnonymous,    681,   "rss_anon_kb is 681, after 424"},
    Fault{"DataSegment",     Column::kData,         50513, "data_kb is 50513, after 50000"},
    Fault{"Descriptor",      Column::kDescriptors,  13,    "descriptors is 13, after 12"},
    Fault{"ThreadMissing",   Column::kThreads,      6,     "threads is 6, less than 7"},
    Fault{"PartLost",        Column::kPartsLost,    1,     "parts_lost is 1, more than 0"},
    Fault{"CommandLost",     Column::kCommandsLost, 1,     "commands_lost is 1, more than 0"},
    Fault{"NoParts",         Column::kParts,        0,     "parts is 0"},
    Fault{"SticksDead",      Column::kStickPackets, 0,     "stick_packets is 0"}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST(SampleTable, ThreadTooManyIsFoundFromTheFirstSampleOn) {
    Sample sample = good_sample(5, 1);
    sample[Column::kThreads] = 8;
    EXPECT_THAT(findings_in({sample}), ElementsAre(HasSubstr("threads is 8, more than 7")));
}

TEST(SampleTable, GrowthUpToTheBoundPasses) {
    Sample second = good_sample(10, 1);
    second[Column::kAnonymous] = 680;
    EXPECT_THAT(findings_in({good_sample(5, 1), second}), IsEmpty());
}

// A new process is not measured by the one before.
TEST(SampleTable, SessionIsComparedWithItsOwnFirstSample) {
    Sample second = good_sample(10, 2);
    second[Column::kAnonymous] = 2000;
    EXPECT_THAT(findings_in({good_sample(5, 1), second}), IsEmpty());
}

TEST(SampleTable, SummaryHasOrderAndSlope) {
    std::vector<Sample> samples;
    for (const double value : {3.0, 1.0, 5.0}) {
        samples.push_back(good_sample(1800.0 * static_cast<double>(samples.size()), 1));
        samples.back()[Column::kRingMedian] = value;
    }
    const ColumnSummary summary = summary_of(samples, Column::kRingMedian);
    EXPECT_EQ(summary.first, 3);
    EXPECT_EQ(summary.least, 1);
    EXPECT_EQ(summary.median, 3);
    EXPECT_EQ(summary.most, 5);
    EXPECT_EQ(summary.last, 5);
    EXPECT_DOUBLE_EQ(summary.slope_per_hour, 2);
}

TEST(SampleTable, StepBetweenSessionsIsNoSlope) {
    std::vector<Sample> samples;
    for (const unsigned session : {1U, 2U}) {
        for (const double seconds : {0.0, 5.0}) {
            samples.push_back(good_sample(seconds + 10 * session, session));
            samples.back()[Column::kAnonymous] = 400.0 * session;
        }
    }
    EXPECT_DOUBLE_EQ(summary_of(samples, Column::kAnonymous).slope_per_hour, 0);
}

TEST(SampleTable, LinesHaveAFieldForEachColumn) {
    const std::string header = header_line();
    const std::string line = sample_line(good_sample(5.25, 3));
    EXPECT_EQ(std::ranges::count(header, '\t'), kColumnCount + 1);
    EXPECT_EQ(std::ranges::count(line, '\t'), kColumnCount + 1);
    EXPECT_TRUE(line.starts_with("5.250\t3\t0\t424\t0\t50000\t12\t7\t")) << line;
}

}  // namespace
