// One stream, many viewers.
#include "monitor/video_fanout.h"

#include <gtest/gtest.h>

#include "tests/monitor/h264_bytes.h"

namespace {

using Begin = VideoFanout::Begin;
using namespace std::chrono_literals;

class VideoFanoutTest : public testing::Test {
  protected:
    AccessUnitPtr put(bool key, std::size_t size = 10) {
        const StreamBytes bytes(size, 0x11);
        auto unit = std::make_shared<AccessUnit>(bytes, key, ++time, format);
        fanout.put(unit);
        return unit;
    }
    // A key frame with parameter sets of its own.
    AccessUnitPtr put_key(std::uint8_t sets) {
        const StreamBytes bytes =
            joined({{0, 0, 0, 1, 0x67, sets}, {0, 0, 0, 1, 0x68, 0xEB}, nal(0x65, 0x88, 10)});
        auto unit = std::make_shared<AccessUnit>(bytes, true, ++time, format);
        fanout.put(unit);
        return unit;
    }
    static std::vector<AccessUnitPtr> all(VideoViewer& viewer) {
        std::vector<AccessUnitPtr> units;
        while (AccessUnitPtr unit = viewer.next(0ms)) {
            units.push_back(unit);
        }
        return units;
    }

    std::uint64_t time = 0;
    std::shared_ptr<const VideoFormat> format = std::make_shared<VideoFormat>();
    VideoFanout fanout;
};

TEST_F(VideoFanoutTest, MessageIsFlagsTimeAndPicture) {
    const AccessUnit unit(StreamBytes{0, 0, 1, 0x65}, true, 0x0102030405060708, format);
    EXPECT_EQ(unit.message, (std::vector<std::uint8_t>{0x01,                       // key frame
                                                       8, 7, 6, 5, 4, 3, 2, 1,     // microseconds
                                                       0x00, 0x00, 0x01, 0x65}));  // Annex B
    EXPECT_EQ(AccessUnit(StreamBytes{}, false, 0, format).message[0], 0);
}

TEST_F(VideoFanoutTest, NewcomerHasThePicturesSinceTheLastKeyFrame) {
    put(true);
    put(false);
    const auto key = put(true);
    const auto second = put(false);
    const auto viewer = fanout.join(Begin::kAtOnce);
    const auto third = put(false);
    EXPECT_EQ(all(*viewer), (std::vector{key, second, third}));
}

TEST_F(VideoFanoutTest, StreamBeginsAtTheNextKeyFrame) {
    put(true);
    const auto viewer = fanout.join(Begin::kNextKeyFrame);
    put(false);
    const auto key = put(true);
    EXPECT_EQ(all(*viewer), std::vector{key});
    EXPECT_EQ(viewer->dropped(), 0U);
}

TEST_F(VideoFanoutTest, KeyFrameWhoseSetsTheNextPictureReplacesIsNoneOfTheStreams) {
    const auto viewer = fanout.join(Begin::kNextKeyFrame);
    const auto page = fanout.join(Begin::kAtOnce);
    const auto stored = put_key(1);
    EXPECT_EQ(all(*page), std::vector{stored}) << "a picture immediately";
    EXPECT_TRUE(all(*viewer).empty());
    const auto first = put_key(2);
    const auto second = put(false);
    EXPECT_EQ(all(*viewer), (std::vector{first, second}));
    put_key(1);  // the receiver was started again
    const auto next = put_key(2);
    EXPECT_EQ(all(*viewer), std::vector{next});
    EXPECT_EQ(viewer->dropped(), 0U);
}

TEST_F(VideoFanoutTest, KeyFrameWithOtherSetsComesWithThePictureBehindIt) {
    const auto viewer = fanout.join(Begin::kNextKeyFrame);
    const auto first = put_key(1);
    EXPECT_TRUE(all(*viewer).empty());
    const auto second = put(false);
    EXPECT_EQ(all(*viewer), (std::vector{first, second}));
    const auto same = put_key(1);
    EXPECT_EQ(all(*viewer), std::vector{same}) << "waits for nothing";
    const auto other = put_key(2);
    EXPECT_TRUE(all(*viewer).empty());
    const auto behind = put_key(2);
    EXPECT_EQ(all(*viewer), (std::vector{other, behind}));
}

TEST_F(VideoFanoutTest, StreamThatIsJoinedLaterBeginsWithoutWaiting) {
    put_key(2);
    put(false);
    const auto viewer = fanout.join(Begin::kNextKeyFrame);
    const auto key = put_key(2);
    EXPECT_EQ(all(*viewer), std::vector{key});
}

TEST_F(VideoFanoutTest, KeyFrameThatIsHeldComesAtTheEnd) {
    const auto viewer = fanout.join(Begin::kNextKeyFrame);
    const auto key = put_key(1);
    fanout.leave(viewer);
    EXPECT_EQ(all(*viewer), std::vector{key});
}

TEST_F(VideoFanoutTest, StoredKeyFrameAheadOfALossIsNoneOfTheStreams) {
    const auto viewer = fanout.join(Begin::kNextKeyFrame);
    put_key(1);
    fanout.interrupt();
    put_key(1);
    const auto key = put_key(2);
    EXPECT_EQ(all(*viewer), std::vector{key});
}

TEST_F(VideoFanoutTest, NewcomerBehindALossWaitsForTheNextKeyFrame) {
    put(true);
    put(false);
    fanout.interrupt();
    const auto viewer = fanout.join(Begin::kAtOnce);
    put(false);
    const auto key = put(true);
    EXPECT_EQ(all(*viewer), std::vector{key});
}

TEST_F(VideoFanoutTest, SlowViewerGoesOnAtAKeyFrameAndNobodyElseLosesAny) {
    const auto slow = fanout.join(Begin::kAtOnce);
    const auto quick = fanout.join(Begin::kAtOnce);
    put(true);
    std::size_t seen = all(*quick).size();
    for (int i = 0; i < 200; ++i) {
        put(false);
        seen += all(*quick).size();
    }
    const auto key = put(true);
    const auto next = put(false);
    seen += all(*quick).size();
    EXPECT_EQ(all(*slow), (std::vector{key, next}));
    EXPECT_EQ(slow->dropped(), 201U);
    EXPECT_EQ(seen, 203U);
    EXPECT_EQ(quick->dropped(), 0U);
    EXPECT_EQ(fanout.dropped(), 201U);
}

TEST_F(VideoFanoutTest, QueueIsBoundedInBytes) {
    const auto viewer = fanout.join(Begin::kAtOnce);
    for (int i = 0; i < 100; ++i) {
        put(true, 1000000);
    }
    std::size_t bytes = 0;
    for (const auto& unit : all(*viewer)) {
        bytes += unit->message.size();
    }
    EXPECT_GE(bytes, 1000000U);
    EXPECT_LE(bytes, 8U * 1024 * 1024);
}

TEST_F(VideoFanoutTest, GroupThatIsTooLongIsNoStart) {
    put(true);
    for (int i = 0; i < 100; ++i) {
        put(false);
    }
    const auto viewer = fanout.join(Begin::kAtOnce);
    const auto key = put(true);
    EXPECT_EQ(all(*viewer), std::vector{key});
}

TEST_F(VideoFanoutTest, EveryViewerIsLetGoAtTheEnd) {
    const auto before = fanout.join(Begin::kAtOnce);
    fanout.close_all();
    const auto after = fanout.join(Begin::kAtOnce);
    EXPECT_TRUE(before->closed());
    EXPECT_TRUE(after->closed());
    put(true);
    EXPECT_EQ(before->next(0ms), nullptr);
}

TEST_F(VideoFanoutTest, ViewerWhoLeftIsCountedNoMore) {
    const auto viewer = fanout.join(Begin::kAtOnce);
    EXPECT_EQ(fanout.viewers(), 1U);
    fanout.leave(viewer);
    EXPECT_EQ(fanout.viewers(), 0U);
}

}  // namespace
