// The USB stream both ways: cut anywhere, damaged, with gaps, begun in the middle, captured in
// part.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/camera_model.h"
#include "simulator/status_messages.h"
#include "tests/wireshark/tshark.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kSummary[] = "vantarel.packet.summary";
constexpr char kMissed[] = "vantarel.packet.sequence.missed";

Bytes iso(std::uint16_t sequence, std::uint8_t code = 5) {
    return camera_packet({0x02, 0x01, sequence, 0x40, 0x02, 0x2A}, Bytes{code});
}

Bytes camera_message(Message message, std::uint16_t sequence) {
    return encode_message(message, CameraModel(), sequence);
}

// Bytes of an SPS and of an IDR slice, and many more that look like nothing.
Bytes video(std::size_t size = 3000) {
    Bytes bytes = {0, 0, 0, 1, 0x67, 0x4D, 0, 0, 0, 1, 0x65};
    bytes.resize(size, 0xAB);
    return bytes;
}

Capture transfers(const std::vector<Bytes>& all, std::uint8_t endpoint = kFromCamera) {
    Capture capture;
    for (const Bytes& each : all) {
        capture.add_transfer(endpoint, each);
    }
    return capture;
}

std::vector<std::string> warnings_of(const Capture& capture) {
    return all_values(dissect(capture, {kWarnings}), kWarnings);
}

std::vector<std::string> summaries_of(const Capture& capture) {
    return all_values(dissect(capture, {kSummary}), kSummary);
}

// -- cut anywhere ----------------------------------------------------------------------------

class CutStream : public testing::TestWithParam<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(Sizes, CutStream, testing::Values(1, 3, 7, 13, 64, 512, 16384));

TEST_P(CutStream, EnvelopesAreTheSameHoweverTheyAreCut) {
    const Bytes stream = joined({
        control_envelope(
            joined({camera_message(Message::kStatus, 0), camera_message(Message::kAttitude, 1)})),
        video_envelope(video()),
        control_envelope({}),
        video_envelope(filler_chunk()),
        control_envelope(camera_message(Message::kBattery, 2)),
        video_envelope({}),
    });
    // A mark of one byte at a time is no envelope yet: the first transfer has it whole.
    std::vector<Bytes> cut = {Bytes(stream.begin(), stream.begin() + 4)};
    for (const Bytes& piece : pieces(std::span(stream).subspan(4), GetParam())) {
        cut.push_back(piece);
    }
    const Frames frames =
        dissect(transfers(cut), {kSummary, "vantarel.envelope.type", "vantarel.envelope.length",
                                 "vantarel.envelope.nal", "vantarel.envelope.filler", kWarnings});
    EXPECT_THAT(all_values(frames, kSummary),
                ElementsAre("camera status", "gimbal attitude", "battery"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.type"),
                ElementsAre("control", "video", "control", "video", "control", "video"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.length"),
                ElementsAre("75", "3000", "0", "12", "52", "0"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.nal"), ElementsAre("SPS", "IDR slice"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.filler"), ElementsAre("0", "1", "0"));
    EXPECT_THAT(all_values(frames, kWarnings), IsEmpty());
}

TEST_P(CutStream, PacketsToTheCameraAreTheSameHoweverTheyAreCut) {
    const Bytes stream = joined({iso(0, 3), iso(1, 4), iso(2, 5), iso(3, 6)});
    std::vector<Bytes> cut = {Bytes(stream.begin(), stream.begin() + 4)};
    for (const Bytes& piece : pieces(std::span(stream).subspan(4), GetParam())) {
        cut.push_back(piece);
    }
    EXPECT_THAT(values_without_warning(transfers(cut, kToCamera), kSummary),
                ElementsAre("iso 100", "iso 200", "iso 400", "iso 800"));
}

TEST(DissectorStream, BothDirectionsAndTwoCamerasAreStreamsOfTheirOwn) {
    const Bytes one = control_envelope(camera_message(Message::kStatus, 7));
    const Bytes other = control_envelope(camera_message(Message::kBattery, 900));
    Capture capture;
    capture.add_transfer(kFromCamera, std::span(one).first(20));
    capture.add_transfer(kFromCamera, std::span(other).first(30), {}, kDevice + 1);
    capture.add_transfer(kToCamera, iso(33));
    capture.add_transfer(kFromCamera, std::span(one).subspan(20));
    capture.add_transfer(kFromCamera, std::span(other).subspan(30), {}, kDevice + 1);
    EXPECT_THAT(values_without_warning(capture, kSummary),
                ElementsAre("iso 400", "camera status", "battery"));
}

TEST(DissectorStream, ATransferThatIsReadAgainIsShownTheSame) {
    const Bytes envelope = control_envelope(camera_message(Message::kStatus, 7));
    const Capture capture = transfers(pieces(envelope, 30));
    const std::vector<std::string> fields = {kSummary, "vantarel.envelope.first_frame",
                                             "vantarel.envelope.last_frame"};
    const Frames frames = dissect(capture, fields, "-2");
    EXPECT_THAT(all_values(frames, kSummary), ElementsAre("camera status"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.first_frame"), ElementsAre("1"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.last_frame"), ElementsAre("2"));
}

// tshark numbers the frames anew where it keeps some of them only.
TEST(DissectorStream, AReadFilterSeesWhatASecondTransferCompletes) {
    const Bytes envelope = control_envelope(camera_message(Message::kStatus, 7));
    const Frames frames =
        dissect(transfers(pieces(envelope, 30)), {kSummary}, "-2 -R vantarel.camera.sd");
    EXPECT_THAT(all_values(frames, kSummary), ElementsAre("camera status"));
    EXPECT_EQ(frames.size(), 1U);
}

TEST(DissectorStream, OtherDevicesAreLeftAlone) {
    Capture capture;
    capture.add_transfer(kFromCamera, Bytes(64, 0x55));
    capture.add_transfer(kToCamera, Bytes(64, 0x55));
    capture.add_transfer(kFromCamera, Bytes{'U', 'S', 'B', 'C', 1, 2, 3});
    capture.add_transfer(kToCamera, Bytes{0x55});
    EXPECT_THAT(all_values(dissect(capture, {"_ws.col.Protocol"}), "_ws.col.Protocol"),
                testing::Not(testing::Contains("Camera")));
}

// -- sums ------------------------------------------------------------------------------------

TEST(DissectorStream, AWrongPacketSumIsAnErrorAndTheRightOneNamed) {
    Bytes packet = iso(0);
    packet[11] ^= 0x01;
    const Frames frames =
        dissect(transfers({packet}, kToCamera),
                {kWarnings, kInfo, "vantarel.packet.crc16.status", "vantarel.packet.crc8.status"});
    EXPECT_THAT(all_values(frames, kInfo), ElementsAre("to the camera: damaged iso 200"));
    EXPECT_THAT(all_values(frames, "vantarel.packet.crc16.status"), ElementsAre("wrong"));
    EXPECT_THAT(all_values(frames, "vantarel.packet.crc8.status"), ElementsAre("right"));
    EXPECT_THAT(all_values(frames, kWarnings), ElementsAre("The packet's sum is wrong"));
}

Bytes with_wrong_header_sum() {
    Bytes packet = iso(0);
    packet[3] ^= 0x01;
    const std::uint16_t sum = packet_sum(std::span(packet).first(packet.size() - 2));
    packet[12] = static_cast<std::uint8_t>(sum);
    packet[13] = static_cast<std::uint8_t>(sum >> 8);
    return packet;
}

TEST(DissectorStream, AWrongHeaderSumIsAnError) {
    const Bytes packet = with_wrong_header_sum();
    const Frames frames =
        dissect(transfers({joined({iso(0), packet, iso(1)})}, kToCamera), {kSummary, kWarnings});
    EXPECT_THAT(all_values(frames, kSummary), ElementsAre("iso 400", "iso 400", "iso 400"));
    EXPECT_THAT(all_values(frames, kWarnings), ElementsAre("The header's sum is wrong"));
}

TEST(DissectorStream, AWrongHeaderSumIsSeenAlsoBeforeOtherBytes) {
    const Bytes packet = with_wrong_header_sum();
    const Bytes payload = joined({packet, Bytes{1, 2, 3}});
    const Frames frames = dissect(transfers({control_envelope(payload)}),
                                  {"vantarel.packet.crc8.status", "vantarel.packet.junk"});
    EXPECT_THAT(all_values(frames, "vantarel.packet.crc8.status"), ElementsAre("wrong"));
    EXPECT_THAT(all_values(frames, "vantarel.packet.junk"), ElementsAre("010203"));
}

TEST(DissectorStream, ASoundPacketWithinADamagedOneIsFound) {
    const Bytes inner = iso(4);
    Bytes packet = camera_packet({0x01, 0x02, 0, 0, 0x02, 0x80}, Bytes(60));
    std::copy(inner.begin(), inner.end(), packet.begin() + 30);
    const Frames frames =
        dissect(transfers({control_envelope(packet)}), {"vantarel.packet.sequence", kWarnings});
    EXPECT_THAT(all_values(frames, "vantarel.packet.sequence"), ElementsAre("0x0000", "0x0004"));
    EXPECT_THAT(all_values(frames, kWarnings),
                testing::Contains("The packet is damaged: another one begins within it"));
}

// -- sequence numbers ------------------------------------------------------------------------

TEST(DissectorStream, AGapInTheNumbersIsCounted) {
    const Frames frames =
        dissect(transfers({iso(65534), iso(65535), iso(0), iso(4), iso(5)}, kToCamera),
                {kMissed, kWarnings});
    EXPECT_THAT(all_values(frames, kMissed), ElementsAre("3"));
    EXPECT_TRUE(frames.at(3).contains(kMissed));
    EXPECT_THAT(all_values(frames, kWarnings), ElementsAre("3 sequence numbers are missing"));
}

TEST(DissectorStream, ANumberThatRepeatsOrComesLateIsNoGap) {
    const Frames frames =
        dissect(transfers({iso(10), iso(10), iso(11), iso(13), iso(12), iso(14)}, kToCamera),
                {kMissed, kWarnings});
    EXPECT_THAT(all_values(frames, kMissed), ElementsAre("1"));
    EXPECT_THAT(
        all_values(frames, kWarnings),
        ElementsAre("The sequence number repeats or comes late", "1 sequence numbers are missing",
                    "The sequence number repeats or comes late"));
}

TEST(DissectorStream, SendersMayCountForThemselves) {
    const auto message = [](std::uint8_t sender, std::uint16_t sequence) {
        return control_envelope(camera_packet({sender, 0x02, sequence, 0, 0x02, 0x80}, Bytes(6)));
    };
    EXPECT_THAT(
        warnings_of(transfers({message(1, 100), message(4, 7), message(1, 101), message(4, 8)})),
        IsEmpty());
}

// -- what else may come ----------------------------------------------------------------------

TEST(DissectorStream, BytesBetweenEnvelopesArePassedOver) {
    const Bytes stream =
        joined({control_envelope(camera_message(Message::kStatus, 0)), Bytes{1, 0x55, 0xCC, 3},
                control_envelope(camera_message(Message::kBattery, 1))});
    const Frames frames =
        dissect(transfers({stream}), {kSummary, "vantarel.envelope.junk", kWarnings});
    EXPECT_THAT(all_values(frames, kSummary), ElementsAre("camera status", "battery"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.junk"), ElementsAre("0155cc03"));
    EXPECT_THAT(all_values(frames, kWarnings),
                ElementsAre("Bytes that are no envelope are passed over"));
}

TEST(DissectorStream, BytesBetweenPacketsArePassedOver) {
    const Bytes payload = joined({Bytes{0x55, 0xFF, 7}, camera_message(Message::kStatus, 0),
                                  Bytes{8, 9}, camera_message(Message::kBattery, 1), Bytes{0x54}});
    const Frames frames =
        dissect(transfers({control_envelope(payload)}), {kSummary, "vantarel.packet.junk"});
    EXPECT_THAT(all_values(frames, kSummary), ElementsAre("camera status", "battery"));
    EXPECT_THAT(all_values(frames, "vantarel.packet.junk"), ElementsAre("55ff07", "0809", "54"));
}

TEST(DissectorStream, APacketCutOffByItsEnvelopeIsLost) {
    const Bytes packet = camera_message(Message::kStatus, 0);
    const Frames frames = dissect(transfers({control_envelope(std::span(packet).first(30)),
                                             control_envelope(std::span(packet).subspan(30))}),
                                  {kSummary, "vantarel.packet.cut", kWarnings});
    EXPECT_THAT(all_values(frames, kSummary), IsEmpty());
    EXPECT_EQ(all_values(frames, "vantarel.packet.cut").size(), 1U);
    EXPECT_THAT(
        all_values(frames, kWarnings),
        ElementsAre("The packet is cut off, and lost", "Bytes that are no packet are passed over"));
}

TEST(DissectorStream, ACaptureMayBeginWithinAnEnvelope) {
    const Bytes stream =
        joined({video_envelope(video()), control_envelope(camera_message(Message::kStatus, 0))});
    const Bytes rest(stream.begin() + 2000, stream.end());
    EXPECT_THAT(values_without_warning(transfers({rest}), kSummary), ElementsAre("camera status"));
}

TEST(DissectorStream, VideoWithOtherBytesThanZeroIsDropped) {
    Bytes envelope = video_envelope(video(100));
    envelope[7] = 1;
    EXPECT_THAT(warnings_of(transfers({envelope})),
                ElementsAre("Bytes 6 and 7 are not 0: the receiver drops this video"));
}

TEST(DissectorStream, AnEnvelopeLargerThanTheReceiversBufferIsMarked) {
    EXPECT_THAT(warnings_of(transfers({video_envelope(Bytes(kLargestPassingPayload, 0xAB))})),
                IsEmpty());
    EXPECT_THAT(warnings_of(transfers({video_envelope(Bytes(kLargestPassingPayload + 1, 0xAB))})),
                ElementsAre("More than the receiver's buffer holds"));
}

// -- captured in part ------------------------------------------------------------------------

TEST(DissectorStream, BytesOfVideoThatWereNotCapturedAreCounted) {
    const Bytes stream =
        joined({video_envelope(video()), control_envelope(camera_message(Message::kStatus, 0))});
    Capture capture;
    capture.add_transfer(kFromCamera, std::span(stream).first(500), 2000);
    capture.add_transfer(kFromCamera, std::span(stream).subspan(2000));
    const Frames frames =
        dissect(capture, {kSummary, "vantarel.envelope.not_captured", "vantarel.envelope.type"});
    EXPECT_THAT(all_values(frames, kSummary), ElementsAre("camera status"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.not_captured"), ElementsAre("1500"));
    EXPECT_THAT(all_values(frames, "vantarel.envelope.type"), ElementsAre("video", "control"));
}

TEST(DissectorStream, AfterAControlEnvelopeInPartTheNextOneIsFound) {
    const Bytes first = control_envelope(camera_message(Message::kStatus, 0));
    const Bytes rest = joined({Bytes(first.begin() + 40, first.end()),
                               control_envelope(camera_message(Message::kBattery, 1))});
    Capture capture;
    capture.add_transfer(kFromCamera, std::span(first).first(20), 40);
    capture.add_transfer(kFromCamera, rest);
    EXPECT_THAT(summaries_of(capture), ElementsAre("battery"));
}

}  // namespace
