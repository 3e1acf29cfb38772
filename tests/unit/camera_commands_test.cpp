// The simulated camera's end of the commands: what it refuses, and what each command does.
#include "simulator/camera_commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "hex_bytes.h"
#include "simulator/camera_values.h"
#include "tests/cases/command_effects.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAreArray;

// -- effects

class Commands : public testing::Test {
  protected:
    std::optional<Refusal> take(const char* packet) { return receiver.take(bytes_of_hex(packet)); }

    CameraModel model;
    CommandReceiver receiver{model};
};

class CommandRow : public Commands, public testing::WithParamInterface<CommandEffect> {};

TEST_P(CommandRow, ActsOnTheModelAndTheNextMessageShowsIt) {
    const CommandEffect& row = GetParam();
    if (*row.value_before != '\0') {
        ASSERT_TRUE(set_camera_value(model, row.value_before, row.text_before));
    }
    EXPECT_EQ(take(row.packet), std::nullopt);
    EXPECT_THAT(receiver.counts().taken, ElementsAre(Pair(row.command, 1)));
    model.advance(milliseconds(100));
    EXPECT_EQ(camera_value(model, row.value), row.text);
    if (row.message) {
        const Bytes message = encode_message(*row.message, model, 0);
        const std::size_t count = bytes_of_hex(row.bytes).size();
        EXPECT_EQ(hex_of_bytes(std::span(message).subspan(row.at, count)), row.bytes);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, CommandRow, testing::ValuesIn(kCommandEffects),
                         [](const auto& row) {
                             return std::string(row.param.command) + "_" + row.param.shows;
                         });

TEST_F(Commands, EachOfTheTableHasItsEffectHere) {
    std::set<std::string> shown;
    for (const CommandEffect& row : kCommandEffects) {
        shown.insert(row.command);
    }
    EXPECT_THAT(command_names(), UnorderedElementsAreArray(shown));
}

TEST_F(Commands, DriveIsFormattedByTheSecondOfTwo) {
    take("55 0E 04 66 02 01 00 00 40 02 A1 00 16 D0");
    EXPECT_EQ(camera_value(model, "ssd_formats"), "0");
    take("55 0E 04 66 02 07 01 00 80 00 0E 00 A6 2E");
    EXPECT_EQ(camera_value(model, "ssd_formats"), "1");
    EXPECT_EQ(camera_value(model, "ssd"), "512000");
}

TEST_F(Commands, CentredSticksStopTheGimbal) {
    model.gimbal.turn(100, 100, 100);
    take("55 15 04 A9 09 04 02 01 20 04 01 00 04 00 04 00 04 80 00 87 23");
    const GimbalModel before = model.gimbal;
    model.advance(milliseconds(100));
    EXPECT_EQ(model.gimbal.yaw.angle, before.yaw.angle);
    EXPECT_EQ(model.gimbal.pitch.angle, before.pitch.angle);
    EXPECT_EQ(model.gimbal.roll.angle, before.roll.angle);
}

TEST_F(Commands, WifiBandHoldsFromTheRestartOn) {
    take("55 0E 04 66 02 07 00 00 40 07 10 01 59 83");
    EXPECT_EQ(camera_value(model, "wifi"), "2.4");
    take("55 0D 04 33 02 07 01 00 40 07 15 9E E8");
    EXPECT_EQ(camera_value(model, "wifi"), "5.8");
}

TEST_F(Commands, SleepingCameraTakesThemWithoutHeed) {
    model.sleep();
    EXPECT_EQ(take("55 0E 04 66 02 01 00 00 40 02 02 00 81 55"), std::nullopt);
    EXPECT_EQ(receiver.counts().unheeded, 1U);
    EXPECT_THAT(receiver.counts().taken, ElementsAre(Pair("record", 1)));
    model.wake_up();
    take("55 0E 04 66 02 01 05 00 40 02 02 01 8F 50");
    EXPECT_EQ(receiver.counts().unheeded, 1U);
    EXPECT_EQ(model.record_phase(), RecordPhase::kStarting);
}

// -- refusals

struct Refused {
    const char* name;
    Refusal reason;
    const char* packet;
};

void PrintTo(const Refused& refused, std::ostream* out) {
    *out << refused.name;
}

class CommandRefused : public Commands, public testing::WithParamInterface<Refused> {};

TEST_P(CommandRefused, IsCountedByItsReasonAndDoesNothing) {
    EXPECT_EQ(take(GetParam().packet), GetParam().reason);
    EXPECT_EQ(receiver.counts().refused_in_all(), 1U);
    EXPECT_EQ(receiver.counts().refused[static_cast<std::size_t>(GetParam().reason)], 1U);
    EXPECT_TRUE(receiver.counts().taken.empty());
    for (const std::string& name : camera_value_names()) {
        EXPECT_EQ(camera_value(model, name), camera_value(CameraModel(), name)) << name;
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Frame, CommandRefused, testing::Values(
    Refused{"nothing at all",      Refusal::kLength,    ""},
    Refused{"shorter than any",    Refusal::kLength,    "55 0C 04 66 02 01 00 00 40 02 02 01"},
    Refused{"cut off",             Refusal::kLength,    "55 0E 04 66 02 01 00 00 40 02 02 01 4D"},
    Refused{"two in one transfer", Refusal::kLength,    "55 0E 04 66 02 01 00 00 40 02 02 00 81 55 "
                                                        "55 0E 04 66 02 01 00 00 40 02 02 00 81 55"},
    Refused{"start byte",          Refusal::kStart,     "54 0E 04 CD 02 01 00 00 40 02 02 01 7E 5B"},
    Refused{"version",             Refusal::kStart,     "55 0E 05 38 02 01 00 00 40 02 02 01 0D AA"},
    Refused{"header sum",          Refusal::kHeaderSum, "55 0E 04 67 02 01 00 00 40 02 02 01 F5 09"},
    Refused{"packet sum",          Refusal::kPacketSum, "55 0E 04 66 02 01 00 00 40 02 02 00 81 54"},
    Refused{"packet sum swapped",  Refusal::kPacketSum, "55 0E 04 66 02 01 00 00 40 02 02 00 55 81"},
    Refused{"sender",              Refusal::kUnknown,   "55 0E 04 66 09 01 00 00 40 02 02 01 64 E3"},
    Refused{"receiver",            Refusal::kUnknown,   "55 0E 04 66 02 04 00 00 40 02 02 01 AB B4"},
    Refused{"type",                Refusal::kUnknown,   "55 0E 04 66 02 01 00 00 80 02 02 01 D1 7F"},
    Refused{"set",                 Refusal::kUnknown,   "55 0E 04 66 02 01 00 00 40 09 02 01 AE 6D"},
    Refused{"id",                  Refusal::kUnknown,   "55 0E 04 66 02 01 00 00 40 02 EE 01 31 04"},
    Refused{"command's length",    Refusal::kUnknown,   "55 0F 04 A2 02 01 00 00 40 02 02 01 00 48 4A"}));

INSTANTIATE_TEST_SUITE_P(Payload, CommandRefused, testing::Values(
    Refused{"speed without its last byte",   Refusal::kPayload, "55 14 04 6D 02 04 00 00 40 04 0C 00 00 00 00 00 00 91 3F 71"},
    Refused{"position without its tail",     Refusal::kPayload, "55 17 04 38 02 04 00 00 40 04 0A 00 00 00 00 00 00 64 00 E0 05 69 29"},
    Refused{"record 2",                      Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 02 02 93 76"},
    Refused{"shot 0",                        Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 01 00 E9 7F"},
    Refused{"stop to the gimbal",            Refusal::kPayload, "55 17 04 38 09 04 00 00 40 01 01 00 00 00 00 00 91 00 00 00 90 DE AF"},
    Refused{"stop to the camera",            Refusal::kPayload, "55 17 04 38 09 01 00 00 40 01 01 00 00 00 00 00 91 00 00 00 90 AC 09"},
    Refused{"mode 2",                        Refusal::kPayload, "55 0E 04 66 09 01 00 00 40 02 10 02 DE 77"},
    Refused{"center",                        Refusal::kPayload, "55 17 04 38 02 09 00 00 40 01 01 00 00 00 00 01 91 00 00 00 91 A3 FC"},
    Refused{"selfie",                        Refusal::kPayload, "55 17 04 38 02 09 00 00 40 01 01 00 00 00 00 10 91 00 00 00 91 38 BA"},
    Refused{"orientation lock",              Refusal::kPayload, "55 17 04 38 02 09 00 00 40 01 01 00 00 00 00 02 91 00 00 00 91 DE F0"},
    Refused{"orientation unlock",            Refusal::kPayload, "55 17 04 38 02 09 00 00 40 01 01 00 00 00 00 0A 91 00 00 00 00 86 54"},
    Refused{"hand off",                      Refusal::kPayload, "55 17 04 38 02 09 00 00 40 01 01 00 00 00 00 00 91 00 00 00 91 88 F8"},
    Refused{"gimbal parameters, front",      Refusal::kPayload, "55 15 04 A9 02 04 00 00 40 04 35 FF FF FF FE 01 FF FF FF C0 C4"},
    Refused{"gimbal parameters, end",        Refusal::kPayload, "55 15 04 A9 02 04 00 00 40 04 35 FF FF FF FF 01 FF FF 00 FC C0"},
    Refused{"horizon 4",                     Refusal::kPayload, "55 0E 04 66 02 04 00 00 40 04 07 04 67 4B"},
    Refused{"sticks",                        Refusal::kPayload, "55 15 04 A9 09 04 00 00 20 04 01 00 04 00 04 00 04 80 01 01 BC"},
    Refused{"focus mode 2",                  Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 24 02 70 01"},
    Refused{"infinity 2",                    Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 FA 02 5B C4"},
    Refused{"digital zoom 99",               Refusal::kPayload, "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 63 00 78 E7"},
    Refused{"digital zoom 201",              Refusal::kPayload, "55 12 04 C7 02 01 00 00 40 02 34 09 00 00 C9 00 F7 B5"},
    Refused{"digital zoom of another kind",  Refusal::kPayload, "55 12 04 C7 02 01 00 00 40 02 34 08 00 00 64 00 34 A1"},
    Refused{"optical zoom",                  Refusal::kPayload, "55 11 04 92 02 01 00 00 40 02 B8 01 49 01 00 D5 FD"},
    Refused{"image mode 5",                  Refusal::kPayload, "55 0F 04 A2 02 01 00 00 40 02 1E 05 00 1E 0D"},
    Refused{"shutter",                       Refusal::kPayload, "55 11 04 92 02 01 00 00 40 02 28 00 40 9F 00 28 C0"},
    Refused{"ISO code 1",                    Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 2A 01 FB A9"},
    Refused{"EV code 26",                    Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 2E 1A C9 60"},
    Refused{"AE lock 2",                     Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 68 02 B6 EE"},
    Refused{"exposure center 1",             Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 22 01 3B 67"},
    Refused{"histogram 2",                   Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 60 02 76 20"},
    Refused{"white balance 3",               Refusal::kPayload, "55 0F 04 A2 02 01 00 00 40 02 2C 03 38 13 D7"},
    Refused{"colour 2",                      Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 42 02 F5 30"},
    Refused{"video format",                  Refusal::kPayload, "55 12 04 C7 02 01 00 00 40 02 18 16 01 00 00 01 5F CF"},
    Refused{"aspect ratio",                  Refusal::kPayload, "55 0F 04 A2 02 01 00 00 40 02 12 01 00 DD CF"},
    Refused{"photo format 3",                Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 16 03 EB 95"},
    Refused{"anti-flicker 3",                Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 46 03 1C 46"},
    Refused{"video standard 2",              Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 66 02 A6 74"},
    Refused{"reset 1",                       Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 78 01 BC 49"},
    Refused{"power 5",                       Refusal::kPayload, "55 0E 04 66 02 09 00 00 40 09 51 05 F9 0C"},
    Refused{"drive preparation 1",           Refusal::kPayload, "55 0E 04 66 02 01 00 00 40 02 A1 01 9F C1"},
    Refused{"drive format 1",                Refusal::kPayload, "55 0E 04 66 02 07 00 00 80 00 0E 01 04 3B"},
    Refused{"band 2",                        Refusal::kPayload, "55 0E 04 66 02 07 00 00 40 07 10 02 C2 B1"}));
// clang-format on

// -- sequence numbers

TEST_F(Commands, AnyNumberBegins) {
    EXPECT_EQ(take("55 0E 04 66 02 01 64 00 40 02 02 00 9C C2"), std::nullopt);  // 100
    EXPECT_EQ(receiver.counts().numbers_skipped, 0U);
    EXPECT_EQ(receiver.counts().numbers_repeated, 0U);
}

class CommandSequence : public Commands {
  protected:
    void SetUp() override { take("55 0E 04 66 02 01 64 00 40 02 02 00 9C C2"); }  // 100
};

TEST_F(CommandSequence, NextNumberIsPlain) {
    EXPECT_EQ(take("55 0E 04 66 02 01 65 00 40 02 02 00 B7 C6"), std::nullopt);  // 101
    EXPECT_EQ(receiver.counts().numbers_skipped, 0U);
    EXPECT_EQ(receiver.counts().numbers_repeated, 0U);
}

TEST_F(CommandSequence, NumberAheadIsAGap) {
    EXPECT_EQ(take("55 0E 04 66 02 01 6E 00 40 02 02 00 92 EB"), std::nullopt);  // 110
    EXPECT_EQ(receiver.counts().numbers_skipped, 1U);
}

TEST_F(CommandSequence, SameNumberAgainIsTaken) {
    EXPECT_EQ(take("55 0E 04 66 02 01 64 00 40 02 02 00 9C C2"), std::nullopt);  // 100
    EXPECT_EQ(receiver.counts().numbers_repeated, 1U);
}

TEST_F(CommandSequence, EightBackIsLateAndNineIsRefused) {
    EXPECT_EQ(take("55 0E 04 66 02 01 5C 00 40 02 02 00 14 24"), std::nullopt);  // 92
    EXPECT_EQ(receiver.counts().numbers_repeated, 1U);
    EXPECT_EQ(take("55 0E 04 66 02 01 5B 00 40 02 02 00 C5 38"), Refusal::kSequence);  // 91
    EXPECT_THAT(receiver.counts().taken, ElementsAre(Pair("record", 2)));
}

TEST_F(CommandSequence, LateNumberDoesNotMoveTheNewest) {
    take("55 0E 04 66 02 01 5D 00 40 02 02 00 3F 20");                           // 93
    EXPECT_EQ(take("55 0E 04 66 02 01 65 00 40 02 02 00 B7 C6"), std::nullopt);  // 101
    EXPECT_EQ(receiver.counts().numbers_skipped, 0U);
}

TEST_F(CommandSequence, NewLinkBeginsAnywhere) {
    receiver.link_begins();
    EXPECT_EQ(take("55 0E 04 66 02 01 00 00 40 02 02 00 81 55"), std::nullopt);  // 0
    EXPECT_EQ(receiver.counts().numbers_repeated, 0U);
}

TEST_F(Commands, NumberAfterTheLargestIsZero) {
    take("55 0E 04 66 02 01 FF FF 40 02 02 00 F1 5D");
    EXPECT_EQ(take("55 0E 04 66 02 01 00 00 40 02 02 00 81 55"), std::nullopt);
    EXPECT_EQ(receiver.counts().numbers_skipped, 0U);
    EXPECT_EQ(receiver.counts().numbers_repeated, 0U);
}

TEST(RefusalName, IsThereForEachReason) {
    EXPECT_STREQ(refusal_name(Refusal::kStart), "start");
    EXPECT_STREQ(refusal_name(Refusal::kSequence), "sequence");
    EXPECT_STREQ(refusal_name(Refusal::kPayload), "payload");
}

}  // namespace
