// The kernel's gadgetfs rules, as the simulation keeps them: the description, the events and the
// endpoint files.
#include "simulator/gadgetfs_model.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "gadgetfs_model_fixture.h"

namespace {

using testing::ElementsAre;

// -- the description

TEST_F(Model, OpensTheControlFileOnce) {
    EXPECT_EQ(model.open_control().result, 0);
    EXPECT_EQ(model.open_control().error, EBUSY);
    model.close_control();
    EXPECT_EQ(model.open_control().result, 0);
}

TEST_F(Model, ReadsNothingBeforeTheDescription) {
    model.open_control();
    EXPECT_EQ(read_error(60), EINVAL);
}

TEST_F(Model, TakesADescriptionWithOneOrTwoSpeeds) {
    describe();
    EXPECT_EQ(model.description(), kDescription);
    model.close_control();
    EXPECT_FALSE(model.described());
    model.open_control();
    EXPECT_EQ(model.write_control(joined({kTag, kFullSpeed, kDevice})).result, 38);
}

struct BadDescription {
    const char* name;
    Bytes bytes;
};

class BadDescriptions : public testing::TestWithParam<BadDescription> {};

TEST_P(BadDescriptions, AreRefused) {
    GadgetfsModel model;
    model.open_control();
    EXPECT_EQ(model.write_control(GetParam().bytes).error, EINVAL);
    EXPECT_FALSE(model.described());
    EXPECT_EQ(model.write_control(kDescription).result, 54) << "a second try is allowed";
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Model, BadDescriptions, testing::Values(
    BadDescription{"Empty",                  {}},
    BadDescription{"ShorterThanTheLeast",    Bytes(30)},
    BadDescription{"LongerThanFourPages",    Bytes(16385)},
    BadDescription{"TagOne",                 with(kDescription, 0, 1)},
    BadDescription{"TagsHighestByte",        with(kDescription, 3, 1)},
    BadDescription{"ConfigurationLength",    with(kDescription, 4, 8)},
    BadDescription{"ConfigurationType",      with(kDescription, 5, 4)},
    BadDescription{"TotalTooShort",          with(kDescription, 6, 8)},
    BadDescription{"TotalBeyondTheEnd",      with(kDescription, 7, 1)},
    BadDescription{"TotalOneTooMany",        with(kDescription, 6, 17)},
    BadDescription{"ConfigurationValueZero", with(kDescription, 9, 0)},
    BadDescription{"AttributesWithoutBit7",  with(kDescription, 11, 0x40)},
    BadDescription{"AttributesWithWakeUp",   with(kDescription, 11, 0xE0)},
    BadDescription{"HighSpeedTotal",         with(kDescription, 22, 17)},
    BadDescription{"HighSpeedValueZero",     with(kDescription, 25, 0)},
    BadDescription{"DeviceLength",           with(kDescription, 36, 17)},
    BadDescription{"DeviceType",             with(kDescription, 37, 3)},
    BadDescription{"TwoConfigurations",      with(kDescription, 53, 2)},
    BadDescription{"DeviceCutOff",           Bytes(kDescription.begin(), kDescription.end() - 1)},
    BadDescription{"ByteBehindTheDevice",    joined({kDescription, {0}})},
    BadDescription{"NoDevice",               joined({kTag, kFullSpeed, kHighSpeed})}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

// -- events

TEST_F(Model, ShortReadIsInvalid) {
    describe();
    EXPECT_EQ(read_error(11), EINVAL);
    EXPECT_EQ(read_error(12), EAGAIN);
}

TEST_F(Model, BlockingReadWaitsForAnEvent) {
    describe();
    EXPECT_EQ(model.read_control(60, false), std::nullopt);
    model.connect(UsbSpeed::kFull);
    const auto event = model.read_control(60, false);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->bytes, (Bytes{2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(event->result, 12);
}

TEST_F(Model, ReadReturnsWholeEventsThatFit) {
    connect();
    model.suspend();
    model.setup(kGetString, {}, false);
    EXPECT_EQ(read(23), kSuspendEvent);
    EXPECT_EQ(read(23), (Bytes{0x80, 6, 0x19, 3, 9, 4, 255, 0, 3, 0, 0, 0}));
}

TEST_F(Model, ReadEndsAtTheFirstSetup) {
    connect();
    model.setup(kGetString, {}, false);
    model.suspend();
    EXPECT_EQ(read(), (Bytes{0x80, 6, 0x19, 3, 9, 4, 255, 0, 3, 0, 0, 0}));
    EXPECT_EQ(model.write_control(Bytes{2, 3}).result, 2);
    EXPECT_EQ(read(), kSuspendEvent);
}

TEST_F(Model, ConnectAndDisconnectWipeTheQueue) {
    connect();
    model.suspend();
    model.disconnect();
    EXPECT_EQ(read(), kDisconnectEvent);
    model.suspend();
    model.connect(UsbSpeed::kHigh);
    EXPECT_EQ(read(), kConnectEvent);
}

TEST_F(Model, LaterSetupReplacesAQueuedOne) {
    connect();
    model.setup(kGetString, {}, false);
    model.suspend();
    model.setup(kSelect2, {}, false);
    EXPECT_EQ(read(), joined({kSuspendEvent, {0x00, 9, 2, 0, 0, 0, 0, 0, 3, 0, 0, 0}}));
}

TEST_F(Model, LaterSuspendReplacesAQueuedOne) {
    connect();
    model.suspend();
    model.suspend();
    EXPECT_EQ(read(), kSuspendEvent);
    EXPECT_EQ(read_error(60), EAGAIN);
}

TEST_F(Model, PollSaysWhatCanBeDone) {
    model.open_control();
    EXPECT_EQ(model.poll_control(), POLLIN | POLLOUT);
    model.write_control(kDescription);
    EXPECT_EQ(model.poll_control(), 0);
    model.connect(UsbSpeed::kHigh);
    EXPECT_EQ(model.poll_control(), POLLIN);
    read();
    take(kGetString);
    EXPECT_EQ(model.poll_control(), POLLOUT);
    read_error(0);
    take(kSelect2);
    EXPECT_EQ(model.poll_control(), 0);  // it cannot be stalled
}

// -- endpoint files

// clang-format off
const Bytes kOneSpeed  = {1, 0, 0, 0,   7, 5, 0x02, 2, 64, 0, 0};
const Bytes kTwoSpeeds = {1, 0, 0, 0,   7, 5, 0x02, 2, 64, 0, 0,   7, 5, 0x02, 2, 0, 2, 0};
// clang-format on

TEST_F(Model, EndpointFilesComeWithTheDescription) {
    EXPECT_EQ(model.open_endpoint("ep2out")->error, ENOENT);
    describe();
    EXPECT_EQ(model.open_endpoint("ep2out")->result, 1);
    EXPECT_EQ(model.open_endpoint("ep8out")->error, ENOENT);
    EXPECT_THAT(GadgetfsModel::endpoint_names(),
                ElementsAre("ep1in", "ep2in", "ep3in", "ep4in", "ep5in", "ep6in", "ep7in", "ep1out",
                            "ep2out", "ep3out", "ep4out", "ep5out", "ep6out", "ep7out"));
}

TEST_F(Model, EndpointTakesARecordOfOneOrTwoSpeeds) {
    connect();
    for (const Bytes& record : {kOneSpeed, kTwoSpeeds}) {
        model.open_endpoint("ep2out");
        EXPECT_EQ(model.configure_endpoint("ep2out", record).result,
                  static_cast<long>(record.size()));
        EXPECT_EQ(model.endpoint_record("ep2out"), record);
        EXPECT_EQ(model.endpoint_state("ep2out"), EndpointState::kConfigured);
        model.close_endpoint("ep2out");
        EXPECT_EQ(model.endpoint_record("ep2out"), Bytes{});
    }
}

TEST_F(Model, BadEndpointRecordsAreRefused) {
    connect();
    model.open_endpoint("ep2out");
    const Bytes bad[] = {
        {},
        Bytes(kTwoSpeeds.begin(), kTwoSpeeds.end() - 1),
        joined({kTwoSpeeds, {0}}),
        with(kTwoSpeeds, 0, 0),   // tag
        with(kTwoSpeeds, 4, 9),   // length
        with(kTwoSpeeds, 5, 4),   // type
        with(kTwoSpeeds, 11, 9),  // the second speed's
        with(kTwoSpeeds, 12, 4),
    };
    for (const Bytes& record : bad) {
        EXPECT_EQ(model.configure_endpoint("ep2out", record).error, EINVAL);
    }
    EXPECT_EQ(model.configure_endpoint("ep2out", kTwoSpeeds).result, 18);
}

TEST_F(Model, EndpointNeedsAKnownSpeed) {
    describe();
    model.open_endpoint("ep2out");
    EXPECT_EQ(model.configure_endpoint("ep2out", kTwoSpeeds).error, EINVAL);
}

TEST_F(Model, OpenEndpointIsBusyAndALeavingOneWaits) {
    connect();
    model.open_endpoint("ep2out");
    EXPECT_EQ(model.open_endpoint("ep2out")->error, EBUSY);
    model.configure_endpoint("ep2out", kTwoSpeeds);
    EXPECT_EQ(model.open_endpoint("ep2out")->error, EBUSY);
    model.leave_endpoint("ep2out");
    EXPECT_EQ(model.open_endpoint("ep2out"), std::nullopt);
    model.close_endpoint("ep2out");
    EXPECT_EQ(model.open_endpoint("ep2out")->result, 1);
}

}  // namespace
