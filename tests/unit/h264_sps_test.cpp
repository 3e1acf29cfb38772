#include "video/h264_sps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "video/include/h264parse.h"
#include "video/priming_frame.h"

namespace {

using testing::Pair;
using Bytes = std::vector<std::uint8_t>;

// Bytes of a text of 0 and 1; blanks between fields mean nothing, the last byte is filled with 0.
Bytes bits(const std::string& text) {
    Bytes bytes;
    std::size_t count = 0;
    for (const char c : text) {
        if (c == ' ') {
            continue;
        }
        if (count % 8 == 0) {
            bytes.push_back(0);
        }
        if (c == '1') {
            bytes.back() = static_cast<std::uint8_t>(bytes.back() | 0x80 >> count % 8);
        }
        ++count;
    }
    return bytes;
}

std::string times(int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

// Size that a set in a block of exactly its size gives.
std::pair<std::int32_t, std::int32_t> size_of(const Bytes& sps) {
    const auto block = std::make_unique<std::uint8_t[]>(sps.size());
    std::ranges::copy(sps, block.get());
    std::int32_t width = 0;
    std::int32_t height = 0;
    h264_sps_get_size(block.get(), sps.size(), &width, &height);
    return {width, height};
}

std::pair<std::int32_t, std::int32_t> size_of(const std::string& text) {
    return size_of(bits(text));
}

void expect_end_of_data(const Bytes& sps) {
    EXPECT_EXIT(size_of(sps), testing::KilledBySignal(SIGABRT),
                "\\.\\./\\.\\./\\.\\./include/h264parse\\.h:14: ReadBit: "
                "Assertion `m_nCurrentBit <= m_nLength \\* 8' failed\\.");
}

// Fields that most of the sets share.
const std::string kMain = "01001101 00000000 00101000 1 ";   // profile 77, level 40, id 0
const std::string kHigh = "01100100 00000000 00101000 1 ";   // profile 100
const std::string kFrameNum = "1 ";                          // log2_max_frame_num_minus4 0
const std::string kOrder0 = "1 1 ";                          // order type 0, lsb 0
const std::string kRefs = "010 0 ";                          // one reference, no gaps
const std::string kHdSize = "0000001111000 0000001000100 ";  // 120 x 68 macroblocks
const std::string kSmallSize = "010 00100 ";                 // 2 x 4 macroblocks
const std::string kFrames = "1 1 ";                          // frames only, 8x8 inference
const std::string kUncropped = "0 ";
const std::string kEnd = "0";  // no VUI

TEST(H264Sps, FullHdOfTheMainProfile) {
    EXPECT_THAT(size_of(kMain + kFrameNum + kOrder0 + kRefs + kHdSize + kFrames +
                        "1 1 1 1 00101 " +  // cropped: left 0, right 0, top 0, bottom 4
                        kEnd),
                Pair(1912, 1088));
}

TEST(H264Sps, UltraHdWithoutCropping) {
    EXPECT_THAT(size_of(kMain + kFrameNum + kOrder0 + kRefs +
                        "000000011110000 000000010000111 " +  // 240 x 135 macroblocks
                        kFrames + kUncropped + kEnd),
                Pair(3840, 2160));
}

TEST(H264Sps, InterlacedMapUnitsCountTwice) {
    EXPECT_THAT(size_of(kMain + kFrameNum + kOrder0 + kRefs +
                        "0000001111000 00000100010 " +  // 120 x 34 map units
                        "0 1 1 " +  // fields too, of macroblock kind, 8x8 inference
                        kUncropped + kEnd),
                Pair(1920, 1088));
}

// The offsets, in stream order 1, 2, 3, 4: 3 + 4 off the width and 1 + 2 off the height, in pairs.
TEST(H264Sps, VerticalOffsetsComeOffTheWidth) {
    EXPECT_THAT(size_of(kMain + kFrameNum + kOrder0 + kRefs + kHdSize + kFrames +
                        "1 010 011 00100 00101 " + kEnd),
                Pair((120 * 8 - 7) * 2, (68 * 8 - 3) * 2));
}

TEST(H264Sps, OffsetsOfInterlacedVideoCountTwoPixelsToo) {
    EXPECT_THAT(size_of(kMain + kFrameNum + kOrder0 + kRefs + "0000001111000 00000100010 0 1 1 " +
                        "1 010 1 1 00101 " + kEnd),
                Pair((120 * 8 - 4) * 2, (34 * 2 * 8 - 1) * 2));
}

TEST(H264Sps, PrimingFrame) {
    // Behind start code and NAL header, up to the next start code.
    EXPECT_THAT(size_of(Bytes(kPrimingFrame.begin() + 5, kPrimingFrame.begin() + 31)),
                Pair(1280, 720));
}

// -- high profiles ------------------------------------------------------------------------------

TEST(H264Sps, HighProfileWithoutScalingMatrix) {
    EXPECT_THAT(size_of(kHigh + "010 1 1 0 0 " +  // chroma 1, 8 bits, 8 bits, no bypass, no matrix
                        kFrameNum + kOrder0 + kRefs + kSmallSize + kFrames + kUncropped + kEnd),
                Pair(32, 64));
}

TEST(H264Sps, SeparateColourPlanesAreOneBitMore) {
    EXPECT_THAT(size_of(kHigh + "00100 1 " +  // chroma 3, separate planes
                        "1 1 0 0 " + kFrameNum + kOrder0 + kRefs + kSmallSize + kFrames +
                        kUncropped + kEnd),
                Pair(32, 64));
}

TEST(H264Sps, HighFieldsAreReadForEightProfilesOnly) {
    const std::string rest = " 00000000 00101000 1 ";
    const std::string common =
        kFrameNum + kOrder0 + kRefs + kSmallSize + kFrames + kUncropped + kEnd;
    for (const char* const profile :
         {"01100100", "01101110", "01111010", "11110100", "00101100", "01010011", "01010110",
          "01110110"}) {  // 100, 110, 122, 244, 44, 83, 86, 118
        EXPECT_THAT(size_of(profile + rest + "010 1 1 0 0 " + common), Pair(32, 64)) << profile;
    }
    for (const char* const profile :
         {"01000010", "01001101", "01011000", "10000000", "10001010", "10001011", "10000110",
          "10000111", "00000000", "11111111"}) {  // 66, 77, 88, 128, 138, 139, 134, 135, 0, 255
        EXPECT_THAT(size_of(profile + rest + common), Pair(32, 64)) << profile;
    }
}

// Lists that keep their scale: 16 deltas of 0 for each of the first six, 64 for the other two.
TEST(H264Sps, EightFullScalingLists) {
    EXPECT_THAT(size_of(kHigh + "010 1 1 0 1 " + times(6, "1 " + times(16, "1") + " ") +
                        times(2, "1 " + times(64, "1") + " ") + kFrameNum + kOrder0 + kRefs +
                        kSmallSize + kFrames + kUncropped + kEnd),
                Pair(32, 64));
}

TEST(H264Sps, EightListsAlsoForChromaFormatThree) {
    EXPECT_THAT(size_of(kHigh + "00100 0 1 1 0 1 " + times(8, "0 ") + kFrameNum + kOrder0 + kRefs +
                        kSmallSize + kFrames + kUncropped + kEnd),
                Pair(32, 64));
}

// A next scale of 0 ends the list: 8 - 8 at once, or 8 + 120 + 127 + 1 by way of 256.
TEST(H264Sps, ScalingListEndsAtNextScaleZero) {
    EXPECT_THAT(size_of(kHigh + "010 1 1 0 1 " + "1 000010001 " +  // delta -8
                        times(7, "0 ") + kFrameNum + kOrder0 + kRefs + kSmallSize + kFrames +
                        kUncropped + kEnd),
                Pair(32, 64));
    EXPECT_THAT(size_of(kHigh + "010 1 1 0 1 " + times(7, "0 ") +
                        "1 000000011110000 000000011111110 010 " +  // deltas 120, 127, 1
                        kFrameNum + kOrder0 + kRefs + kSmallSize + kFrames + kUncropped + kEnd),
                Pair(32, 64));
}

// +8 has the code before -8; it does not end the list.
TEST(H264Sps, ScalingListDeltasAreSigned) {
    EXPECT_THAT(size_of(kHigh + "010 1 1 0 1 " + "1 000010000 " + times(15, "1") +
                        " " +  // delta 8, then 15 of 0
                        times(7, "0 ") + kFrameNum + kOrder0 + kRefs + kSmallSize + kFrames +
                        kUncropped + kEnd),
                Pair(32, 64));
}

// -- picture order count ------------------------------------------------------------------------

TEST(H264Sps, PictureOrderTypeOneWithTwoOffsets) {
    EXPECT_THAT(size_of(kMain + kFrameNum +
                        "010 0 00100 00101 011 1 010 " +  // type 1, flag, 2 offsets, then 2 frames
                        kRefs + kSmallSize + kFrames + kUncropped + kEnd),
                Pair(32, 64));
}

TEST(H264Sps, PictureOrderTypeOneWithoutFrames) {
    EXPECT_THAT(size_of(kMain + kFrameNum + "010 1 1 1 1 " + kRefs + kSmallSize + kFrames +
                        kUncropped + kEnd),
                Pair(32, 64));
}

TEST(H264Sps, PictureOrderCycleIsNegativeFromTwoToTheThirtyOne) {
    EXPECT_THAT(size_of(kMain + kFrameNum + "010 1 1 1 " + times(31, "0") + "1" + times(30, "0") +
                        "1 " +  // 2^31 - 1 + 1
                        kRefs + kSmallSize + kFrames + kUncropped + kEnd),
                Pair(32, 64));
}

TEST(H264Sps, PictureOrderTypesFromTwoHaveNoFields) {
    for (const char* const type : {"011 ", "00100 ", "00101 "}) {
        EXPECT_THAT(
            size_of(kMain + kFrameNum + type + kRefs + kSmallSize + kFrames + kUncropped + kEnd),
            Pair(32, 64))
            << type;
    }
}

// -- numbers that no stream has -----------------------------------------------------------------

TEST(H264Sps, SizesWrapWithoutHarm) {
    const std::string largest = times(31, "0") + "1" + times(31, "1") + " ";  // 2^32 - 2
    // (2^32 - 2 + 1) x 8 x 2 modulo 2^32 as a signed number.
    EXPECT_THAT(size_of(kMain + kFrameNum + kOrder0 + kRefs + largest + largest + kFrames +
                        kUncropped + kEnd),
                Pair(-16, -16));
}

TEST(H264Sps, CroppingMoreThanThereIs) {
    EXPECT_THAT(size_of(kMain + kFrameNum + kOrder0 + kRefs + kSmallSize + kFrames +
                        "1 1 1 0000001111000 1 " + kEnd),  // top 119
                Pair((16 - 119) * 2, 64));
}

// -- the end of the data ------------------------------------------------------------------------

TEST(H264SpsDeathTest, DataShorterThanThreeBytes) {
    expect_end_of_data({});
    expect_end_of_data({0x4D});
    expect_end_of_data({0x4D, 0x00});
}

TEST(H264SpsDeathTest, ThreeBytesHoldNoId) {
    expect_end_of_data({0x4D, 0x00, 0x28});
}

TEST(H264SpsDeathTest, OnlyZeros) {
    expect_end_of_data(Bytes(7, 0x00));
}

TEST(H264SpsDeathTest, CycleLongerThanTheData) {
    expect_end_of_data(bits(kMain + kFrameNum + "010 1 1 1 " + times(30, "0") + "1" +
                            times(30, "1") + times(64, "1")));
}

// The 64 bits of the set end before its last flag, the one bit more that the reader grants.
const std::string kSixtyFourBits =
    "01001101 00000000 00101000 00100 1 1 1 010 0 0000001111000 00000100010 0 1 1 0";

TEST(H264Sps, TheLastFlagMayLieBehindTheData) {
    ASSERT_EQ(bits(kSixtyFourBits).size(), 8U);
    EXPECT_THAT(size_of(kSixtyFourBits), Pair(1920, 1088));
}

// As above with one bit more in it: two bits would have to come from behind the data.
TEST(H264SpsDeathTest, ASecondBitBehindTheDataIsTheEnd) {
    const Bytes sps =
        bits("01001101 00000000 00101000 00100 1 1 1 010 0 0000001111000 0000001000100 1 1 0");
    ASSERT_EQ(sps.size(), 9U);
    expect_end_of_data(Bytes(sps.begin(), sps.begin() + 8));
}

// -- the reader ---------------------------------------------------------------------------------

H264BitReader reader_of(const Bytes& bytes) {
    H264BitReader reader;
    reader.m_nLength = static_cast<std::int32_t>(bytes.size());
    reader.m_pData = bytes.data();
    return reader;
}

TEST(H264BitReader, MostSignificantBitFirst) {
    const Bytes bytes = {0xA5, 0x01};
    H264BitReader reader = reader_of(bytes);
    for (const unsigned bit : {1U, 0U, 1U, 0U, 0U, 1U, 0U, 1U}) {
        EXPECT_EQ(reader.ReadBit(), bit);
    }
    EXPECT_EQ(reader.m_nCurrentBit, 8);
    EXPECT_EQ(reader.ReadBits(8), 1U);
}

TEST(H264BitReader, ReadsUpToThirtyTwoBits) {
    const Bytes bytes = {0x12, 0x34, 0x56, 0x78, 0xFF};
    H264BitReader reader = reader_of(bytes);
    EXPECT_EQ(reader.ReadBits(0), 0U);
    EXPECT_EQ(reader.ReadBits(4), 1U);
    EXPECT_EQ(reader.ReadBits(32), 0x2345678FU);
}

TEST(H264BitReader, TheBitBehindTheDataReadsAsZero) {
    const auto block = std::make_unique<std::uint8_t[]>(1);
    block[0] = 0xFF;
    H264BitReader reader;
    reader.m_nLength = 1;
    reader.m_pData = block.get();
    EXPECT_EQ(reader.ReadBits(9), 0x1FEU);
    EXPECT_EQ(reader.m_nCurrentBit, 9);
}

TEST(H264BitReaderDeathTest, TheNextOneIsTheEnd) {
    const Bytes bytes = {0xFF};
    H264BitReader reader = reader_of(bytes);
    reader.ReadBits(9);
    EXPECT_EXIT(reader.ReadBit(), testing::KilledBySignal(SIGABRT),
                "Assertion `m_nCurrentBit <= m_nLength \\* 8' failed\\.");
}

TEST(H264BitReader, ExpGolombCodes) {
    const Bytes bytes = bits("1 010 011 00100 00111 0001000 000000011110000");
    H264BitReader reader = reader_of(bytes);
    for (const unsigned value : {0U, 1U, 2U, 3U, 6U, 7U, 239U}) {
        EXPECT_EQ(reader.ReadExpGolomb(), value);
    }
}

TEST(H264BitReader, ExpGolombWithThirtyOneZeros) {
    const Bytes bytes = bits(times(31, "0") + "1" + times(29, "0") + "11");
    H264BitReader reader = reader_of(bytes);
    EXPECT_EQ(reader.ReadExpGolomb(), 0x80000002U);  // 2^31 - 1 + 3
}

// No 1 is looked for after 32 zeros, and the sum wraps.
TEST(H264BitReader, ExpGolombWithThirtyTwoZeros) {
    const Bytes bytes = bits(times(32, "0") + times(30, "0") + "10");
    H264BitReader reader = reader_of(bytes);
    EXPECT_EQ(reader.ReadExpGolomb(), 1U);  // 2^32 - 1 + 2
    EXPECT_EQ(reader.m_nCurrentBit, 64);
}

}  // namespace
