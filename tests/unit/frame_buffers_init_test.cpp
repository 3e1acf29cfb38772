// The shared objects from their creation on: what an earlier run left, and what cannot be had.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame_buffers_fixture.h"
#include "video/frame_buffers.h"

namespace {

using testing::ElementsAre;

// -- creation -----------------------------------------------------------------------------------

TEST_F(FrameBuffers, CreatesBothObjects) {
    EXPECT_EQ(init(), kInitLog);
    const View live(kLive, kLiveSize);
    const View transcoding(kTranscoding, kTranscodingSize);
    EXPECT_EQ(live.status().st_size, 60003624);
    EXPECT_EQ(transcoding.status().st_size, 13003624);
    EXPECT_EQ(live.status().st_mode & 0777U, 0600U);
    EXPECT_EQ(transcoding.status().st_mode & 0777U, 0600U);
    EXPECT_EQ(live.header(), kRequestOnly);
    EXPECT_EQ(transcoding.header(), kRequestOnly);
    EXPECT_TRUE(live.is_zero(24, kLiveSize));
    EXPECT_TRUE(transcoding.is_zero(24, kTranscodingSize));
}

TEST_F(FrameBuffers, OpensBeforeItCreates) {
    init();
    EXPECT_THAT(openings,
                ElementsAre(Opening{kLive, O_RDWR, 0600}, Opening{kLive, O_RDWR | O_CREAT, 0600},
                            Opening{kTranscoding, O_RDWR, 0600},
                            Opening{kTranscoding, O_RDWR | O_CREAT, 0600}));
    openings.clear();
    init();
    EXPECT_THAT(openings,
                ElementsAre(Opening{kLive, O_RDWR, 0600}, Opening{kTranscoding, O_RDWR, 0600}));
}

TEST_F(FrameBuffers, TakesOverWhatAnEarlierRunLeft) {
    const std::size_t leftovers[][2] = {
        {kLiveSize, kTranscodingSize}, {100, 1}, {kLiveSize + 5000, kTranscodingSize + 70000}};
    for (const auto& sizes : leftovers) {
        leave_object(kLive, sizes[0]);
        leave_object(kTranscoding, sizes[1]);
        init();
        const View live(kLive, kLiveSize);
        const View transcoding(kTranscoding, kTranscodingSize);
        EXPECT_EQ(live.status().st_size, 60003624);
        EXPECT_EQ(transcoding.status().st_size, 13003624);
        EXPECT_EQ(live.header(), kRequestOnly);
        EXPECT_EQ(transcoding.header(), kRequestOnly);
        EXPECT_TRUE(live.is_zero(24, kLiveSize));
        EXPECT_TRUE(transcoding.is_zero(24, kTranscodingSize));
    }
}

TEST_F(FrameBuffers, ReaderOfTheEarlierRunSeesTheRequest) {
    leave_object(kLive, kLiveSize);
    const View earlier(kLive, kLiveSize);
    init();
    EXPECT_EQ(earlier.header(), kRequestOnly);
}

TEST_F(FrameBuffers, MemoryOfTheEarlierRunIsGivenBack) {
    leave_object(kLive, kLiveSize);
    leave_object(kTranscoding, kTranscodingSize);
    init();
    EXPECT_LT(View(kLive, kLiveSize).occupied(), 100000U);
    EXPECT_LT(View(kTranscoding, kTranscodingSize).occupied(), 100000U);
}

TEST_F(FrameBuffers, MemoryThatCannotBeGivenBackIsOverwritten) {
    leave_object(kLive, kLiveSize);
    leave_object(kTranscoding, kTranscodingSize);
    memory_cannot_be_given_back = true;
    init();
    const View live(kLive, kLiveSize);
    EXPECT_EQ(live.header(), kRequestOnly);
    EXPECT_TRUE(live.is_zero(24, kLiveSize));
    EXPECT_TRUE(View(kTranscoding, kTranscodingSize).is_zero(24, kTranscodingSize));
    *live.at(kLiveSize - 1) = 0xEE;
    EXPECT_EQ(queue({0xB1}), "Clear frame shared memory\n");
    EXPECT_TRUE(live.is_zero(24 + 19, kLiveSize));
}

TEST_F(FrameBuffers, InitialisingAgainKeepsOneMapOfEach) {
    init();
    EXPECT_EQ(maps_of_objects(), 2);
    init();
    EXPECT_EQ(maps_of_objects(), 2);
}

TEST_F(FrameBuffers, InitialisingAgainStartsTheSequenceAgain) {
    init();
    queue({0xB1});
    queue({0xB2});
    init();
    queue({0xB3});
    const View live(kLive, kLiveSize);
    EXPECT_EQ(live.word(2), 0);
    EXPECT_THAT(live.slot_header(0),
                ElementsAre(1, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
}

TEST_F(FrameBuffers, RemovesThePublishedResolution) {
    root_.write("/run/vantarel/video_width", "1920");
    root_.write("/run/vantarel/video_height", "1080");
    init();
    EXPECT_FALSE(root_.exists("/run/vantarel/video_width"));
    EXPECT_FALSE(root_.exists("/run/vantarel/video_height"));
}

// -- failures -----------------------------------------------------------------------------------

struct Failure {
    const char* what;
    int (*instead)();  // what is given out in the object's place
};

const Failure kFailures[] = {
    {"not to be opened", [] { return -1; }},
    {"not to be sized", [] { return open("/dev/null", O_RDWR); }},
    {"not to be mapped", [] { return open("/tmp", O_TMPFILE | O_WRONLY, 0600); }},
};

TEST_F(FrameBuffers, FailureOfTheFirstObject) {
    for (const Failure& failure : kFailures) {
        instead_of_opening = [&](const std::string& name) {
            return name == kLive ? failure.instead() : -2;
        };
        EXPECT_EQ(log_of([] { EXPECT_EQ(frame_buffers_init(), -1); }),
                  "Init frame buffer 60003624 bytes\n")
            << failure.what;
        EXPECT_EQ(maps_of_objects(), 0) << failure.what;
    }
}

TEST_F(FrameBuffers, FailureOfTheSecondObjectUnmapsTheFirst) {
    for (const Failure& failure : kFailures) {
        instead_of_opening = [&](const std::string& name) {
            return name == kTranscoding ? failure.instead() : -2;
        };
        EXPECT_EQ(log_of([] { EXPECT_EQ(frame_buffers_init(), -1); }), kInitLog) << failure.what;
        EXPECT_EQ(maps_of_objects(), 0) << failure.what;
    }
}

TEST_F(FrameBuffers, FailureAfterASuccessLeavesNoMap) {
    init();
    instead_of_opening = [](const std::string&) { return -1; };
    log_of([] { EXPECT_EQ(frame_buffers_init(), -1); });
    EXPECT_EQ(maps_of_objects(), 0);
}

TEST_F(FrameBuffers, PartsWithoutARingGoNowhere) {
    instead_of_opening = [](const std::string&) { return -1; };
    log_of([] { EXPECT_EQ(frame_buffers_init(), -1); });
    EXPECT_EQ(queue({0xB1}), "");
}

}  // namespace
