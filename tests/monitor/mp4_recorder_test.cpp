// A recording without memory or on a slow disk; the others are in recording_test.cpp.
#include "monitor/mp4_recorder.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>

#include "tests/monitor/h264_bytes.h"
#include "tests/monitor/memory_limit.h"
#include "tests/monitor/own_directory.h"

namespace {

using namespace std::chrono_literals;

std::atomic<bool> disk_is_busy{false};

bool comes_true(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!condition() && std::chrono::steady_clock::now() < end) {
        usleep(10000);
    }
    return condition();
}

class Mp4RecorderTest : public testing::Test {
  protected:
    ~Mp4RecorderTest() override { std::filesystem::remove_all(directory); }
    void put_pictures() {
        fanout.put(std::make_shared<AccessUnit>(key_picture(), true, 1, format));
        fanout.put(std::make_shared<AccessUnit>(picture(), false, 40000, format));
    }
    bool has_ended() const {
        return comes_true([&] { return store.json("recording") == "\"\""; });
    }

    const std::string directory = own_directory("mp4-recorder");
    const std::shared_ptr<const VideoFormat> format =
        std::make_shared<VideoFormat>(VideoFormat{"avc1.640028", 1920, 1080});
    VideoFanout fanout;
    TelemetryStore store;
    Mp4Recorder recorder{fanout, store, directory};
};

TEST_F(Mp4RecorderTest, ShortageOfMemoryEndsTheRecordingAndNothingElse) {
    ASSERT_EQ(recorder.control("start"), "");
    is_excepted = true;
    too_much_memory = 16;
    put_pictures();
    EXPECT_TRUE(has_ended());
    too_much_memory = kNothingIsTooMuch;
    EXPECT_EQ(recorder.control("start"), "") << "there is memory again";
    EXPECT_EQ(recorder.control("stop"), "");
    is_excepted = false;
}

// Stacks count among the memory that a client may exhaust.
TEST_F(Mp4RecorderTest, ThreadThatCannotBeHadIsARefusalAndNothingElse) {
    pthread_attr_t usual;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    ASSERT_EQ(pthread_attr_setstacksize(&huge, SIZE_MAX / 4 * 3), 0);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    EXPECT_EQ(recorder.control("start"), "there is no memory for a recording");
    EXPECT_EQ(recorder.control("stop"), "");
    EXPECT_EQ(store.json("recording"), "\"\"");
    EXPECT_EQ(fanout.viewers(), 0U);
    ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
    EXPECT_EQ(recorder.control("start"), "") << "there is memory again";
    pthread_attr_destroy(&huge);
    pthread_attr_destroy(&usual);
}

TEST_F(Mp4RecorderTest, WhoStopsItDoesNotWaitForTheDisk) {
    ASSERT_EQ(recorder.control("start"), "");
    put_pictures();
    disk_is_busy = true;
    EXPECT_EQ(recorder.control("stop"), "");
    usleep(100000);
    EXPECT_NE(store.json("recording"), "\"\"") << "nor is it told to have ended";
    EXPECT_TRUE(recorder.finished().empty());
    EXPECT_EQ(recorder.control("start"), "the last recording is still being written");
    EXPECT_EQ(recorder.control("stop"), "");
    disk_is_busy = false;
    EXPECT_TRUE(has_ended());
    EXPECT_EQ(recorder.finished().size(), 1U);
    EXPECT_EQ(recorder.control("start"), "");
}

}  // namespace

// In the C library's place.
int fdatasync(int fd) {
    while (disk_is_busy) {
        usleep(1000);
    }
    return static_cast<int>(syscall(SYS_fdatasync, fd));
}
