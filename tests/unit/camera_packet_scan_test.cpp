#include "protocol/camera_packet_scan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <vector>

#include "protocol/camera_state.h"
#include "protocol/telemetry_decode.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

std::vector<Bytes> decoded;
std::vector<CameraState*> decoded_into;

}  // namespace

// Stands in for the decoder: what the scanner hands on.
void telemetry_decode_verified(CameraState* state, const std::uint8_t* packet, std::size_t length) {
    decoded_into.push_back(state);
    decoded.emplace_back(packet, packet + length);
}

namespace {

const Bytes kRecordStart = {0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0xDE,
                            0x2F, 0x40, 0x02, 0x02, 0x01, 0x04, 0x32};
const Bytes kRecordStop = {0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0x78,
                           0x2F, 0x40, 0x02, 0x02, 0x00, 0xB5, 0xBB};
const Bytes kCameraFlag = {0x55, 0x0F, 0x04, 0xA2, 0x02, 0x01, 0x05, 0x00,
                           0x00, 0x09, 0x52, 0x01, 0x00, 0x3F, 0x38};

// Version F8 makes the one packet of five bytes for which both sums hold: they share a byte.
const Bytes kFiveBytes = {0x55, 0x05, 0xF8, 0x92, 0x61};
const Bytes kSixBytes = {0x55, 0x06, 0x04, 0x10, 0xB7, 0x9D};

Bytes joined(std::initializer_list<Bytes> pieces) {
    Bytes all;
    for (const Bytes& piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

// The scan of a payload that lies in a block of exactly its size, so that the sanitizer sees one
// byte too far.
std::vector<Bytes> scanned(const Bytes& payload, CameraState* state = nullptr) {
    decoded.clear();
    decoded_into.clear();
    const auto block = std::make_unique<std::uint8_t[]>(payload.size());
    std::ranges::copy(payload, block.get());
    camera_packet_scan(state, block.get(), static_cast<std::uint16_t>(payload.size()));
    return decoded;
}

TEST(CameraPacketScan, NothingInAnEmptyPayload) {
    EXPECT_THAT(scanned({}), IsEmpty());
}

TEST(CameraPacketScan, OnePacket) {
    EXPECT_THAT(scanned(kRecordStart), ElementsAre(kRecordStart));
}

TEST(CameraPacketScan, TwoPacketsBackToBack) {
    EXPECT_THAT(scanned(joined({kRecordStart, kCameraFlag})),
                ElementsAre(kRecordStart, kCameraFlag));
}

TEST(CameraPacketScan, GarbageBeforeBetweenAndBehind) {
    EXPECT_THAT(
        scanned(joined({{0x00, 0xCC, 0x04}, kRecordStart, {0xFF}, kRecordStop, {0x01, 0x02}})),
        ElementsAre(kRecordStart, kRecordStop));
}

TEST(CameraPacketScan, NoStateMeansTheOneOfTheProcess) {
    scanned(kRecordStart);
    EXPECT_THAT(decoded_into, ElementsAre(&camera_state));
}

TEST(CameraPacketScan, AGivenStateIsHandedOn) {
    static CameraState other;
    scanned(kRecordStart, &other);
    EXPECT_THAT(decoded_into, ElementsAre(&other));
}

TEST(CameraPacketScan, StartByteWhoseLengthPointsBehindThePayload) {
    EXPECT_THAT(scanned(joined({{0x55, 0xFF}, kRecordStart})), ElementsAre(kRecordStart));
    // One byte more than there is, then exactly what there is.
    EXPECT_THAT(scanned(joined({{0x55, 0x11}, kRecordStart})), ElementsAre(kRecordStart));
    EXPECT_THAT(scanned(joined({{0x55, 0x10}, kRecordStart})), ElementsAre(kRecordStart));
}

TEST(CameraPacketScan, PacketCutOffAnywhereIsDropped) {
    for (std::size_t held = 0; held < kRecordStart.size(); ++held) {
        const auto end = kRecordStart.begin() + static_cast<std::ptrdiff_t>(held);
        EXPECT_THAT(scanned(Bytes(kRecordStart.begin(), end)), IsEmpty()) << held;
    }
}

TEST(CameraPacketScan, TheSecondHalfInTheNextPayloadIsNotJoined) {
    EXPECT_THAT(scanned(Bytes(kRecordStart.begin(), kRecordStart.begin() + 7)), IsEmpty());
    EXPECT_THAT(scanned(Bytes(kRecordStart.begin() + 7, kRecordStart.end())), IsEmpty());
}

TEST(CameraPacketScan, AnyChangedBitMakesItNoPacket) {
    for (std::size_t bit = 0; bit < kRecordStart.size() * 8; ++bit) {
        Bytes damaged = kRecordStart;
        damaged[bit / 8] = static_cast<std::uint8_t>(damaged[bit / 8] ^ 1 << bit % 8);
        EXPECT_THAT(scanned(damaged), IsEmpty()) << "bit " << bit;
    }
}

TEST(CameraPacketScan, DamagedPacketIsSkippedWithoutAWord) {
    testing::internal::CaptureStderr();
    Bytes damaged = kRecordStart;
    damaged[11] = 0x00;
    EXPECT_THAT(scanned(joined({damaged, kRecordStop})), ElementsAre(kRecordStop));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The record packet is the payload of another.
const Bytes kEnclosing = {0x55, 0x1C, 0x04, 0x1B, 0x02, 0x01, 0x01, 0x00, 0x00, 0x02,
                          0x99, 0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0xDE, 0x2F, 0x40,
                          0x02, 0x02, 0x01, 0x04, 0x32, 0x07, 0x1D, 0x1F};

TEST(CameraPacketScan, SoundPacketIsNotSearchedForOthers) {
    EXPECT_THAT(scanned(kEnclosing), ElementsAre(kEnclosing));
}

TEST(CameraPacketScan, PacketInsideADamagedOneIsFound) {
    Bytes damaged = kEnclosing;
    damaged[25] = 0x08;
    EXPECT_THAT(scanned(damaged), ElementsAre(kRecordStart));
}

TEST(CameraPacketScan, LengthsZeroAndOneAreSkipped) {
    EXPECT_THAT(scanned({0x55, 0x00}), IsEmpty());
    EXPECT_THAT(scanned({0x55, 0x01}), IsEmpty());
    EXPECT_THAT(scanned(joined({{0x55, 0x00}, kRecordStart})), ElementsAre(kRecordStart));
    EXPECT_THAT(scanned(joined({{0x55, 0x01}, kRecordStart})), ElementsAre(kRecordStart));
    EXPECT_THAT(scanned({0x55, 0x00, 0x04, 0x92, 0x36}), IsEmpty());
    EXPECT_THAT(scanned({0x55, 0x01, 0x04, 0x92, 0x36}), IsEmpty());
}

// For these lengths the CRC-16 is to equal bytes that the header already fixes: no version and no
// header sum makes them hold.
TEST(CameraPacketScan, NoPacketOfTwoToFourBytesIsSound) {
    for (const std::uint8_t length : {std::uint8_t{2}, std::uint8_t{3}, std::uint8_t{4}}) {
        for (unsigned rest = 0; rest < 65536; ++rest) {
            const Bytes payload = {0x55, length, static_cast<std::uint8_t>(rest),
                                   static_cast<std::uint8_t>(rest >> 8)};
            ASSERT_THAT(scanned(payload), IsEmpty()) << int{length} << " " << rest;
        }
    }
}

TEST(CameraPacketScan, ShortPacketAtThePayloadsEndIsNotReadBeyond) {
    EXPECT_THAT(scanned({0x55, 0x02}), IsEmpty());
    EXPECT_THAT(scanned({0x55, 0x02, 0x04}), IsEmpty());
    EXPECT_THAT(scanned({0x55, 0x03, 0x04}), IsEmpty());
}

TEST(CameraPacketScan, SoundPacketsTooShortForAMessageAreSteppedOver) {
    EXPECT_THAT(scanned(joined({kFiveBytes, kSixBytes, kRecordStart})),
                ElementsAre(kFiveBytes, kSixBytes, kRecordStart));
}

TEST(CameraPacketScan, StartByteAtTheVeryEnd) {
    EXPECT_THAT(scanned({0x55}), IsEmpty());
    EXPECT_THAT(scanned(joined({kRecordStart, {0x55}})), ElementsAre(kRecordStart));
}

TEST(CameraPacketScan, LongestPacket) {
    Bytes packet(255, 0x00);
    std::ranges::copy(Bytes{0x55, 0xFF, 0x04, 0x3B, 0x02, 0x01}, packet.begin());
    packet[253] = 0xCA;
    packet[254] = 0x51;
    EXPECT_THAT(scanned(joined({packet, kRecordStop})), ElementsAre(packet, kRecordStop));
}

TEST(CameraPacketScan, LargestPayloadOfStartBytes) {
    EXPECT_THAT(scanned(Bytes(65535, 0x55)), IsEmpty());
}

TEST(CameraPacketScan, PacketAtTheEndOfTheLargestPayload) {
    Bytes payload(65535 - kRecordStart.size(), 0x55);
    payload.insert(payload.end(), kRecordStart.begin(), kRecordStart.end());
    EXPECT_THAT(scanned(payload), ElementsAre(kRecordStart));
}

}  // namespace
