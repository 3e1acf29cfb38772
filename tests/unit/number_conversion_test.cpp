#include "protocol/number_conversion.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

TEST(SaturateToInt32, TruncatesTowardsZero) {
    EXPECT_EQ(saturate_to_int32(0.0), 0);
    EXPECT_EQ(saturate_to_int32(0.999), 0);
    EXPECT_EQ(saturate_to_int32(-0.999), 0);
    EXPECT_EQ(saturate_to_int32(1.999), 1);
    EXPECT_EQ(saturate_to_int32(-1.999), -1);
    EXPECT_EQ(saturate_to_int32(1799.5), 1799);
}

TEST(SaturateToInt32, KeepsBothEnds) {
    EXPECT_EQ(saturate_to_int32(2147483646.5), 2147483646);
    EXPECT_EQ(saturate_to_int32(2147483647.0), 2147483647);
    EXPECT_EQ(saturate_to_int32(-2147483647.5), -2147483647);
    EXPECT_EQ(saturate_to_int32(-2147483648.0), -2147483647 - 1);
}

TEST(SaturateToInt32, BeyondItsRangeIsItsNearestEnd) {
    EXPECT_EQ(saturate_to_int32(2147483648.0), 2147483647);
    EXPECT_EQ(saturate_to_int32(1e300), 2147483647);
    EXPECT_EQ(saturate_to_int32(kInfinity), 2147483647);
    EXPECT_EQ(saturate_to_int32(-2147483649.0), -2147483647 - 1);
    EXPECT_EQ(saturate_to_int32(-kInfinity), -2147483647 - 1);
}

TEST(SaturateToInt32, NoNumberIsZero) {
    EXPECT_EQ(saturate_to_int32(kNoNumber), 0);
    EXPECT_EQ(saturate_to_int32(-kNoNumber), 0);
}

TEST(SaturateToUint32, TruncatesWithinItsRange) {
    EXPECT_EQ(saturate_to_uint32(0.0), 0U);
    EXPECT_EQ(saturate_to_uint32(0.999), 0U);
    EXPECT_EQ(saturate_to_uint32(2147483648.7), 2147483648U);
    EXPECT_EQ(saturate_to_uint32(4294967294.9), 4294967294U);
    EXPECT_EQ(saturate_to_uint32(4294967295.0), 4294967295U);
}

TEST(SaturateToUint32, BeyondItsRangeIsItsNearestEnd) {
    EXPECT_EQ(saturate_to_uint32(-0.5), 0U);
    EXPECT_EQ(saturate_to_uint32(-1.0), 0U);
    EXPECT_EQ(saturate_to_uint32(-kInfinity), 0U);
    EXPECT_EQ(saturate_to_uint32(4294967296.0), 4294967295U);
    EXPECT_EQ(saturate_to_uint32(kInfinity), 4294967295U);
}

TEST(SaturateToUint32, NoNumberIsZero) {
    EXPECT_EQ(saturate_to_uint32(kNoNumber), 0U);
}

TEST(ParseInt32, DecimalNumbers) {
    EXPECT_EQ(parse_int32("0"), 0);
    EXPECT_EQ(parse_int32("42"), 42);
    EXPECT_EQ(parse_int32("-42"), -42);
    EXPECT_EQ(parse_int32("+7"), 7);
    EXPECT_EQ(parse_int32("007"), 7);
    EXPECT_EQ(parse_int32("2147483647"), 2147483647);
    EXPECT_EQ(parse_int32("-2147483648"), -2147483647 - 1);
}

TEST(ParseInt32, StopsAtWhatIsNoDigit) {
    EXPECT_EQ(parse_int32(" \t12"), 12);
    EXPECT_EQ(parse_int32("12abc"), 12);
    EXPECT_EQ(parse_int32("12.9"), 12);
    EXPECT_EQ(parse_int32("0x10"), 0);
    EXPECT_EQ(parse_int32("1e3"), 1);
}

TEST(ParseInt32, NoNumberIsZero) {
    EXPECT_EQ(parse_int32(""), 0);
    EXPECT_EQ(parse_int32("on"), 0);
    EXPECT_EQ(parse_int32("-"), 0);
    EXPECT_EQ(parse_int32("- 5"), 0);
}

TEST(ParseInt32, LongNumbersKeepTheirLowBits) {
    EXPECT_EQ(parse_int32("2147483648"), -2147483647 - 1);
    EXPECT_EQ(parse_int32("4294967297"), 1);
    EXPECT_EQ(parse_int32("-2147483649"), 2147483647);
    EXPECT_EQ(parse_int32("99999999999999999999"), -1);  // the longest 64-bit number's low bits
    EXPECT_EQ(parse_int32("-99999999999999999999"), 0);
}

TEST(ToSingle, RoundsWithinItsRange) {
    EXPECT_EQ(to_single(0.1), 0.1F);
    EXPECT_EQ(to_single(-1e-300), -0.0F);
    EXPECT_EQ(to_single(3.4028234e38), 3.4028234e38F);
    // Less than half a step beyond the largest one.
    EXPECT_EQ(to_single(0x1.fffffefp+127), 0x1.fffffep+127F);
}

TEST(ToSingle, BeyondItsRangeIsInfinite) {
    EXPECT_EQ(to_single(0x1.ffffffp+127), std::numeric_limits<float>::infinity());
    EXPECT_EQ(to_single(1e300), std::numeric_limits<float>::infinity());
    EXPECT_EQ(to_single(-1e300), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(to_single(kInfinity), std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(to_single(kNoNumber)));
}

}  // namespace
