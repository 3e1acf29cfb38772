// Parts of a byte stream become pictures.
#include "monitor/access_units.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/monitor/h264_bytes.h"

namespace {

using Pictures = std::vector<StreamBytes>;

class AccessUnitsTest : public testing::Test {
  protected:
    void take(const StreamBytes& part) { units.take(part); }
    // A picture as the camera sends it: in parts of up to 40 bytes.
    void take_in_parts(const StreamBytes& unit) {
        for (std::size_t at = 0; at < unit.size(); at += 40) {
            units.take(std::span(unit).subspan(at, std::min<std::size_t>(40, unit.size() - at)));
        }
    }
    // As many as it takes until a smaller part is trusted to end a picture; the last one waits.
    void gain_trust() {
        take_in_parts(key_picture());
        for (int i = 0; i < 10; ++i) {
            take_in_parts(picture());
        }
        got.clear();
        keys.clear();
    }

    std::vector<StreamBytes> got;
    std::vector<bool> keys;
    std::string codec;
    AccessUnits units{[this](const AccessUnits::Unit& unit) {
        got.emplace_back(unit.bytes.begin(), unit.bytes.end());
        keys.push_back(unit.key);
        codec = unit.key ? unit.codec : codec;
    }};
};

TEST_F(AccessUnitsTest, PictureIsHandedOnWhenTheNextOneBegins) {
    take(key_picture());
    EXPECT_TRUE(got.empty());
    take(picture());
    EXPECT_EQ(got, Pictures{key_picture()});
    EXPECT_EQ(keys, std::vector{true});
    take(picture());
    EXPECT_EQ(got.size(), 2U);
    EXPECT_EQ(got.back(), picture());
    EXPECT_FALSE(keys.back());
}

TEST_F(AccessUnitsTest, CodecIsNamedAsBrowsersNameIt) {
    take(key_picture());
    take(picture());
    EXPECT_EQ(codec, "avc1.640028");
}

TEST_F(AccessUnitsTest, StreamCutAtEveryByteGivesTheSamePictures) {
    const StreamBytes stream = joined({key_picture(), picture(), key_picture(), picture()});
    for (std::size_t size = 1; size < 30; ++size) {
        got.clear();
        AccessUnits other([this](const AccessUnits::Unit& unit) {
            got.emplace_back(unit.bytes.begin(), unit.bytes.end());
        });
        for (std::size_t at = 0; at < stream.size(); at += size) {
            other.take(std::span(stream).subspan(at, std::min(size, stream.size() - at)));
        }
        EXPECT_EQ(got, (Pictures{key_picture(), picture(), key_picture()})) << size;
    }
}

TEST_F(AccessUnitsTest, NothingIsHandedOnBeforeAKeyPicture) {
    take(picture());
    take(picture());
    take(key_picture());
    EXPECT_TRUE(got.empty());
    take(picture());
    EXPECT_EQ(got, Pictures{key_picture()});
    EXPECT_EQ(units.dropped(), 2U);
}

TEST_F(AccessUnitsTest, IdrPictureWithoutParameterSetsIsNoKeyPicture) {
    take(joined({nal(0x65, 0x88, 30)}));
    take(picture());
    take(picture());
    EXPECT_TRUE(got.empty());
}

TEST_F(AccessUnitsTest, StreamThatIsJoinedWithinAPictureBeginsAtTheNextKeyPicture) {
    take(StreamBytes(50, 0xAB));
    take(key_picture());
    take(picture());
    EXPECT_EQ(got, Pictures{key_picture()});
}

TEST_F(AccessUnitsTest, LossDropsUntilTheNextKeyPicture) {
    take(key_picture());
    take(picture());
    units.lose();
    take(picture());
    take(picture());
    take(key_picture());
    take(picture());
    EXPECT_EQ(got, (Pictures{key_picture(), key_picture()}));
}

TEST_F(AccessUnitsTest, SmallerPartEndsAPictureOnceThatHasHeld) {
    gain_trust();
    take_in_parts(picture(64));
    EXPECT_EQ(got, Pictures{picture(64)});
    take_in_parts(picture(62));
    EXPECT_EQ(got.back(), picture(62));
}

TEST_F(AccessUnitsTest, PictureWhoseLastPartIsFullIsHandedOnWithTheNextOne) {
    gain_trust();
    take_in_parts(picture(68));  // 80 bytes
    EXPECT_TRUE(got.empty());
    take_in_parts(picture());
    EXPECT_EQ(got, (Pictures{picture(68), picture()}));
}

TEST_F(AccessUnitsTest, SmallerPartWithinAPictureCostsThatPictureAndTheTrust) {
    gain_trust();
    const StreamBytes cut = picture(64);
    take(StreamBytes(cut.begin(), cut.begin() + 20));
    take(StreamBytes(cut.begin() + 20, cut.end()));
    got.clear();
    take_in_parts(picture());
    EXPECT_TRUE(got.empty()) << "behind a picture that was cut";
    take_in_parts(key_picture());
    take_in_parts(picture());
    EXPECT_EQ(got, Pictures{key_picture()}) << "and a smaller part ends no picture";
}

TEST_F(AccessUnitsTest, PartOfNoBytesBehindASmallerPartChangesNothing) {
    gain_trust();
    for (std::size_t size = 60; size < 66; ++size) {
        take_in_parts(picture(size / 2 * 2));
        take({});
    }
    EXPECT_EQ(got.size(), 6U);
    EXPECT_EQ(units.dropped(), 0U);
}

TEST_F(AccessUnitsTest, PauseEndsThePictureThatWaits) {
    take(key_picture());
    EXPECT_TRUE(got.empty());
    units.long_pause();
    EXPECT_EQ(got, Pictures{key_picture()});
    take(picture());
    units.pause();
    EXPECT_EQ(got.back(), picture()) << "its only part is smaller than the one before";
}

TEST_F(AccessUnitsTest, PauseWithinAPictureCutsNothing) {
    const StreamBytes key = key_picture(200);
    take(StreamBytes(key.begin(), key.begin() + 100));
    units.pause();
    take(StreamBytes(key.begin() + 100, key.begin() + 200));
    units.pause();
    take(StreamBytes(key.begin() + 200, key.end()));
    units.pause();
    EXPECT_EQ(got, Pictures{key});
}

TEST_F(AccessUnitsTest, BytesThatNeverBecomeAPictureDoNotPileUp) {
    for (int i = 0; i < 100; ++i) {
        take(StreamBytes(300000, 0x11));
    }
    take(key_picture());
    take(picture());
    EXPECT_EQ(got, Pictures{key_picture()});
}

// What follows a set is not of it: neither the zeros ahead of the next start code nor what stands
// behind the first slice, in another picture's part.
TEST(ParameterSets, AreTheSetsAheadOfTheFirstSliceAndNothingElse) {
    const StreamBytes sps = {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9};
    const StreamBytes pps = {0, 0, 0, 1, 0x68, 0xEB, 0xE3};
    const StreamBytes sei = {0, 0, 1, 0x06, 0x05, 0x01, 0xAB};
    const StreamBytes zeros = {0, 0};
    const StreamBytes short_start = {0, 0, 1, 0x68, 0xEB, 0xE3};
    EXPECT_EQ(parameter_sets(key_picture()), joined({sps, pps}));
    EXPECT_EQ(parameter_sets(joined({sps, zeros, sei, short_start, zeros, nal(0x65, 0x88, 20)})),
              joined({sps, pps}));
    EXPECT_EQ(parameter_sets(joined({sps, pps, nal(0x65, 0x88, 20), sps})), joined({sps, pps}));
    EXPECT_EQ(parameter_sets(picture()), StreamBytes());
}

TEST_F(AccessUnitsTest, StreamGoesOnBehindAnyBytes) {
    std::minstd_rand random(7);
    for (int round = 0; round < 200; ++round) {
        for (int part = 0; part < 10; ++part) {
            StreamBytes bytes(random() % 50);
            for (std::uint8_t& byte : bytes) {
                // Mostly start codes and headers.
                constexpr std::uint8_t kLikely[] = {0, 0, 0, 1, 0x67, 0x68, 0x65, 0x41};
                const auto value = random();
                byte = value % 3 == 0 ? static_cast<std::uint8_t>(value >> 8)
                                      : kLikely[(value >> 8) % 8];
            }
            take(bytes);
        }
        units.lose();
        got.clear();
        take(key_picture());
        units.long_pause();
        ASSERT_EQ(got, Pictures{key_picture()}) << round;
    }
}

}  // namespace
