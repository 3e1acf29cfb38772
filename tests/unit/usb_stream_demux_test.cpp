#include "video/usb_stream_demux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "protocol/camera_packet_scan.h"
#include "video/frame_buffers.h"
#include "video/priming_frame.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;
using Bytes = std::vector<std::uint8_t>;

// What was handed on, in order: the kind ('I' or 'J') and the bytes.
struct Handed {
    char kind;
    Bytes bytes;
    bool operator==(const Handed&) const = default;
};
std::vector<Handed> handed;

void PrintTo(const Handed& value, std::ostream* out) {
    *out << value.kind << " " << testing::PrintToString(value.bytes);
}

}  // namespace

// Stand in for the packet scanner and the video ring.
void camera_packet_scan(CameraState* state, const std::uint8_t* buffer, std::uint16_t size) {
    EXPECT_EQ(state, nullptr);
    handed.push_back({'I', Bytes(buffer, buffer + size)});
}

void frame_queue_part(const std::uint8_t* bytes, std::size_t length) {
    handed.push_back({'J', Bytes(bytes, bytes + length)});
}

namespace {

constexpr std::size_t kReaderBufferSize = 50100;

Bytes joined(std::initializer_list<Bytes> pieces) {
    Bytes all;
    for (const Bytes& piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

Bytes envelope(std::uint8_t type, const Bytes& payload) {
    Bytes bytes = {0x55,
                   0xCC,
                   type,
                   0x57,
                   static_cast<std::uint8_t>(payload.size()),
                   static_cast<std::uint8_t>(payload.size() >> 8),
                   0x00,
                   0x00};
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

Bytes camera(const Bytes& payload) {
    return envelope(0x49, payload);
}
Bytes video(const Bytes& payload) {
    return envelope(0x4A, payload);
}

// The buffer that the reader thread fills, and its fill count.
struct Receiver {
    std::unique_ptr<std::uint8_t[]> buffer = std::make_unique<std::uint8_t[]>(kReaderBufferSize);
    std::size_t fill = 0;

    void take(std::span<const std::uint8_t> bytes) {
        std::ranges::copy(bytes, buffer.get() + fill);
        fill += bytes.size();
        EXPECT_EQ(usb_stream_demux(buffer.get(), &fill), 0);
    }
    Bytes left() const { return Bytes(buffer.get(), buffer.get() + fill); }
};

// What is left of bytes in a block of exactly their size: the sanitizer sees a look behind the fill
// count.
Bytes demuxed(const Bytes& bytes) {
    const auto block = std::make_unique<std::uint8_t[]>(bytes.size());
    std::ranges::copy(bytes, block.get());
    std::size_t fill = bytes.size();
    EXPECT_EQ(usb_stream_demux(block.get(), &fill), 0);
    EXPECT_LE(fill, bytes.size());
    return Bytes(block.get(), block.get() + fill);
}

// The tests below see a stream whose first video has gone by.
class UsbStreamDemux : public testing::Test {
  protected:
    void SetUp() override {
        demuxed(joined({video({0xEE}), {0x00}}));
        handed.clear();
        testing::internal::CaptureStderr();
    }
    void TearDown() override {
        if (!log_taken_) {
            EXPECT_EQ(logged(), "");
        }
    }
    std::string logged() {
        log_taken_ = true;
        return testing::internal::GetCapturedStderr();
    }

  private:
    bool log_taken_ = false;
};

TEST_F(UsbStreamDemux, NoBytes) {
    EXPECT_THAT(demuxed({}), IsEmpty());
    EXPECT_THAT(handed, IsEmpty());
}

TEST_F(UsbStreamDemux, FourBytesAndFewerWait) {
    EXPECT_THAT(demuxed({0x55}), SizeIs(1));
    EXPECT_THAT(demuxed({0x55, 0xCC}), SizeIs(2));
    EXPECT_THAT(demuxed({0x12, 0x34, 0x56}), SizeIs(3));
    EXPECT_THAT(demuxed({0x12, 0x34, 0x56, 0x78}), SizeIs(4));
}

TEST_F(UsbStreamDemux, HeaderWithoutItsLengthWaits) {
    EXPECT_THAT(demuxed({0x55, 0xCC, 0x4A, 0x57, 0x00}), SizeIs(5));
    EXPECT_THAT(demuxed({0x12, 0x34, 0x56, 0x78, 0x00}), SizeIs(5));
    EXPECT_THAT(demuxed({0x00, 0x55, 0xCC, 0x4A, 0x57, 0x00}), SizeIs(6));
    EXPECT_THAT(handed, IsEmpty());
}

TEST_F(UsbStreamDemux, EveryBeginningOfAnEnvelopeWaits) {
    const Bytes whole = video({0x01, 0x02, 0x03, 0x04, 0x05});
    for (std::size_t held = 0; held <= whole.size(); ++held) {
        const Bytes beginning(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(held));
        EXPECT_THAT(demuxed(beginning), ElementsAreArray(beginning));
    }
    EXPECT_THAT(handed, IsEmpty());
}

TEST_F(UsbStreamDemux, CompleteEnvelopeWaitsForOneMoreByte) {
    Receiver receiver;
    receiver.take(camera({0xA1, 0xA2}));
    EXPECT_THAT(handed, IsEmpty());
    EXPECT_THAT(receiver.left(),
                ElementsAre(0x55, 0xCC, 0x49, 0x57, 0x02, 0x00, 0x00, 0x00, 0xA1, 0xA2));
    receiver.take(Bytes{0x99});
    EXPECT_THAT(handed, ElementsAre(Handed{'I', {0xA1, 0xA2}}));
    EXPECT_THAT(receiver.left(), ElementsAre(0x99));
}

TEST_F(UsbStreamDemux, TwoEnvelopesAndOneByte) {
    EXPECT_THAT(demuxed(joined({video({0xB1, 0xB2}), camera({0xA1}), {0x55}})), ElementsAre(0x55));
    EXPECT_THAT(handed, ElementsAre(Handed{'J', {0xB1, 0xB2}}, Handed{'I', {0xA1}}));
}

TEST_F(UsbStreamDemux, FourBytesLeftOverWait) {
    EXPECT_THAT(demuxed(joined({video({0xB1}), {0x12, 0x34, 0x56, 0x78}})),
                ElementsAre(0x12, 0x34, 0x56, 0x78));
    EXPECT_THAT(handed, SizeIs(1));
}

TEST_F(UsbStreamDemux, EnvelopesWithoutPayload) {
    EXPECT_THAT(demuxed(joined({video({}), camera({}), {0x00}})), ElementsAre(0x00));
    EXPECT_THAT(handed, ElementsAre(Handed{'J', {}}, Handed{'I', {}}));
}

TEST_F(UsbStreamDemux, LengthIsSixteenBitsLowByteFirst) {
    EXPECT_THAT(demuxed(joined({video(Bytes(0x0102, 0xB1)), {0x00}})), ElementsAre(0x00));
    EXPECT_THAT(handed, ElementsAre(Handed{'J', Bytes(258, 0xB1)}));
}

TEST_F(UsbStreamDemux, LargestEnvelopeThatTheReaderHolds) {
    Receiver receiver;
    receiver.take(video(Bytes(49477, 0xB1)));
    EXPECT_THAT(handed, IsEmpty());
    EXPECT_EQ(receiver.fill, 49485U);
    receiver.take(Bytes{0x55});
    ASSERT_THAT(handed, SizeIs(1));
    EXPECT_EQ(handed[0].bytes.size(), 49477U);
    EXPECT_EQ(receiver.fill, 1U);
}

TEST_F(UsbStreamDemux, LongestLengthWaits) {
    Receiver receiver;
    receiver.take(Bytes{0x55, 0xCC, 0x4A, 0x57, 0xFF, 0xFF, 0x00, 0x00});
    receiver.take(Bytes(49000, 0x00));
    EXPECT_THAT(handed, IsEmpty());
    EXPECT_EQ(receiver.fill, 49008U);
}

TEST_F(UsbStreamDemux, HeaderBytesInsideAPayloadAreNoHeader) {
    const Bytes payload = {0x55, 0xCC, 0x4A, 0x57, 0x00, 0x00, 0x00, 0x00, 0x00};
    EXPECT_THAT(demuxed(joined({video(payload), {0x00}})), SizeIs(1));
    EXPECT_THAT(handed, ElementsAre(Handed{'J', payload}));
}

// -- bytes 6 and 7 ------------------------------------------------------------------------------

TEST_F(UsbStreamDemux, VideoWithACheckIsDroppedWithAMessage) {
    Bytes strange = video({0xB1});
    strange[7] = 0x01;
    EXPECT_THAT(demuxed(joined({strange, camera({0xA1}), {0x00}})), ElementsAre(0x00));
    EXPECT_THAT(handed, ElementsAre(Handed{'I', {0xA1}}));
    EXPECT_EQ(logged(), "Strange video packet 00 01\n");
}

TEST_F(UsbStreamDemux, EitherCheckByteCounts) {
    Bytes strange = video({0xB1});
    strange[6] = 0xAB;
    demuxed(joined({strange, {0x00}}));
    EXPECT_THAT(handed, IsEmpty());
    EXPECT_EQ(logged(), "Strange video packet AB 00\n");
}

TEST_F(UsbStreamDemux, CheckOfCameraBytesIsNotLookedAt) {
    Bytes bytes = camera({0xA1});
    bytes[6] = 0xAB;
    bytes[7] = 0xCD;
    demuxed(joined({bytes, {0x00}}));
    EXPECT_THAT(handed, ElementsAre(Handed{'I', {0xA1}}));
}

TEST_F(UsbStreamDemux, ChecksOfAnEnvelopeBehindGarbageAreItsOwn) {
    Bytes strange = video({0xB1});
    strange[6] = 0x07;
    demuxed(joined({{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, video({0xB1}), {0x00}}));
    EXPECT_THAT(handed, ElementsAre(Handed{'J', {0xB1}}));
    demuxed(joined({{0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}, strange, {0x00}}));
    EXPECT_THAT(handed, SizeIs(1));
    EXPECT_EQ(logged(), "Strange video packet 07 00\n");
}

// -- filler chunks ------------------------------------------------------------------------------

TEST_F(UsbStreamDemux, FillerIsDroppedSilently) {
    const Bytes filler = {0x00, 0x00, 0x01, 0xFF, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    EXPECT_THAT(demuxed(joined({video(filler), {0x00}})), ElementsAre(0x00));
    EXPECT_THAT(handed, IsEmpty());
}

TEST_F(UsbStreamDemux, ChunkThatOnlyResemblesFillerIsVideo) {
    const Bytes chunks[] = {
        {0x00, 0x00, 0x01, 0xFE, 0, 0, 0, 0, 0, 0, 0, 0},     // another fourth byte
        {0x00, 0x00, 0x00, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0},     // another third
        {0x00, 0x01, 0x01, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0},     // another second
        {0x01, 0x00, 0x01, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0},     // another first
        {0x00, 0x00, 0x01, 0xFF, 0, 0, 0, 0, 0, 0, 0},        // eleven bytes
        {0x00, 0x00, 0x01, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // thirteen
    };
    for (const Bytes& chunk : chunks) {
        handed.clear();
        demuxed(joined({video(chunk), {0x00}}));
        EXPECT_THAT(handed, ElementsAre(Handed{'J', chunk}));
    }
}

TEST_F(UsbStreamDemux, CameraBytesAreNeverFiller) {
    const Bytes payload = {0x00, 0x00, 0x01, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0};
    demuxed(joined({camera(payload), {0x00}}));
    EXPECT_THAT(handed, ElementsAre(Handed{'I', payload}));
}

// -- resynchronisation --------------------------------------------------------------------------

TEST_F(UsbStreamDemux, GarbageVanishesWithTheEnvelopeBehindIt) {
    EXPECT_THAT(demuxed(joined({{0x01, 0x02, 0x03}, video({0xB1}), {0x00}})), ElementsAre(0x00));
    EXPECT_THAT(handed, ElementsAre(Handed{'J', {0xB1}}));
}

TEST_F(UsbStreamDemux, GarbageStaysUntilItsEnvelopeIsComplete) {
    const Bytes bytes = joined({{0x01, 0x02, 0x03}, video({0xB1})});
    EXPECT_THAT(demuxed(bytes), ElementsAreArray(bytes));
    EXPECT_THAT(handed, IsEmpty());
}

TEST_F(UsbStreamDemux, GarbageThatLooksLikeAHeadersBeginning) {
    demuxed(joined({{0x55, 0x55, 0xCC, 0x55, 0xCC, 0x4A}, video({0xB1}), {0x00}}));
    demuxed(joined({{0x55, 0xCC, 0x4B, 0x57}, video({0xB2}), {0x00}}));
    EXPECT_THAT(handed, ElementsAre(Handed{'J', {0xB1}}, Handed{'J', {0xB2}}));
}

TEST_F(UsbStreamDemux, BytesWithoutAHeaderAreTakenAsAnEnvelope) {
    EXPECT_THAT(
        demuxed({0x12, 0x34, 0xAB, 0xCD, 0x02, 0x00, 0x00, 0x00, 0xF1, 0xF2, 0xE1, 0xE2, 0xE3}),
        ElementsAre(0xE1, 0xE2, 0xE3));
    EXPECT_THAT(handed, IsEmpty());
    EXPECT_EQ(logged(), "Wrong packet 12 34 AB CD\n");
}

TEST_F(UsbStreamDemux, EachByteOfTheFrameCounts) {
    demuxed({0x54, 0xCC, 0x4A, 0x57, 0x00, 0x00, 0x00, 0x00, 0x00});
    demuxed({0x55, 0xCD, 0x4A, 0x57, 0x00, 0x00, 0x00, 0x00, 0x00});
    demuxed({0x55, 0xCC, 0x4A, 0x56, 0x00, 0x00, 0x00, 0x00, 0x00});
    EXPECT_THAT(handed, IsEmpty());
    EXPECT_EQ(logged(),
              "Wrong packet 54 CC 4A 57\n"
              "Wrong packet 55 CD 4A 57\n"
              "Wrong packet 55 CC 4A 56\n");
}

TEST_F(UsbStreamDemux, UnknownTypeAtTheFront) {
    EXPECT_THAT(demuxed({0x55, 0xCC, 0x4B, 0x57, 0x01, 0x00, 0x00, 0x00, 0xF1, 0x00}),
                ElementsAre(0x00));
    EXPECT_THAT(handed, IsEmpty());
    EXPECT_EQ(logged(), "Unknown packet type 4B\n");
}

TEST_F(UsbStreamDemux, WrongBytesWaitLikeAnEnvelope) {
    EXPECT_THAT(demuxed({0x12, 0x34, 0x56, 0x78, 0x02, 0x00, 0x00, 0x00, 0xF1, 0xF2}), SizeIs(10));
    EXPECT_THAT(demuxed(joined({{0x12, 0x34, 0x56, 0x78, 0xFF, 0xFF}, Bytes(40000, 0x01)})),
                SizeIs(40006));
}

// Of a header with nothing behind it the search knows nothing; what stands before it is judged.
TEST_F(UsbStreamDemux, HeaderAtTheVeryEndIsNotSeenYet) {
    EXPECT_THAT(demuxed(joined({Bytes(8, 0x00), {0x55, 0xCC, 0x4A, 0x57}})),
                ElementsAre(0x55, 0xCC, 0x4A, 0x57));
    EXPECT_EQ(logged(), "Wrong packet 00 00 00 00\n");
}

TEST_F(UsbStreamDemux, HeaderWithOneByteBehindItIsSeen) {
    const Bytes bytes = joined({Bytes(8, 0x00), {0x55, 0xCC, 0x4A, 0x57, 0x00}});
    EXPECT_THAT(demuxed(bytes), ElementsAreArray(bytes));
}

TEST_F(UsbStreamDemux, AllZerosAreGivenUpEightAtATime) {
    EXPECT_THAT(demuxed(Bytes(26, 0x00)), SizeIs(2));
    EXPECT_EQ(logged(),
              "Wrong packet 00 00 00 00\n"
              "Wrong packet 00 00 00 00\n"
              "Wrong packet 00 00 00 00\n");
}

// -- the way the bytes arrive -------------------------------------------------------------------

TEST_F(UsbStreamDemux, TransfersOfAnySizeGiveTheSame) {
    Bytes stream;
    std::vector<Handed> expected;
    for (std::size_t i = 0; i < 24; ++i) {
        const bool is_camera = i % 3 == 2;
        // Lengths about the largest transfer's, and some that end where one ends.
        Bytes payload(is_camera ? i * 7 : 480 + i * 4, static_cast<std::uint8_t>(i));
        if (payload.size() > 6) {
            std::ranges::copy(Bytes{0x55, 0xCC, 0x49, 0x57, 0x01}, payload.begin() + 1);
        }
        const Bytes bytes = is_camera ? camera(payload) : video(payload);
        stream.insert(stream.end(), bytes.begin(), bytes.end());
        expected.push_back({is_camera ? 'I' : 'J', payload});
    }
    stream.push_back(0x55);
    for (std::size_t transfer = 1; transfer <= 512; ++transfer) {
        handed.clear();
        Receiver receiver;
        for (std::size_t at = 0; at < stream.size(); at += transfer) {
            receiver.take(std::span(stream).subspan(at, std::min(transfer, stream.size() - at)));
        }
        ASSERT_EQ(handed, expected) << "transfers of " << transfer;
        ASSERT_THAT(receiver.left(), ElementsAre(0x55)) << "transfers of " << transfer;
    }
}

// -- the priming frame --------------------------------------------------------------------------

// Runs in a process of its own, which has seen no video yet. Status 0 when all is as it should be.
[[noreturn]] void first_video_is_primed() {
    Bytes strange = video({0xB0});
    strange[6] = 0x01;
    const Bytes filler = {0x00, 0x00, 0x01, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0};
    demuxed(joined({camera({0xA1}), strange, video(filler), {0x00}}));
    const std::vector<Handed> before = {{'I', {0xA1}}};
    if (handed != before) {
        _exit(2);
    }
    handed.clear();
    demuxed(joined({video({0xB1}), video({0xB2}), {0x00}}));
    const std::vector<Handed> expected = {
        {'J', Bytes(kPrimingFrame.begin(), kPrimingFrame.end())}, {'J', {0xB1}}, {'J', {0xB2}}};
    _exit(handed == expected ? 0 : 3);
}

TEST(UsbStreamDemuxDeathTest, FirstVideoFollowsThePrimingFrame) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(first_video_is_primed(), testing::ExitedWithCode(0), "");
}

TEST(PrimingFrame, ParameterSetsAndAPictureInFiveSlices) {
    std::vector<std::pair<std::size_t, int>> units;  // offset and NAL header
    for (std::size_t i = 0; i + 4 < kPrimingFrame.size(); ++i) {
        if (kPrimingFrame[i] == 0 && kPrimingFrame[i + 1] == 0 && kPrimingFrame[i + 2] == 0 &&
            kPrimingFrame[i + 3] == 1) {
            units.emplace_back(i, kPrimingFrame[i + 4]);
        }
    }
    using Unit = std::pair<std::size_t, int>;
    EXPECT_THAT(units, ElementsAre(Unit{0, 0x27}, Unit{31, 0x28}, Unit{41, 0x25}, Unit{120, 0x25},
                                   Unit{209, 0x25}, Unit{298, 0x25}, Unit{388, 0x25}));
}

// FNV-1a over all of it: one mistyped byte would show on a screen only.
TEST(PrimingFrame, EveryByteIsInPlace) {
    std::uint64_t sum = 0xCBF29CE484222325;
    for (const std::uint8_t byte : kPrimingFrame) {
        sum = (sum ^ byte) * 0x100000001B3;
    }
    EXPECT_EQ(kPrimingFrame.size(), 478U);
    EXPECT_EQ(sum, 0x3FE9EA4D3336A5FDU);
}

}  // namespace
