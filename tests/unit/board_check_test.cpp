// Which boards are accepted, and what is printed and published about it.
#include "app/board_check.h"

#include <gtest/gtest.h>

#include <string>

#include "app/system_paths.h"
#include "temporary_root.h"

namespace {

class BoardCheck : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(TemporaryRoot::maps_places()); }

    bool check(const std::string& model) {
        root_.write(kBoardModelPath, model);
        return check_as_it_is();
    }

    bool check_as_it_is() {
        testing::internal::CaptureStderr();
        const bool accepted = board_check();
        log_ = testing::internal::GetCapturedStderr();
        return accepted;
    }

    std::string published() { return root_.read(kBoardSupportedPath); }

    TemporaryRoot root_;
    std::string log_;
};

TEST_F(BoardCheck, AcceptedBoardIsPrintedAndPublished) {
    EXPECT_TRUE(check("Raspberry Pi 4 Model B Rev 1.4"));
    EXPECT_EQ(log_, "Board model: Raspberry Pi 4 Model B Rev 1.4\nBoard supported\n");
    EXPECT_EQ(published(), "1");
}

TEST_F(BoardCheck, RefusedBoardIsPrintedAndPublished) {
    EXPECT_FALSE(check("Raspberry Pi 3 Model B Plus Rev 1.3"));
    EXPECT_EQ(log_, "Board model: Raspberry Pi 3 Model B Plus Rev 1.3\nBoard not supported\n");
    EXPECT_EQ(published(), "0");
}

TEST_F(BoardCheck, ModelsByTheirText) {
    // clang-format off
    const struct { const char* model; bool accepted; } kModels[] = {
        {"Raspberry Pi 3 Model A Plus Rev 1.0", true},
        {"Raspberry Pi 3 Model A",              true},
        {"Raspberry Pi 4 Model B Rev 1.1",      true},
        {"A Raspberry Pi 4 Model B in a case",  true},
        {"Raspberry Pi 4 Model A",              false},
        {"Raspberry Pi 3 Model B Rev 1.2",      false},
        {"Raspberry Pi 5 Model B Rev 1.0",      false},
        {"Raspberry Pi Zero 2 W Rev 1.0",       false},
        {"Raspberry Pi Compute Module 4",       false},
        {"raspberry pi 4 model b",              false},
        {"Raspberry Pi 4  Model B",             false},
        {"Raspberry Pi 4 Model",                false},
        {"",                                    false},
    };
    // clang-format on
    for (const auto& row : kModels) {
        EXPECT_EQ(check(row.model), row.accepted) << row.model;
        EXPECT_EQ(published(), row.accepted ? "1" : "0") << row.model;
    }
}

TEST_F(BoardCheck, FirmwareEndsTheModelWithANulByte) {
    EXPECT_TRUE(check(std::string("Raspberry Pi 4 Model B Rev 1.4\0", 31)));
    EXPECT_EQ(log_, "Board model: Raspberry Pi 4 Model B Rev 1.4\nBoard supported\n");
}

TEST_F(BoardCheck, TextEndsAtTheFirstNulByte) {
    EXPECT_FALSE(check(std::string("Some board\0Raspberry Pi 4 Model B", 33)));
    EXPECT_EQ(log_, "Board model: Some board\nBoard not supported\n");
}

TEST_F(BoardCheck, MissingModelIsRefused) {
    EXPECT_FALSE(check_as_it_is());
    EXPECT_EQ(log_, "Board model: \nBoard not supported\n");
    EXPECT_EQ(published(), "0");
}

TEST_F(BoardCheck, ModelThatIsADirectoryIsRefused) {
    root_.write(std::string(kBoardModelPath) + ".d", "");
    ASSERT_EQ(rename(root_.path("/boot").c_str(), root_.path(kBoardModelPath).c_str()), 0);
    EXPECT_FALSE(check_as_it_is());
    EXPECT_EQ(log_, "Board model: \nBoard not supported\n");
}

TEST_F(BoardCheck, ModelOfAHundredBytesStaysWithinItsBuffer) {
    const std::string name = "Raspberry Pi 4 Model B";  // 22 bytes
    EXPECT_TRUE(check(std::string(78, 'x') + name));
    EXPECT_EQ(log_, "Board model: " + std::string(78, 'x') + name + "\nBoard supported\n");
}

TEST_F(BoardCheck, OnlyAHundredBytesAreRead) {
    EXPECT_FALSE(check(std::string(79, 'x') + "Raspberry Pi 4 Model B"));
    EXPECT_EQ(log_, "Board model: " + std::string(79, 'x') +
                        "Raspberry Pi 4 Model \nBoard not supported\n");
    EXPECT_FALSE(check(std::string(1000000, 'y')));
    EXPECT_EQ(log_, "Board model: " + std::string(100, 'y') + "\nBoard not supported\n");
}

TEST_F(BoardCheck, ModelIsNoFormat) {
    EXPECT_FALSE(check("%s%n%x"));
    EXPECT_EQ(log_, "Board model: %s%n%x\nBoard not supported\n");
}

TEST_F(BoardCheck, VerdictReplacesALongerFile) {
    root_.write(kBoardSupportedPath, "something longer\n");
    EXPECT_TRUE(check("Raspberry Pi 4 Model B"));
    EXPECT_EQ(published(), "1");
}

TEST_F(BoardCheck, VerdictWithoutItsDirectoryIsNotPublished) {
    root_.remove("/run/vantarel");
    EXPECT_TRUE(check("Raspberry Pi 4 Model B"));
    EXPECT_EQ(log_, "Board model: Raspberry Pi 4 Model B\nBoard supported\n");
    EXPECT_FALSE(root_.exists(kBoardSupportedPath));
}

}  // namespace
