#include "protocol/shared_fields.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

using namespace std::string_literals;

template <std::size_t N>
std::string bytes_of(const char (&field)[N]) {
    return {field, N};
}

TEST(SharedWord, IsZeroAtFirst) {
    const SharedWord<std::uint16_t> word;
    EXPECT_EQ(word, 0);
}

TEST(SharedWord, ReadsWhatWasWritten) {
    SharedWord<std::int16_t> word(-5);
    EXPECT_EQ(word, -5);
    word = std::int16_t{-32768};
    EXPECT_EQ(word.load(), -32768);
}

TEST(SharedWord, CopiesItsValue) {
    SharedWord<float> word(0.25F);
    const SharedWord<float> copy(word);
    SharedWord<float> assigned;
    assigned = word;
    word = 0.5F;
    EXPECT_EQ(copy, 0.25F);
    EXPECT_EQ(assigned, 0.25F);
}

TEST(SharedWord, TakesTheRoomOfItsWord) {
    EXPECT_EQ(sizeof(SharedWord<std::uint8_t>), 1U);
    EXPECT_EQ(sizeof(SharedWord<std::int16_t>), 2U);
    EXPECT_EQ(sizeof(SharedWord<float>), 4U);
}

TEST(SharedBytes, AreCopiedAndNoOthers) {
    char field[] = "......";
    write_shared_bytes(field + 1, "ab\0d", 4);
    EXPECT_EQ(bytes_of(field), ".ab\0d.\0"s);
    char copy[] = "......";
    read_shared_bytes(copy + 2, field + 1, 3);
    EXPECT_EQ(bytes_of(copy), "..ab\0.\0"s);
}

TEST(SharedText, EndsWithItsNul) {
    char field[8] = "~~~~~~~";
    write_shared_text(field, "abc");
    EXPECT_EQ(bytes_of(field), "abc\0~~~\0"s);
}

TEST(SharedText, EmptyText) {
    char field[8] = "~~~~~~~";
    write_shared_text(field, "");
    EXPECT_STREQ(field, "");
}

TEST(SharedText, OneThatFillsTheField) {
    char field[8] = {};
    write_shared_text(field, "1234567");
    EXPECT_EQ(bytes_of(field), "1234567\0"s);
}

TEST(SharedText, OneThatDoesNotFitIsCut) {
    struct {
        char field[8] = {};
        char behind = '!';
    } record;
    write_shared_text(record.field, "123456789");
    EXPECT_STREQ(record.field, "1234567");
    EXPECT_EQ(record.behind, '!');
}

TEST(SharedText, SourceIsReadNoFurtherThanNeeded) {
    const char without_nul[3] = {'a', 'b', 'c'};
    char field[4] = {};
    write_shared_text(field, without_nul);
    EXPECT_STREQ(field, "abc");
}

TEST(SharedText, CopyHasTheFieldsBytes) {
    char field[8] = "1234567";
    write_shared_text(field, "ab");
    EXPECT_STREQ(read_shared_text(field).data(), "ab");
}

// Whatever lies in the last byte, the copy has an end.
TEST(SharedText, CopyEndsWithinTheCapacity) {
    const char field[4] = {'a', 'b', 'c', 'd'};
    EXPECT_STREQ(read_shared_text(field).data(), "abc");
}

// A reader may see one text's beginning before another one's end, and never anything else.
TEST(SharedText, ReaderWithoutALockSeesOnlyTheTextsBytes) {
    char field[20] = {};
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 20000; ++i) {
            write_shared_text(field, i % 2 == 0 ? "AAAAAAAAAAAAAAAAAAA" : "bbbb");
        }
        done = true;
    });
    do {
        const std::string seen = read_shared_text(field).data();
        ASSERT_LE(seen.size(), 19U);
        ASSERT_EQ(seen.find_first_not_of("Ab"), std::string::npos);
    } while (!done);
    writer.join();
}

}  // namespace
