#include "protocol/little_endian.h"

#include <gtest/gtest.h>

#include <array>

namespace {

TEST(LittleEndian, SixteenBitsLowByteFirst) {
    const std::uint8_t bytes[] = {0xDE, 0x2F};
    EXPECT_EQ(read_le16(bytes), 0x2FDE);
}

TEST(LittleEndian, ThirtyTwoBitsLowByteFirst) {
    const std::uint8_t bytes[] = {0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(read_le32(bytes), 0x12345678U);
}

TEST(LittleEndian, HighBitsAreNotASign) {
    const std::uint8_t bytes[] = {0xFF, 0xFE, 0xFD, 0xFC};
    EXPECT_EQ(read_le16(bytes), 0xFEFF);
    EXPECT_EQ(read_le32(bytes), 0xFCFDFEFFU);
}

TEST(LittleEndian, AnyAlignment) {
    const std::uint8_t bytes[] = {0x00, 0x01, 0x02, 0x03, 0x04};
    EXPECT_EQ(read_le16(bytes + 1), 0x0201);
    EXPECT_EQ(read_le32(bytes + 1), 0x04030201U);
}

TEST(LittleEndian, WritesTheirBytesAndNoOthers) {
    std::array<std::uint8_t, 8> bytes;
    bytes.fill(0xAA);
    write_le16(bytes.data() + 1, 0xBBB5);
    write_le32(bytes.data() + 4, 0xFCFDFEFF);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 8>{0xAA, 0xB5, 0xBB, 0xAA, 0xFF, 0xFE, 0xFD, 0xFC}));
}

}  // namespace
