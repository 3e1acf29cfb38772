// Parts in the live ring: where they come to lie, and what other processes write there.
#include "video/frame_buffers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "frame_buffers_fixture.h"

namespace {

using testing::Each;
using testing::ElementsAre;

// -- parts --------------------------------------------------------------------------------------

TEST_F(FrameBuffers, FirstPartClearsTheObjectAndGoesIntoSlotZero) {
    init();
    const View live(kLive, kLiveSize);
    *live.at(kLiveSize - 1) = 0xEE;
    *live.at(23) = 0xEE;
    EXPECT_EQ(queue({0xB1, 0xB2, 0xB3}), "Clear frame shared memory\n");
    EXPECT_THAT(live.header(), ElementsAre(0x00, 0x00,  // no clear request
                                           0x00, 0x00,  // latest sequence 0
                                           0x01, 0x00,  // next slot 1
                                           0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_THAT(live.slot_header(0), ElementsAre(0x03, 0x00, 0x00, 0x00,  // three bytes
                                                 0x00, 0x00,              // sequence 0
                                                 0x00, 0x00,              //
                                                 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_THAT(live.part(0, 3), ElementsAre(0xB1, 0xB2, 0xB3));
    EXPECT_TRUE(live.is_zero(24 + 18 + 3, kLiveSize));
}

TEST_F(FrameBuffers, SecondPartGoesIntoTheNextSlotWithoutAWord) {
    init();
    queue({0xB1});
    const Bytes part(0x12345, 0xB2);
    EXPECT_EQ(queue(part), "");
    const View live(kLive, kLiveSize);
    EXPECT_THAT(live.bytes(0, 6), ElementsAre(0, 0, 1, 0, 2, 0));
    EXPECT_THAT(live.slot_header(1), ElementsAre(0x45, 0x23, 0x01, 0x00,  // 0x12345 bytes
                                                 0x01, 0x00,              // sequence 1
                                                 0x00, 0x00,              //
                                                 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_EQ(live.part(1, part.size()), part);
    EXPECT_EQ(*live.at(24 + 300018 + 18 + part.size()), 0);
}

TEST_F(FrameBuffers, TheTranscodingObjectGetsNoParts) {
    init();
    queue({0xB1});
    queue({0xB2});
    const View transcoding(kTranscoding, kTranscodingSize);
    EXPECT_EQ(transcoding.header(), kRequestOnly);
    EXPECT_TRUE(transcoding.is_zero(24, kTranscodingSize));
}

TEST_F(FrameBuffers, NullAndEmptyPartsAreRefusedWithAMessage) {
    init_cleared();
    const std::uint8_t byte = 0xB1;
    EXPECT_EQ(log_of([] { frame_queue_part(nullptr, 5); }), "Queue part buf is zero\n");
    EXPECT_EQ(log_of([] { frame_queue_part(nullptr, 0); }), "Queue part buf is zero\n");
    EXPECT_EQ(log_of([&] { frame_queue_part(&byte, 0); }), "Queue part len is zero\n");
    EXPECT_TRUE(View(kLive, kLiveSize).is_zero(0, 24 + 300018));
}

TEST_F(FrameBuffers, LargestPartFillsTheLastSlotToTheObjectsEnd) {
    init_cleared();
    const View live(kLive, kLiveSize);
    live.set_word(4, 199);
    queue(Bytes(300000, 0xB1));
    EXPECT_THAT(live.slot_header(199), ElementsAre(0xE0, 0x93, 0x04, 0x00,  // 300,000 bytes
                                                   0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_EQ(*live.at(kLiveSize - 300001), 1);
    EXPECT_THAT(live.bytes(kLiveSize - 300000, 300000), Each(0xB1));
    EXPECT_EQ(live.word(4), 0);
}

TEST_F(FrameBuffers, PartLargerThanASlotIsDropped) {
    init_cleared();
    EXPECT_EQ(queue(Bytes(300001, 0xB1)), "");
    EXPECT_TRUE(View(kLive, kLiveSize).is_zero(0, 24 + 2 * 300018));
}

TEST_F(FrameBuffers, TwoHundredthPartWrapsAndTheNextOverwritesSlotZero) {
    init_cleared();
    const View live(kLive, kLiveSize);
    for (unsigned i = 0; i < 199; ++i) {
        queue_quietly({static_cast<std::uint8_t>(i)});
    }
    EXPECT_EQ(live.word(4), 199);
    queue_quietly({199});
    EXPECT_EQ(live.word(4), 0);
    EXPECT_EQ(live.word(2), 199);
    EXPECT_THAT(live.part(199, 1), ElementsAre(199));
    EXPECT_THAT(live.part(0, 1), ElementsAre(0));
    queue_quietly({0xEE});
    EXPECT_EQ(live.word(4), 1);
    EXPECT_EQ(live.word(2), 200);
    EXPECT_THAT(live.part(0, 1), ElementsAre(0xEE));
    EXPECT_THAT(live.slot_header(0),
                ElementsAre(1, 0, 0, 0, 200, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
}

TEST_F(FrameBuffers, AThousandPartsAreEachInTheirSlot) {
    init_cleared();
    const View live(kLive, kLiveSize);
    for (unsigned i = 0; i < 1000; ++i) {
        const Bytes part(1 + i % 97, static_cast<std::uint8_t>(i * 7));
        queue_quietly(part);
        const std::size_t slot = i % 200;
        ASSERT_EQ(live.word(2), i);
        ASSERT_EQ(live.word(4), (slot + 1) % 200);
        ASSERT_THAT(live.slot_header(slot), ElementsAre(part.size(), 0, 0, 0, i & 0xFF, i >> 8, 0,
                                                        0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
        ASSERT_EQ(live.part(slot, part.size()), part);
    }
}

TEST_F(FrameBuffers, SequenceGoesOnFromZeroAfter65535) {
    init_cleared();
    const View live(kLive, kLiveSize);
    const Bytes part = {0xB1};
    for (int i = 0; i < 65536; ++i) {
        queue_quietly(part);
    }
    EXPECT_EQ(live.word(2), 65535);
    EXPECT_EQ(live.word(4), 136);  // 65536 parts are 327 rings and 136
    queue_quietly(part);
    EXPECT_EQ(live.word(2), 0);
    EXPECT_THAT(live.slot_header(135),
                ElementsAre(1, 0, 0, 0, 0xFF, 0xFF, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_THAT(live.slot_header(136),
                ElementsAre(1, 0, 0, 0, 0x00, 0x00, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
}

TEST_F(FrameBuffers, MemoryIsWhatPartsWereWrittenInto) {
    init();
    for (int i = 0; i < 1000; ++i) {
        queue_quietly(Bytes(1000, 0xB1));
    }
    EXPECT_LT(View(kLive, kLiveSize).occupied(), 2000000U);  // two pages a slot at most
}

// -- what other processes write -----------------------------------------------------------------

TEST_F(FrameBuffers, ClearRequestOfAnotherProcess) {
    init_cleared();
    const View live(kLive, kLiveSize);
    for (std::uint8_t i = 0; i < 5; ++i) {
        queue_quietly({i});
    }
    live.set_word(0, 1);
    EXPECT_EQ(queue({0xB5}), "Clear frame shared memory\n");
    EXPECT_THAT(live.bytes(0, 6), ElementsAre(0, 0, 5, 0, 1, 0));  // the sequence goes on
    EXPECT_THAT(live.part(0, 1), ElementsAre(0xB5));
    EXPECT_TRUE(live.is_zero(24 + 300018, kLiveSize));
    EXPECT_EQ(queue({0xB6}), "");
}

TEST_F(FrameBuffers, ClearRequestIsSixteenBits) {
    init_cleared();
    View(kLive, kLiveSize).set_word(0, 0x0100);
    EXPECT_EQ(queue({0xB1}), "Clear frame shared memory\n");
}

TEST_F(FrameBuffers, SlotIndexBehindTheRingIsTakenAsZero) {
    init_cleared();
    const View live(kLive, kLiveSize);
    for (const std::uint16_t index :
         {std::uint16_t{200}, std::uint16_t{0x8000}, std::uint16_t{0xFFFF}}) {
        live.set_word(4, index);
        queue({static_cast<std::uint8_t>(index >> 8)});
        EXPECT_EQ(live.word(4), 1);
        EXPECT_THAT(live.part(0, 1), ElementsAre(index >> 8));
    }
    EXPECT_TRUE(live.is_zero(24 + 300018, kLiveSize));
}

// Two of the threads' checks never meet a slot that is written again: those that might are not
// counted.
TEST_F(FrameBuffers, AReaderFindsTheLatestPartWhole) {
    init_cleared();
    const View live(kLive, kLiveSize);
    std::atomic<unsigned> checks{0};
    std::atomic<unsigned> torn{0};
    std::atomic<bool> done{false};
    const auto part_of = [](unsigned sequence) {
        return Bytes(40 + sequence % 50, static_cast<std::uint8_t>(sequence));
    };
    queue_quietly(part_of(0));
    std::thread reader([&] {
        while (!done) {
            const unsigned latest = live.word(2);
            const Bytes expected = part_of(latest);
            const std::size_t slot = latest % 200;
            const std::size_t offset = 24 + slot * 300018;
            const unsigned sequence = live.word(offset + 4);
            const unsigned length = live.word(offset);
            const Bytes bytes = live.part(slot, expected.size());
            if (live.word(2) - latest >= 190) {
                continue;
            }
            ++checks;
            torn += sequence != latest || length != expected.size() || bytes != expected ? 1 : 0;
        }
    });
    for (unsigned i = 1; i < 20000; ++i) {
        queue_quietly(part_of(i));
        while (checks < i / 20) {
            std::this_thread::yield();
        }
    }
    done = true;
    reader.join();
    EXPECT_EQ(torn, 0U);
}

}  // namespace
