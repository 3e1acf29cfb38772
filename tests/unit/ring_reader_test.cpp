// The example reader of the video ring, against the receiver's writer.
#include "client/ring_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "video/frame_buffers.h"

namespace {

constexpr char kRing[] = "vantarel_framebuffer";
constexpr std::size_t kRingSize = 60003624;

// Parts of 8 bytes that begin with their number.
class RingReaderTest : public testing::Test {
  protected:
    RingReaderTest() { begin_again(); }
    ~RingReaderTest() override {
        shm_unlink(kRing);
        shm_unlink("vantarel_framebuffer_transcoding");
    }

    static void begin_again() {
        testing::internal::CaptureStderr();
        EXPECT_EQ(frame_buffers_init(), 0);
        testing::internal::GetCapturedStderr();
    }
    void publish(unsigned parts) {
        testing::internal::CaptureStderr();
        for (unsigned i = 0; i < parts; ++i, ++published) {
            std::array<std::uint8_t, 8> part{};
            memcpy(part.data(), &published, sizeof(published));
            frame_queue_part(part.data(), part.size());
        }
        testing::internal::GetCapturedStderr();
    }
    static void request_clear() {
        const int fd = shm_open(kRing, O_RDWR, 0);
        auto* const ring = static_cast<std::uint8_t*>(
            mmap(nullptr, kRingSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        close(fd);
        ring[0] = 1;
        munmap(ring, kRingSize);
    }
    // Numbers of the parts that a call hands on.
    std::vector<unsigned> take() {
        std::vector<unsigned> numbers;
        EXPECT_TRUE(reader.open());
        reader.take([&](std::uint16_t, std::span<const std::uint8_t> part) {
            unsigned number = 0;
            ASSERT_EQ(part.size(), 8U);
            memcpy(&number, part.data(), sizeof(number));
            numbers.push_back(number);
        });
        return numbers;
    }

    RingReader reader;
    unsigned published = 0;
};

std::vector<unsigned> numbers(unsigned from, unsigned to) {
    std::vector<unsigned> result;
    for (unsigned i = from; i < to; ++i) {
        result.push_back(i);
    }
    return result;
}

TEST_F(RingReaderTest, HandsOnEachPartOnce) {
    EXPECT_EQ(take(), numbers(0, 0));
    publish(3);
    EXPECT_EQ(take(), numbers(0, 3));
    EXPECT_EQ(take(), numbers(0, 0));
    for (unsigned i = 3; i < 700; i += 7) {
        publish(7);
        ASSERT_EQ(take(), numbers(i, i + 7));
    }
    EXPECT_EQ(reader.missed(), 0U);
}

TEST_F(RingReaderTest, NumbersGoOnAfter65535) {
    for (unsigned i = 0; i < 65800; i += 100) {
        publish(100);
        ASSERT_EQ(take(), numbers(i, i + 100));
    }
}

TEST_F(RingReaderTest, WhoFallsBehindMissesPartsAndGoesOn) {
    publish(1);
    EXPECT_EQ(take(), numbers(0, 1));
    publish(500);
    const std::vector<unsigned> taken = take();
    EXPECT_EQ(taken.size() + reader.missed(), 500U);
    EXPECT_EQ(taken, numbers(501 - static_cast<unsigned>(taken.size()), 501));
    EXPECT_GE(taken.size(), 100U);
}

TEST_F(RingReaderTest, WhoComesLateGetsWhatTheRingHolds) {
    publish(1000);
    const std::vector<unsigned> taken = take();
    EXPECT_EQ(taken, numbers(1000 - static_cast<unsigned>(taken.size()), 1000));
    EXPECT_GE(taken.size(), 190U);
}

TEST_F(RingReaderTest, ClearByAnotherProcessIsFollowed) {
    publish(5);
    EXPECT_EQ(take(), numbers(0, 5));
    request_clear();
    EXPECT_EQ(take(), numbers(0, 0));
    publish(2);
    EXPECT_EQ(take(), numbers(5, 7));
    request_clear();  // not seen in time by the reader
    publish(3);
    EXPECT_EQ(take(), numbers(7, 10));
    for (unsigned i = 10; i < 310; ++i) {
        publish(1);
        ASSERT_EQ(take(), numbers(i, i + 1));
    }
    EXPECT_EQ(reader.missed(), 0U);
}

TEST_F(RingReaderTest, PartsThatAClearTookAreMissed) {
    publish(5);
    EXPECT_EQ(take(), numbers(0, 5));
    publish(3);
    request_clear();
    publish(2);
    EXPECT_EQ(take(), numbers(8, 10));
    EXPECT_EQ(reader.missed(), 3U);
}

TEST_F(RingReaderTest, PartsOfMoreThanHalfTheNumbersAreMissed) {
    publish(65000);
    const std::size_t before = take().size();
    ASSERT_GE(before, 190U);
    publish(40000);
    const std::vector<unsigned> taken = take();
    EXPECT_GE(taken.size(), 190U);
    EXPECT_EQ(taken.back(), 104999U);
    EXPECT_GT(reader.missed(), 30000U);
}

// Each part is of one value, and a slot's is another one each time.
TEST_F(RingReaderTest, WriterThatComesRoundDuringACopyIsNoticed) {
    testing::internal::CaptureStderr();
    std::atomic<bool> done{false};
    std::thread writer([&] {
        std::vector<std::uint8_t> part(280000);
        for (int i = 0; !done; ++i) {
            memset(part.data(), 10 + i % 151, part.size());
            frame_queue_part(part.data(), part.size());
        }
    });
    std::size_t torn = 0;
    std::size_t parts = 0;
    EXPECT_TRUE(reader.open());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (reader.missed() < 20000 && std::chrono::steady_clock::now() < end) {
        reader.take([&](std::uint16_t, std::span<const std::uint8_t> part) {
            ++parts;
            torn += memcmp(part.data(), part.data() + 1, part.size() - 1) != 0 ? 1 : 0;
            done = reader.missed() >= 20000 || std::chrono::steady_clock::now() >= end;
        });
    }
    done = true;
    writer.join();
    testing::internal::GetCapturedStderr();
    EXPECT_GT(reader.missed(), 0U);
    EXPECT_GT(parts, 0U);
    EXPECT_EQ(torn, 0U);
}

TEST_F(RingReaderTest, WriterThatStartsAgainIsFollowed) {
    publish(250);
    take();
    begin_again();
    EXPECT_EQ(take(), numbers(0, 0));
    publish(2);
    EXPECT_EQ(take(), numbers(250, 252));
    begin_again();  // not seen in time by the reader
    publish(1);
    EXPECT_EQ(take(), numbers(252, 253));
    publish(4);
    EXPECT_EQ(take(), numbers(253, 257));
    EXPECT_EQ(reader.missed(), 0U);
}

}  // namespace
