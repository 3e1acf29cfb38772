// The focus-limit file: what is read of it, and exactly what is written.
#include "app/focus_config.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "app/system_paths.h"
#include "temporary_root.h"

namespace {
bool print_closes = false;
}  // namespace

extern "C" {

int __real_fclose(FILE* file);
int __wrap_fclose(FILE* file);

int __wrap_fclose(FILE* file) {
    const int result = __real_fclose(file);
    if (print_closes) {
        fprintf(stderr, "[close]\n");
    }
    return result;
}

}  // extern "C"

namespace {

using Commands = std::vector<std::string>;

class FocusConfig : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(TemporaryRoot::maps_places());
        set_limits(111, 222);
    }

    void set_limits(std::int32_t mf_min, std::int32_t mf_max) {
        focus_config_get()->mf_min = mf_min;
        focus_config_get()->mf_max = mf_max;
    }

    void expect_limits(std::int32_t mf_min, std::int32_t mf_max) {
        EXPECT_EQ(focus_config_get()->mf_min, mf_min);
        EXPECT_EQ(focus_config_get()->mf_max, mf_max);
    }

    int load(const std::string& text) {
        root_.write(kFocusConfigPath, text);
        return focus_config_load();
    }

    std::string save() {
        testing::internal::CaptureStderr();
        focus_config_save();
        return testing::internal::GetCapturedStderr();
    }

    // Its lines with the commands and the closing of the file between them.
    std::string save_step_by_step() {
        root_.after_each_command("echo \"[${0##*/} $*]\" >&2");
        testing::internal::CaptureStderr();
        print_closes = true;
        focus_config_save();
        print_closes = false;
        return testing::internal::GetCapturedStderr();
    }

    TemporaryRoot root_;
};

struct LoadCase {
    const char* name;
    std::string text;
    std::int32_t mf_min;
    std::int32_t mf_max;
};

// clang-format off
const LoadCase kLoadCases[] = {
    {"AsSaved",          "# Osmo USB config file\r\n\r\nmf_min=500\r\nmf_max=2000\r\n", 500, 2000},
    {"OnlyMin",          "mf_min=100",                            100, 0},
    {"OnlyMax",          "mf_max=100\n",                          0,   100},
    {"PlainLineEnds",    "mf_min=1\nmf_max=2\n",                  1,   2},
    {"OtherOrder",       "mf_max=2\nmf_min=1\n",                  1,   2},
    {"SpacesAround",     "  mf_min =  1  \nmf_max\t=\t2\n",       1,   2},
    {"Colon",            "mf_min: 1\nmf_max: 2\n",                1,   2},
    {"Comments",         "; one\n# two\nmf_min=1 ; three\nmf_max=2\n", 1, 2},
    {"ByteOrderMark",    "\xEF\xBB\xBFmf_min=1\nmf_max=2\n",      1,   2},
    {"SectionFirst",     "[focus]\nmf_min=1\nmf_max=2\n",         0,   0},
    {"SectionBetween",   "mf_min=1\n[focus]\nmf_max=2\n",         1,   0},
    {"EmptySection",     "[focus]\n[]\nmf_min=1\nmf_max=2\n",     1,   2},
    {"OtherKeys",        "mf_mid=9\nmf_min=1\nxyz=5\nmf_max=2\n", 1,   2},
    {"CaseMatters",      "MF_MIN=1\nMf_max=2\n",                  0,   0},
    {"LongerNames",      "mf_min2=1\nmf_ma=2\n",                  0,   0},
    {"LastOneCounts",    "mf_min=1\nmf_min=3\n",                  3,   0},
    {"Negative",         "mf_min=-100\nmf_max=-1\n",              -100, -1},
    {"SwappedRange",     "mf_min=2000\nmf_max=500\n",             2000, 500},
    {"NoNumbers",        "mf_min=abc\nmf_max=\n",                 0,   0},
    {"NumberWithTail",   "mf_min=12abc\nmf_max=0x10\n",           12,  0},
    {"LineWithoutEquals", "mf_min\nmf_max=2\n",                   0,   2},
    {"Continuation",     "mf_min=1\n  5\nmf_max=2\n",             5,   2},
    {"ContinuedAfterAnEmptyLine", "mf_max=1\n\n\t-6\n",           0,   -6},
    {"ContinuedInASection", "[focus]\nmf_min=1\n  5\n",           0,   0},
    {"UnclosedSection",  "[focus\nmf_min=1\nmf_max=2\n",          1,   2},
    {"Empty",            "",                                      0,   0},
    {"Limits",           "mf_min=-2147483648\nmf_max=2147483647\n",
                         std::numeric_limits<std::int32_t>::min(),
                         std::numeric_limits<std::int32_t>::max()},
};
// clang-format on

TEST_F(FocusConfig, FilesAndWhatIsReadOfThem) {
    for (const LoadCase& row : kLoadCases) {
        SCOPED_TRACE(row.name);
        set_limits(111, 222);
        EXPECT_EQ(load(row.text), 0);
        expect_limits(row.mf_min, row.mf_max);
    }
}

TEST_F(FocusConfig, MissingFileFailsAndClearsTheLimits) {
    EXPECT_EQ(focus_config_load(), 1);
    expect_limits(0, 0);
}

TEST_F(FocusConfig, NumbersBeyondThirtyTwoBitsKeepTheLowOnes) {
    EXPECT_EQ(load("mf_min=4294967297\nmf_max=99999999999999999999999\n"), 0);
    expect_limits(1, -1);
}

TEST_F(FocusConfig, DirectoryInThePlaceOfTheFileDoesNoHarm) {
    ASSERT_EQ(rename(root_.path("/run/vantarel").c_str(), root_.path(kFocusConfigPath).c_str()), 0);
    EXPECT_EQ(focus_config_load(), 0);  // it opens; only reading fails
    expect_limits(0, 0);
    EXPECT_EQ(save(), "Saving config\nFailed to save camera config\n");
}

TEST_F(FocusConfig, BinaryFileDoesNoHarm) {
    std::string bytes;
    for (int i = 0; i < 100000; ++i) {
        bytes.push_back(static_cast<char>((i * 7919) >> 3));
    }
    EXPECT_EQ(load(bytes), 0);
    expect_limits(0, 0);
    EXPECT_EQ(load(bytes + "\nmf_max=6\n"), 0);
}

// The parser takes 199 characters as a line, and what follows as the next one.
TEST_F(FocusConfig, LongLineIsCutAndItsRestIsALineOfItsOwn) {
    EXPECT_EQ(load("#" + std::string(198, 'x') + "mf_max=7\nmf_min=5\n"), 0);
    expect_limits(5, 7);
    EXPECT_EQ(load("#" + std::string(197, 'x') + "mf_max=7\nmf_min=5\n"), 0);
    expect_limits(5, 0);
    EXPECT_EQ(load("#" + std::string(199, 'x') + "mf_max=7\nmf_min=5\n"), 0);
    expect_limits(5, 0);
    // The rest of a value begins with a space here: it continues the key.
    EXPECT_EQ(load("mf_max=12" + std::string(300, ' ') + "13\nmf_min=5\n"), 0);
    expect_limits(5, 13);
}

TEST_F(FocusConfig, LinesWithoutEndDoNoHarm) {
    EXPECT_EQ(load(std::string(1000000, 'x')), 0);
    expect_limits(0, 0);
    EXPECT_EQ(load("mf_min=5\nmf_max=" + std::string(1000000, '9') + "\n"), 0);
    // As many nines as the first piece of the line has: the largest number, whose low bits count.
    expect_limits(5, -1);
}

TEST_F(FocusConfig, FileOfAGigabyteIsReadInSeconds) {
    root_.write(kFocusConfigPath, "mf_min=5\n");
    ASSERT_EQ(truncate(root_.path(kFocusConfigPath).c_str(), 1 << 30), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(focus_config_load(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
    expect_limits(5, 0);
}

TEST_F(FocusConfig, SavedFileIsExactlyThese) {
    set_limits(500, 2000);
    EXPECT_EQ(save(), "Saving config\nCamera config saved\n");
    EXPECT_EQ(root_.read(kFocusConfigPath),
              "# Osmo USB config file\r\n\r\nmf_min=500\r\nmf_max=2000\r\n");
}

TEST_F(FocusConfig, SavedFileOfTheLongestNumbers) {
    set_limits(std::numeric_limits<std::int32_t>::min(), -2147483647);
    save();
    EXPECT_EQ(root_.read(kFocusConfigPath),
              "# Osmo USB config file\r\n\r\nmf_min=-2147483648\r\nmf_max=-2147483647\r\n");
}

TEST_F(FocusConfig, SaveReplacesALongerFile) {
    root_.write(kFocusConfigPath, std::string(5000, '#') + "\nmf_min=1\n");
    set_limits(0, 0);
    save();
    EXPECT_EQ(root_.read(kFocusConfigPath),
              "# Osmo USB config file\r\n\r\nmf_min=0\r\nmf_max=0\r\n");
}

TEST_F(FocusConfig, WhatIsSavedIsLoadedAgain) {
    set_limits(-7, 90000);
    save();
    set_limits(1, 2);
    EXPECT_EQ(focus_config_load(), 0);
    expect_limits(-7, 90000);
}

TEST_F(FocusConfig, SaveRemountsBeforeAndAfter) {
    save();
    EXPECT_EQ(root_.shell_commands(),
              (Commands{"mount -o rw,remount /boot", "umount /boot", "mount /boot"}));
}

TEST_F(FocusConfig, SaveIsAnnouncedFirstAndReportedWithTheFileClosed) {
    EXPECT_EQ(save_step_by_step(),
              "Saving config\n"
              "[mount -o rw,remount /boot]\n"
              "[close]\n"
              "Camera config saved\n"
              "[umount /boot]\n"
              "[mount /boot]\n");
}

TEST_F(FocusConfig, FailingSaveIsAnnouncedFirstAndReportedAfterTheRemount) {
    root_.remove("/boot");
    EXPECT_EQ(save_step_by_step(),
              "Saving config\n"
              "[mount -o rw,remount /boot]\n"
              "Failed to save camera config\n");
}

TEST_F(FocusConfig, SaveWritesBetweenTheRemounts) {
    root_.write(kFocusConfigPath, "old\n");
    set_limits(500, 2000);
    const std::string file = root_.path(kFocusConfigPath);
    root_.after_each_command("echo \"$(wc -c <" + file + ") bytes\" >>" + root_.path("/seen"));
    save();
    // The old file at the first command; the whole new one, closed, at the other two.
    EXPECT_EQ(root_.read("/seen"), "4 bytes\n51 bytes\n51 bytes\n");
}

TEST_F(FocusConfig, SaveGoesOnWhereTheCommandsFail) {
    root_.after_each_command("exit 32");
    EXPECT_EQ(save(), "Saving config\nCamera config saved\n");
    EXPECT_EQ(root_.shell_commands().size(), 3U);
}

TEST_F(FocusConfig, SaveThatCannotOpenTheFileLeavesThePartitionAndTheLimits) {
    root_.remove("/boot");
    set_limits(500, 2000);
    EXPECT_EQ(save(), "Saving config\nFailed to save camera config\n");
    EXPECT_EQ(root_.shell_commands(), (Commands{"mount -o rw,remount /boot"}));
    expect_limits(500, 2000);
}

}  // namespace
