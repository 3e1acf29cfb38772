// The main job: the camera's byte stream in, the live video out of shared memory.

#include <signal.h>

#include <algorithm>
#include <thread>

#include "tests/e2e/e2e_support.h"

namespace {

constexpr std::size_t kChunk = 48000;

// The receiver's stored key frame goes ahead of the live video. Its first and last bytes:
constexpr std::size_t kPrimingSize = 478;
const Bytes kPrimingStart = {0x00, 0x00, 0x00, 0x01, 0x27, 0x4D, 0x60, 0x29, 0xDA, 0x01};
const Bytes kPrimingEnd = {0x02, 0x74, 0x00, 0x0B, 0x20, 0x00, 0x80, 0x80};

Bytes joined(const std::vector<Bytes>& parts, std::size_t from) {
    Bytes all;
    for (std::size_t i = from; i < parts.size(); ++i) {
        all.insert(all.end(), parts[i].begin(), parts[i].end());
    }
    return all;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// A filler chunk: the camera's own, dropped silently. It completes the envelope ahead of it.
Bytes filler() {
    const Bytes payload = {0x00, 0x00, 0x01, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0};
    return video_envelope(payload);
}

// What is played is made before the receiver starts, which waits five seconds for it: to cut a clip
// takes seconds of a busy machine.
class Stream : public ReceiverTest {
  protected:
    // Plays the bytes while another thread follows the ring, as another process would.
    std::vector<Bytes> play(const Bytes& stream, std::size_t parts, std::size_t transfer = 512) {
        std::thread camera([&] { EXPECT_TRUE(board->bulk_out(stream, transfer, 60s)); });
        std::vector<Bytes> read = parts_from_ring(parts, 60s);
        camera.join();
        return read;
    }
};

struct Clip {
    const char* file;
    const char* resolution;
    const char* width;
    const char* height;
};

void PrintTo(const Clip& clip, std::ostream* out) {
    *out << clip.file;
}

class StreamClip : public Stream, public testing::WithParamInterface<Clip> {};

TEST_P(StreamClip, ComesBackBitForBit) {
    const Bytes video = clip(GetParam().file);
    const std::vector<Bytes> chunks = video_chunks(video, kChunk);
    const Bytes stream = camera_stream(chunks, 3);
    start_configured();
    const std::vector<Bytes> parts = play(stream, chunks.size() + 1);

    ASSERT_EQ(parts.size(), chunks.size() + 1) << receiver->output();
    ASSERT_EQ(parts[0].size(), kPrimingSize);
    EXPECT_TRUE(std::equal(kPrimingStart.begin(), kPrimingStart.end(), parts[0].begin()));
    EXPECT_TRUE(std::equal(kPrimingEnd.rbegin(), kPrimingEnd.rend(), parts[0].rbegin()));
    EXPECT_TRUE(std::equal(chunks.begin(), chunks.end(), parts.begin() + 1));
    EXPECT_EQ(joined(parts, 1), video);

    EXPECT_EQ(file("/run/vantarel/video_width"), GetParam().width);
    EXPECT_EQ(file("/run/vantarel/video_height"), GetParam().height);
    const std::string line =
        std::string("Live stream video resolution changed to ") + GetParam().resolution + "\n";
    EXPECT_EQ(receiver->count("Clear frame shared memory\n"), 1);
    // A clip of the priming frame's own size changes nothing when it begins.
    EXPECT_EQ(receiver->count(line), 1) << receiver->output();
    EXPECT_EQ(receiver->count("Wrong packet"), 0);
}

INSTANTIATE_TEST_SUITE_P(Resolutions, StreamClip,
                         testing::Values(Clip{"1280x720-1.h264", "1280x720", "1280", "720"},
                                         Clip{"1280x720-5.h264", "1280x720", "1280", "720"},
                                         Clip{"1920x1080-1.h264", "1920x1080", "1920", "1080"},
                                         Clip{"1920x1080-5.h264", "1920x1080", "1920", "1080"},
                                         Clip{"2704x1520-1.h264", "2704x1520", "2704", "1520"},
                                         Clip{"2704x1520-5.h264", "2704x1520", "2704", "1520"},
                                         Clip{"3840x2160-1.h264", "3840x2160", "3840", "2160"},
                                         Clip{"3840x2160-5.h264", "3840x2160", "3840", "2160"},
                                         Clip{"4096x2160-1.h264", "4096x2160", "4096", "2160"},
                                         Clip{"4096x2160-5.h264", "4096x2160", "4096", "2160"}));

class StreamTransfers : public Stream, public testing::WithParamInterface<std::size_t> {};

TEST_P(StreamTransfers, OfAnySizeGiveTheSameRing) {
    const Bytes video = clip("1280x720-5.h264");
    const std::vector<Bytes> chunks =
        video_chunks(Bytes(video.begin(), video.begin() + 60000), 4096);
    start_configured();
    const std::vector<Bytes> parts = play(camera_stream(chunks, 2), chunks.size() + 1, GetParam());
    ASSERT_EQ(parts.size(), chunks.size() + 1) << receiver->output();
    EXPECT_TRUE(std::equal(chunks.begin(), chunks.end(), parts.begin() + 1));
}

INSTANTIATE_TEST_SUITE_P(Bytes, StreamTransfers, testing::Values(1, 7, 64, 511, 512));

TEST_F(Stream, ThousandPartsWrapAroundTheRing) {
    const Bytes video = clip("1920x1080-5.h264");
    std::vector<Bytes> chunks;
    for (std::size_t i = 0; i < 1000; ++i) {
        const std::size_t at = i * 450;
        chunks.emplace_back(video.begin() + static_cast<std::ptrdiff_t>(at),
                            video.begin() + static_cast<std::ptrdiff_t>(at + 450 + i % 13));
    }
    start_configured();
    // Paced to a hundred parts at a time, so that the follower is never overrun.
    RingReader ring;
    std::vector<Bytes> parts;
    const auto end = std::chrono::steady_clock::now() + 60s;
    for (std::size_t sent = 0; sent < chunks.size(); sent += 100) {
        const std::vector<Bytes> some(chunks.begin() + static_cast<std::ptrdiff_t>(sent),
                                      chunks.begin() + static_cast<std::ptrdiff_t>(sent + 100));
        ASSERT_TRUE(board->bulk_out(camera_stream(some, 0)));
        while (parts.size() < 1 + sent + 100 && std::chrono::steady_clock::now() < end) {
            if (ring.open()) {
                ring.take([&](std::uint16_t sequence, std::span<const std::uint8_t> part) {
                    EXPECT_EQ(sequence, parts.size());
                    parts.emplace_back(part.begin(), part.end());
                });
            }
        }
    }
    EXPECT_EQ(ring.missed(), 0U);
    ASSERT_EQ(parts.size(), 1001U) << receiver->output();
    EXPECT_TRUE(std::equal(chunks.begin(), chunks.end(), parts.begin() + 1));
}

struct Garbage {
    const char* name;
    Bytes bytes;
    const char* printed;
};

void PrintTo(const Garbage& garbage, std::ostream* out) {
    *out << garbage.name;
}

class StreamGarbage : public Stream, public testing::WithParamInterface<Garbage> {};

TEST_P(StreamGarbage, IsSkippedAndTheStreamGoesOn) {
    start_configured();
    const Bytes first = {0, 0, 0, 1, 0x41, 'a'};
    const Bytes second = {0, 0, 0, 1, 0x41, 'b', 'b'};
    const Bytes third = {0, 0, 0, 1, 0x41, 'c', 'c', 'c'};
    const Bytes stream = video_envelope(first) + filler() + GetParam().bytes +
                         video_envelope(second) + filler() + video_envelope(third) + filler() +
                         filler();
    const std::vector<Bytes> parts = play(stream, 4);
    ASSERT_GE(parts.size(), 2U) << receiver->output();
    EXPECT_EQ(parts[1], first);
    EXPECT_EQ(parts.back(), third) << "what follows garbage is found again";
    if (*GetParam().printed != '\0') {
        EXPECT_GE(receiver->count(GetParam().printed), 1) << receiver->output();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, StreamGarbage,
    testing::Values(
        Garbage{"ThreeBytes", {1, 2, 3}, ""},
        Garbage{"StartBytesAlone", {0x55, 0xCC, 0x55, 0xCC, 0x55}, ""},
        Garbage{"CheckBytesSet",
                {0x55, 0xCC, 0x4A, 0x57, 2, 0, 0, 1, 0xAA, 0xBB},
                "Strange video packet 00 01\n"},
        Garbage{"EmptyVideo", {0x55, 0xCC, 0x4A, 0x57, 0, 0, 0, 0}, "Queue part len is zero\n"},
        Garbage{"ControlOfLengthBytesZeroAndOne",
                {0x55, 0xCC, 0x49, 0x57, 6, 0, 0, 0, 0x55, 0, 0x55, 1, 0x55, 0x55},
                ""},
        Garbage{"CameraPacketCutShort",
                {0x55, 0xCC, 0x49, 0x57, 4, 0, 9, 9, 0x55, 0x0E, 0x04, 0x66},
                ""},
        Garbage{"LongNoise", Bytes(300, 0x5A), ""}));

TEST_F(Stream, LargestPayloadPasses) {
    start_configured();
    const Bytes largest(kLargestPassingPayload, 0x11);
    const std::vector<Bytes> parts = play(video_envelope(largest) + Bytes(1, 0x55), 2);
    ASSERT_EQ(parts.size(), 2U) << receiver->output();
    EXPECT_EQ(parts[1], largest);
    EXPECT_EQ(receiver->count("Buffer overflowed\n"), 0);
}

TEST_F(Stream, OneByteMoreThanTheLargestPayloadOverflows) {
    start_configured();
    const Bytes larger(kLargestPassingPayload + 1, 0x22);
    ASSERT_TRUE(board->bulk_out(video_envelope(larger) + Bytes(1, 0x55)));
    ASSERT_TRUE(receiver->wait_for("Buffer overflowed\n", 5s)) << receiver->output();
    // Nothing is left of it: the next envelope is found at once.
    const Bytes live = {0, 0, 0, 1, 0x41, 'z'};
    const std::vector<Bytes> parts = play(video_envelope(live) + filler(), 2);
    ASSERT_EQ(parts.size(), 2U) << receiver->output();
    EXPECT_EQ(parts[1], live);
}

TEST_F(Stream, SignalsEndItUnderLoad) {
    for (const int number : {SIGTERM, SIGINT}) {
        const std::vector<Bytes> chunks = video_chunks(clip("1920x1080-5.h264"), kChunk);
        const Bytes stream = camera_stream(chunks, 1);
        start_configured();
        std::thread camera([&] {
            while (board->bulk_out(stream)) {
            }
        });
        EXPECT_TRUE(receiver->wait_for("resolution changed to 1920x1080\n", 5s));
        receiver->signal(number);
        EXPECT_EQ(receiver->wait_exit(5s), 1) << receiver->output();
        EXPECT_TRUE(receiver->output().ends_with("signal " + std::to_string(number) + " handler\n"))
            << receiver->output();
        camera.join();
    }
}

TEST_F(Stream, NoiseWithoutAHeaderNeverStopsTheReader) {
    start_configured();
    Bytes noise(400000);
    std::uint32_t random = 7;
    for (std::uint8_t& byte : noise) {
        random = random * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(random >> 24);
    }
    ASSERT_TRUE(board->bulk_out(noise, 512, 60s));
    ASSERT_TRUE(board->wait_for_bulk_out_taken(60s)) << receiver->output();
    EXPECT_GE(receiver->count("Wrong packet ") + receiver->count("Buffer overflowed\n"), 1);
    EXPECT_EQ(receiver->wait_exit(0ms), std::nullopt) << receiver->output();
    // Envelopes enough to push out whatever length the noise promised last.
    const Bytes live = {0, 0, 0, 1, 0x41, 'z'};
    Bytes tail;
    for (int i = 0; i < 12000; ++i) {
        tail = std::move(tail) + filler();
    }
    std::vector<Bytes> last;
    ASSERT_TRUE(board->bulk_out(tail + video_envelope(live) + filler(), 512, 60s));
    RingReader ring;
    const auto end = std::chrono::steady_clock::now() + 10s;
    while ((last.empty() || last.back() != live) && std::chrono::steady_clock::now() < end) {
        if (ring.open()) {
            ring.take([&](std::uint16_t, std::span<const std::uint8_t> part) {
                last.emplace_back(part.begin(), part.end());
            });
        }
    }
    ASSERT_FALSE(last.empty());
    EXPECT_EQ(last.back(), live);
}

TEST_F(Stream, ParameterSetThatEndsEarlyIsAnAssertionFailure) {
    start_configured();
    const Bytes cut = {0, 0, 0, 1, 0x67, 0x4D, 0x40};
    ASSERT_TRUE(board->bulk_out(video_envelope(cut) + filler()));
    // The abort's signal is one of the handled ones.
    ASSERT_EQ(receiver->wait_exit(5s), 1) << receiver->output();
    EXPECT_EQ(receiver->lines_without_delta(),
              kStartLines +
                  "USB connected\n"
                  "Live stream video resolution changed to 1280x720\n"
                  "Clear frame shared memory\n"
                  "camera-usb-receiver: ../../../include/h264parse.h:14: ReadBit: Assertion "
                  "`m_nCurrentBit <= m_nLength * 8' failed.\n"
                  "signal 6 handler\n");
}

TEST_F(Stream, ResolutionFollowsTheStream) {
    const std::vector<Bytes> first = video_chunks(clip("1920x1080-5.h264"), kChunk);
    const std::vector<Bytes> second = video_chunks(clip("3840x2160-5.h264"), kChunk);
    std::vector<Bytes> chunks(first.begin(), first.begin() + 4);
    chunks.insert(chunks.end(), second.begin(), second.begin() + 4);
    const Bytes stream = camera_stream(chunks, 1);
    start_configured();
    ASSERT_EQ(play(stream, 9).size(), 9U) << receiver->output();
    const std::string output = receiver->output();
    const std::size_t at_1080 = output.find("resolution changed to 1920x1080\n");
    const std::size_t at_2160 = output.find("resolution changed to 3840x2160\n");
    ASSERT_NE(at_1080, std::string::npos) << output;
    ASSERT_NE(at_2160, std::string::npos) << output;
    EXPECT_LT(at_1080, at_2160);
    EXPECT_EQ(file("/run/vantarel/video_width"), "3840");
    EXPECT_EQ(file("/run/vantarel/video_height"), "2160");
}

}  // namespace
