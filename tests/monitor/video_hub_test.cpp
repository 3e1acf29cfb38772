// The ring's reader, against the receiver's writer.
#include "monitor/video_hub.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/monitor/h264_bytes.h"
#include "tests/monitor/memory_limit.h"
#include "tests/monitor/own_directory.h"
#include "video/frame_buffers.h"

namespace {

using namespace std::chrono_literals;

// What lets root read any file.
void set_may_read_all(bool may) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2];
    ASSERT_EQ(syscall(SYS_capget, &header, sets), 0);
    constexpr std::uint32_t kBits = 1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH;
    sets[0].effective =
        may ? sets[0].effective | (sets[0].permitted & kBits) : sets[0].effective & ~kBits;
    ASSERT_EQ(syscall(SYS_capset, &header, sets), 0);
}

class VideoHubTest : public testing::Test {
  protected:
    VideoHubTest() {
        remove_ring();
        std::ofstream(directory + "/video_width") << 1920;
        std::ofstream(directory + "/video_height") << 1080;
    }
    ~VideoHubTest() override {
        hub.stop();
        remove_ring();
        std::filesystem::remove_all(directory);
    }
    static void remove_ring() {
        shm_unlink("vantarel_framebuffer");
        shm_unlink("vantarel_framebuffer_transcoding");
    }
    static void make_ring() {
        testing::internal::CaptureStderr();
        ASSERT_EQ(frame_buffers_init(), 0);
        testing::internal::GetCapturedStderr();
    }
    static void publish(const StreamBytes& part) {
        testing::internal::CaptureStderr();
        frame_queue_part(part.data(), part.size());
        testing::internal::GetCapturedStderr();
    }
    static StreamBytes bytes_of(const AccessUnitPtr& unit) {
        return unit ? StreamBytes(unit->annex_b().begin(), unit->annex_b().end()) : StreamBytes();
    }

    const std::string directory = own_directory("video-hub");
    std::uint16_t sequence = 0;
    VideoHub hub{directory};
    std::shared_ptr<VideoViewer> viewer = hub.fanout().join(VideoFanout::Begin::kAtOnce);
};

TEST_F(VideoHubTest, PicturesOfTheRingReachTheViewer) {
    make_ring();
    hub.start();
    publish(key_picture());
    publish(picture());
    const AccessUnitPtr unit = viewer->next(5s);
    EXPECT_EQ(bytes_of(unit), key_picture());
    ASSERT_TRUE(unit);
    EXPECT_EQ(unit->format->codec, "avc1.640028");
    EXPECT_EQ(unit->format->width, 1920);
    EXPECT_EQ(unit->format->height, 1080);
    EXPECT_EQ(bytes_of(viewer->next(5s)), picture()) << "after a pause, though none follows";
}

TEST_F(VideoHubTest, RingThatComesLaterIsFound) {
    hub.start();
    EXPECT_EQ(viewer->next(100ms), nullptr);
    make_ring();
    publish(key_picture());
    EXPECT_EQ(bytes_of(viewer->next(5s)), key_picture());
}

TEST_F(VideoHubTest, RingThatMayNotBeReadIsTold) {
    make_ring();
    ASSERT_EQ(chmod("/dev/shm/vantarel_framebuffer", 0), 0);
    set_may_read_all(false);
    hub.start();  // its thread may not, either
    set_may_read_all(true);
    const auto told_within = [&](bool what, std::chrono::milliseconds time) {
        for (; hub.figures().ring_forbidden != what && time > 0ms; time -= 10ms) {
            usleep(10000);
        }
        return hub.figures().ring_forbidden == what;
    };
    EXPECT_TRUE(told_within(true, 5s));
    ASSERT_EQ(chmod("/dev/shm/vantarel_framebuffer", 0600), 0);
    EXPECT_TRUE(told_within(false, 5s));
    publish(key_picture());
    EXPECT_EQ(bytes_of(viewer->next(5s)), key_picture());
}

TEST_F(VideoHubTest, RingThatWasMadeAnewIsFollowed) {
    make_ring();
    hub.start();
    publish(key_picture());
    EXPECT_EQ(bytes_of(viewer->next(5s)), key_picture());
    remove_ring();
    make_ring();
    publish(key_picture(200));
    EXPECT_EQ(bytes_of(viewer->next(5s)), key_picture(200));
}

TEST_F(VideoHubTest, RingThatIsClearedAndBegunAnewIsFollowed) {
    make_ring();
    hub.start();
    publish(key_picture());
    publish(picture());
    EXPECT_EQ(bytes_of(viewer->next(5s)), key_picture());
    EXPECT_EQ(bytes_of(viewer->next(5s)), picture());
    make_ring();
    publish(key_picture(200));
    EXPECT_EQ(bytes_of(viewer->next(5s)), key_picture(200));
}

TEST_F(VideoHubTest, PartsThatWereOverwrittenCostThePicturesUntilTheNextKeyFrame) {
    hub.take_part(65534, key_picture());
    hub.take_part(65535, picture());
    hub.take_part(0, picture(70));  // the numbers begin again behind 65535
    hub.take_part(9, picture());
    hub.take_part(10, picture());
    hub.take_part(11, key_picture(200));
    hub.take_part(12, picture(80));
    hub.take_part(13, picture());
    EXPECT_EQ(bytes_of(viewer->next(0ms)), key_picture());
    EXPECT_EQ(bytes_of(viewer->next(0ms)), picture());
    EXPECT_EQ(bytes_of(viewer->next(0ms)), key_picture(200));
    EXPECT_EQ(bytes_of(viewer->next(0ms)), picture(80));
    EXPECT_EQ(viewer->next(0ms), nullptr);
    EXPECT_EQ(hub.figures().dropped_units, 3U);
}

// What came ahead of the loss is no beginning for what comes behind it.
TEST_F(VideoHubTest, WhoComesBehindALossWaitsForTheNextKeyFrame) {
    hub.take_part(0, key_picture());
    hub.take_part(1, picture());
    hub.take_part(2, picture());
    hub.take_part(9, picture());
    const auto newcomer = hub.fanout().join(VideoFanout::Begin::kAtOnce);
    hub.take_part(10, key_picture(200));
    hub.take_part(11, picture());
    EXPECT_EQ(bytes_of(newcomer->next(0ms)), key_picture(200));
}

TEST_F(VideoHubTest, PictureThatFindsNoMemoryCostsThePicturesUntilTheNextKeyFrame) {
    hub.take_part(0, key_picture());
    hub.take_part(1, picture(1000000));
    too_much_memory = 900000;
    hub.take_part(2, picture());
    too_much_memory = kNothingIsTooMuch;
    hub.take_part(3, picture());
    hub.take_part(4, key_picture(200));
    hub.take_part(5, picture(80));
    hub.take_part(6, picture());
    EXPECT_EQ(bytes_of(viewer->next(0ms)), key_picture());
    EXPECT_EQ(bytes_of(viewer->next(0ms)), key_picture(200));
    EXPECT_EQ(bytes_of(viewer->next(0ms)), picture(80));
    EXPECT_GE(hub.figures().dropped_units, 1U);
}

// What the thread needs for a look at the ring is little, and not always there.
TEST_F(VideoHubTest, ThreadOutlivesAnyShortageOfMemory) {
    make_ring();
    is_excepted = true;
    too_much_memory = 1;
    hub.start();
    usleep(200000);
    too_much_memory = kNothingIsTooMuch;
    usleep(100000);
    too_much_memory = 1;
    usleep(700000);
    too_much_memory = kNothingIsTooMuch;
    is_excepted = false;
    publish(key_picture());
    EXPECT_EQ(bytes_of(viewer->next(5s)), key_picture());
}

TEST_F(VideoHubTest, EachPictureIsToldAsItComes) {
    int pictures = 0;
    VideoHub telling(directory, [&] { ++pictures; });
    telling.take_part(0, key_picture());
    telling.take_part(1, picture());
    EXPECT_EQ(pictures, 1);
    telling.take_part(2, picture());
    EXPECT_EQ(pictures, 2);
}

TEST_F(VideoHubTest, SizeThatIsNoPicturesIsNotTold) {
    constexpr const char* kTexts[] = {"99999999999999999999", "-1080", "x", "", "0", "16385"};
    for (const char* text : kTexts) {
        std::ofstream(directory + "/video_width") << text;
        hub.take_part(++sequence, key_picture());
        hub.take_part(++sequence, key_picture());
        const AccessUnitPtr unit = viewer->next(0ms);
        ASSERT_TRUE(unit) << text;
        EXPECT_EQ(unit->format->width, 0) << text;
        while (viewer->next(0ms)) {
        }
    }
}

// A file that keeps its reader waiting must not stop the video.
TEST_F(VideoHubTest, SizeIsNotWaitedFor) {
    std::filesystem::remove(directory + "/video_width");
    ASSERT_EQ(mkfifo((directory + "/video_width").c_str(), 0600), 0);
    hub.take_part(1, key_picture());
    hub.take_part(2, picture());
    ASSERT_TRUE(viewer->next(0ms));
}

TEST_F(VideoHubTest, PartsOfNoBytesChangeNothing) {
    for (std::uint16_t i = 0; i < 100; i += 4) {
        hub.take_part(i, {});
        hub.take_part(static_cast<std::uint16_t>(i + 1), i == 0 ? key_picture() : picture());
        hub.take_part(static_cast<std::uint16_t>(i + 2), {});
        hub.take_part(static_cast<std::uint16_t>(i + 3), {});
    }
    EXPECT_EQ(bytes_of(viewer->next(0ms)), key_picture());
    for (int i = 0; i < 23; ++i) {
        EXPECT_EQ(bytes_of(viewer->next(0ms)), picture()) << i;
    }
}

// It cannot be copied; the writer overwrites it in its turn.
TEST_F(VideoHubTest, PartLongerThanItsSlotIsPassedOverAndTheVideoGoesOn) {
    make_ring();
    hub.start();
    publish(key_picture());
    EXPECT_EQ(bytes_of(viewer->next(5s)), key_picture());
    const int fd = shm_open("vantarel_framebuffer", O_RDWR, 0);
    ASSERT_GE(fd, 0);
    const std::uint32_t length = 300001;
    const std::uint16_t number = 1;
    const std::uint8_t ones[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    const off_t slot = 24 + 300018;
    EXPECT_EQ(pwrite(fd, &length, 4, slot), 4);
    EXPECT_EQ(pwrite(fd, &number, 2, slot + 4), 2);
    EXPECT_EQ(pwrite(fd, ones, 10, slot + 8), 10);
    EXPECT_EQ(pwrite(fd, &number, 2, 2), 2);
    const std::uint16_t next_slot = 2;
    EXPECT_EQ(pwrite(fd, &next_slot, 2, 4), 2);
    close(fd);
    EXPECT_EQ(viewer->next(200ms), nullptr);
    AccessUnitPtr unit;
    for (int i = 0; i < 1000 && !unit; ++i) {
        publish(i % 10 == 0 ? key_picture(200) : picture());
        unit = viewer->next(5ms);
    }
    EXPECT_EQ(bytes_of(unit), key_picture(200));
}

// A picture of two slices whose bytes are all of one value, which is in none of their headers.
void fill(StreamBytes* bytes, std::size_t slice, std::uint8_t value) {
    std::memset(&bytes->at(bytes->size() - slice), value, slice);
    std::memset(&bytes->at(bytes->size() - slice - 6 - slice), value, slice);
}

// The writer goes on without looking whether anybody follows. Each picture has a value of its own,
// and a slot another one each time.
TEST_F(VideoHubTest, WriterThatLapsTheReaderIsCountedAndNothingTornIsHandedOn) {
    constexpr std::size_t kSlice = 140000;
    constexpr int kValues = 151;
    make_ring();
    publish(key_picture());
    hub.start();
    ASSERT_TRUE(viewer->next(5s));
    StreamBytes other = picture(2 * kSlice);
    StreamBytes key = key_picture(2 * kSlice);
    StreamBytes expected_other = other;
    StreamBytes expected_key = key;
    testing::internal::CaptureStderr();
    std::size_t units = 0;
    std::size_t wrong = 0;
    const auto look = [&](std::chrono::milliseconds wait) {
        while (const AccessUnitPtr unit = viewer->next(wait)) {
            StreamBytes& expected = unit->key ? expected_key : expected_other;
            fill(&expected, kSlice, unit->annex_b().back());
            ++units;
            wrong += std::ranges::equal(unit->annex_b(), std::span(expected)) ? 0 : 1;
        }
    };
    for (int i = 0; i < 40000 && hub.figures().missed_parts < 3000; ++i) {
        StreamBytes& part = i % 10 == 0 ? key : other;
        fill(&part, kSlice, static_cast<std::uint8_t>(10 + i % kValues));
        frame_queue_part(part.data(), part.size());
        if (i % 1000 == 0) {
            look(0ms);
        }
    }
    look(500ms);
    testing::internal::GetCapturedStderr();
    EXPECT_GT(hub.figures().missed_parts, 0U);
    EXPECT_GT(units, 0U);
    EXPECT_EQ(wrong, 0U);
}

}  // namespace
