// The simulated camera's byte stream: envelopes, packets, and the cutting of the video.
#include "simulator/camera_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Bytes joined(const std::vector<Bytes>& pieces) {
    Bytes all;
    for (const Bytes& piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

TEST(Envelope, OfVideoIsJ) {
    EXPECT_EQ(video_envelope(Bytes{0xAA, 0xBB}),
              (Bytes{0x55, 0xCC, 0x4A, 0x57, 2, 0, 0, 0, 0xAA, 0xBB}));
}

TEST(Envelope, OfPacketsIsI) {
    EXPECT_EQ(control_envelope(Bytes{0xAA}), (Bytes{0x55, 0xCC, 0x49, 0x57, 1, 0, 0, 0, 0xAA}));
}

TEST(Envelope, LengthIsLittleEndian) {
    const Bytes envelope = video_envelope(Bytes(kLargestPassingPayload));
    EXPECT_EQ(envelope.size(), 49485U);
    EXPECT_EQ(envelope[4], 0x45);
    EXPECT_EQ(envelope[5], 0xC1);
}

TEST(Envelope, CutsWhatItsLengthCannotSay) {
    EXPECT_EQ(video_envelope(Bytes(70000)).size(), 65543U);
}

TEST(CameraPacket, CarriesBothChecksums) {
    EXPECT_EQ(camera_packet({0x02, 0x01, 0x2FDE, 0x40, 0x02, 0x02}, Bytes{0x01}),
              (Bytes{0x55, 0x0E, 0x04, 0x66,  // start, length 14, version, header check
                     0x02, 0x01, 0xDE, 0x2F,  // sender, receiver, sequence
                     0x40, 0x02, 0x02, 0x01,  // type, set, id, payload
                     0x04, 0x32}));           // CRC-16
    EXPECT_EQ(camera_packet({0x02, 0x01, 0x2F78, 0x40, 0x02, 0x02}, Bytes{0x00}),
              (Bytes{0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0x78, 0x2F, 0x40, 0x02, 0x02, 0x00, 0xB5,
                     0xBB}));
}

TEST(CameraPacket, HeaderCheckFollowsTheLength) {
    EXPECT_EQ(camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x02}, Bytes(10))[3], 0x38);  // length 23
    EXPECT_EQ(camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x02}, Bytes(7))[3], 0x6D);   // length 20
}

TEST(CameraPacket, HoldsAtMost255Bytes) {
    const Bytes packet = camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x02}, Bytes(300));
    EXPECT_EQ(packet.size(), 255U);
    EXPECT_EQ(packet[1], 255);
}

// clang-format off
const Bytes kSps        = {0, 0, 0, 1, 0x67, 0x4D};
const Bytes kPps        = {0, 0, 0, 1, 0x68, 0xEE};
const Bytes kIdr        = {0, 0, 0, 1, 0x65, 0x88, 0x11};
const Bytes kSecondHalf = {0, 0, 1, 0x65, 0x08, 0x22};     // the same picture's next slice
const Bytes kPicture    = {0, 0, 1, 0x41, 0x9A, 0x33};
const Bytes kDelimiter  = {0, 0, 0, 1, 0x09, 0x10};
// clang-format on

TEST(AccessUnits, HoldAPictureAndWhatGoesBeforeIt) {
    const Bytes first = joined({kSps, kPps, kIdr, kSecondHalf});
    const Bytes third = joined({kDelimiter, kPicture});
    EXPECT_THAT(access_units(joined({first, kPicture, third})),
                ElementsAre(first, kPicture, third));
}

TEST(AccessUnits, KeepBytesBeforeTheFirstStartCode) {
    const Bytes before = {1, 2, 3};
    EXPECT_THAT(access_units(joined({before, kIdr, kPicture})),
                ElementsAre(joined({before, kIdr}), kPicture));
}

TEST(AccessUnits, OfBytesWithoutAStartCodeAreOne) {
    EXPECT_THAT(access_units(Bytes{1, 2, 3}), ElementsAre(Bytes{1, 2, 3}));
    EXPECT_THAT(access_units(Bytes{}), IsEmpty());
}

TEST(AccessUnits, EndingInAStartCodeKeepsIt) {
    const Bytes stream = joined({kIdr, {0, 0, 1}});
    EXPECT_THAT(access_units(stream), ElementsAre(stream));
}

TEST(VideoChunks, CutAccessUnitsAndNeverJoinThem) {
    EXPECT_THAT(video_chunks(joined({kIdr, kPicture}), 4),
                ElementsAre(Bytes{0, 0, 0, 1}, Bytes{0x65, 0x88, 0x11}, Bytes{0, 0, 1, 0x41},
                            Bytes{0x9A, 0x33}));
}

TEST(VideoChunks, JoinedAreTheStream) {
    const Bytes stream = joined({kSps, kPps, kIdr, kSecondHalf, kPicture, kDelimiter, kPicture});
    for (const std::size_t largest : {std::size_t{1}, std::size_t{3}, std::size_t{1000}}) {
        EXPECT_EQ(joined(video_chunks(stream, largest)), stream) << largest;
    }
}

TEST(CameraStream, EndsWithAFillerChunk) {
    EXPECT_EQ(camera_stream({{0xAA}}, 0),
              (Bytes{0x55, 0xCC, 0x4A, 0x57, 1,  0, 0, 0, 0xAA,  // the chunk
                     0x55, 0xCC, 0x4A, 0x57, 12, 0, 0, 0,        // the filler
                     0x00, 0x00, 0x01, 0xFF, 0,  0, 0, 0, 0,    0, 0, 0}));
}

TEST(CameraStream, HasPacketsAfterEverySoManyChunks) {
    const Bytes stream = camera_stream({{1}, {2}, {3}, {4}}, 2);
    std::vector<std::uint8_t> types;
    std::vector<std::uint8_t> sequences;
    for (std::size_t at = 0; at < stream.size();) {
        types.push_back(stream[at + 2]);
        if (stream[at + 2] == 'I') {
            sequences.push_back(stream[at + 8 + 6]);
        }
        at += 8U + stream[at + 4] + 256U * stream[at + 5];
    }
    EXPECT_THAT(types, ElementsAre('J', 'J', 'I', 'J', 'J', 'I', 'J'));
    EXPECT_THAT(sequences, ElementsAre(0, 2));
}

}  // namespace
