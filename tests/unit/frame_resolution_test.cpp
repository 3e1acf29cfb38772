// The picture size that is read from the video and published.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "frame_buffers_fixture.h"
#include "video/frame_buffers.h"

namespace {

const Bytes kStart = {0x00, 0x00, 0x00, 0x01, 0x27};

// Main profile, as large as the name says.
const Bytes k1912x1088 = {0x4D, 0x00, 0x28, 0xF4, 0x03, 0xC0, 0x11, 0x3F, 0x28};
const Bytes k1280x720 = {0x4D, 0x00, 0x28, 0xF4, 0x02, 0x80, 0x2D, 0xC0};
const Bytes k1000000000x64 = {0x4D, 0x00, 0x28, 0xF4, 0x00, 0x00,
                              0x00, 0x77, 0x35, 0x94, 0x04, 0xC0};
const Bytes k2147483648x64 = {0x4D, 0x00, 0x28, 0xF4, 0x00, 0x00,
                              0x00, 0x10, 0x00, 0x00, 0x00, 0x4C};

Bytes with_start(const Bytes& sps) {
    Bytes part = kStart;
    part.insert(part.end(), sps.begin(), sps.end());
    return part;
}

TEST_F(FrameBuffers, FullHdIsPublished) {
    init_cleared();
    const Bytes part = with_start(k1912x1088);
    EXPECT_EQ(queue(part), "Live stream video resolution changed to 1920x1080\n");
    EXPECT_EQ(root_.read("/run/vantarel/video_width"), "1920");
    EXPECT_EQ(root_.read("/run/vantarel/video_height"), "1080");
    EXPECT_EQ(View(kLive, kLiveSize).part(0, part.size()), part);
}

TEST_F(FrameBuffers, ResolutionIsReadBeforeTheClear) {
    init();
    EXPECT_EQ(queue(with_start(k1280x720)),
              "Live stream video resolution changed to 1280x720\n"
              "Clear frame shared memory\n");
}

TEST_F(FrameBuffers, RepeatedResolutionIsNotWrittenAgain) {
    init_cleared();
    queue(with_start(k1912x1088));
    root_.remove("/run/vantarel/video_width");
    root_.remove("/run/vantarel/video_height");
    EXPECT_EQ(queue(with_start(k1912x1088)), "");
    EXPECT_FALSE(root_.exists("/run/vantarel/video_width"));
    EXPECT_FALSE(root_.exists("/run/vantarel/video_height"));
}

TEST_F(FrameBuffers, ChangedResolutionReplacesTheFiles) {
    init_cleared();
    queue(with_start(k1912x1088));
    root_.write("/run/vantarel/video_width", "123456789");
    root_.write("/run/vantarel/video_height", "123456789");
    EXPECT_EQ(queue(with_start(k1280x720)), "Live stream video resolution changed to 1280x720\n");
    EXPECT_EQ(root_.read("/run/vantarel/video_width"), "1280");
    EXPECT_EQ(root_.read("/run/vantarel/video_height"), "720");
}

TEST_F(FrameBuffers, EitherSideAloneIsAChangeAndMapped) {
    init_cleared();
    EXPECT_EQ(queue(with_start({0x4D, 0x00, 0x28, 0xF4, 0x05, 0x00, 0x44, 0xC0})),
              "Live stream video resolution changed to 640x1080\n");
    EXPECT_EQ(queue(with_start(k1912x1088)), "Live stream video resolution changed to 1920x1080\n");
    EXPECT_EQ(queue(with_start({0x4D, 0x00, 0x28, 0xF4, 0x03, 0xC0, 0x2D, 0xFC, 0xA0})),
              "Live stream video resolution changed to 1920x720\n");
}

TEST_F(FrameBuffers, NumberIsCutToNineCharacters) {
    init_cleared();
    EXPECT_EQ(queue(with_start(k1000000000x64)),
              "Live stream video resolution changed to 1000000000x64\n");
    EXPECT_EQ(root_.read("/run/vantarel/video_width"), "100000000");
    EXPECT_EQ(root_.read("/run/vantarel/video_height"), "64");
    EXPECT_EQ(queue(with_start(k2147483648x64)),
              "Live stream video resolution changed to -2147483648x64\n");
    EXPECT_EQ(root_.read("/run/vantarel/video_width"), "-21474836");
}

TEST_F(FrameBuffers, FilesThatCannotBeWrittenAreSkippedSilently) {
    init_cleared();
    root_.remove("/run/vantarel");
    EXPECT_EQ(queue(with_start(k1280x720)), "Live stream video resolution changed to 1280x720\n");
    EXPECT_FALSE(root_.exists("/run/vantarel"));
}

TEST_F(FrameBuffers, OneFileThatCannotBeWrittenDoesNotKeepTheOtherBack) {
    init_cleared();
    std::filesystem::create_directory(root_.path("/run/vantarel/video_width"));
    queue(with_start(k1280x720));
    EXPECT_EQ(root_.read("/run/vantarel/video_height"), "720");
}

TEST_F(FrameBuffers, NalHeadersThatAreAnSps) {
    for (const int header : {0x07, 0x17, 0x27, 0x47, 0x67, 0xF7}) {
        init_cleared();
        Bytes part = with_start(k1280x720);
        part[4] = static_cast<std::uint8_t>(header);
        EXPECT_EQ(queue(part), "Live stream video resolution changed to 1280x720\n") << header;
    }
}

TEST_F(FrameBuffers, PartsThatDoNotBeginWithAnSps) {
    init_cleared();
    Bytes picture = with_start(k1280x720);
    picture[4] = 0x25;
    EXPECT_EQ(queue(picture), "");
    Bytes short_start = with_start(k1280x720);
    short_start.erase(short_start.begin());  // 00 00 01 27
    EXPECT_EQ(queue(short_start), "");
    for (std::size_t i = 0; i < 4; ++i) {
        Bytes no_start = with_start(k1280x720);
        no_start[i] = 0x02;
        EXPECT_EQ(queue(no_start), "") << i;
    }
    Bytes later = with_start(k1280x720);
    later.insert(later.begin(), 0x00);
    EXPECT_EQ(queue(later), "");
    EXPECT_EQ(queue({0x00, 0x00, 0x00, 0x01}), "");
    EXPECT_EQ(View(kLive, kLiveSize).word(4), 8);  // all were published all the same
}

using FrameBuffersDeathTest = FrameBuffers;

TEST_F(FrameBuffersDeathTest, SpsThatEndsEarlyIsAnAssertion) {
    init_cleared();
    EXPECT_EXIT(queue_quietly(kStart), testing::KilledBySignal(SIGABRT),
                "Assertion `m_nCurrentBit <= m_nLength \\* 8' failed\\.");
    EXPECT_EXIT(queue_quietly(with_start({0x4D, 0x00, 0x28})), testing::KilledBySignal(SIGABRT),
                "Assertion `m_nCurrentBit <= m_nLength \\* 8' failed\\.");
}

}  // namespace
