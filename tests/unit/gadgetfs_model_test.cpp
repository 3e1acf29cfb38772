// The kernel's gadgetfs rules, as the simulation keeps them.
#include "simulator/gadgetfs_model.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

namespace {

using testing::ElementsAre;

// clang-format off
const Bytes kTag           = {0, 0, 0, 0};
const Bytes kFullSpeed     = {9, 2, 16, 0, 1, 2, 0, 0xC0, 1,   7, 5, 0x86, 2, 64, 0, 0};
const Bytes kHighSpeed     = {9, 2, 16, 0, 1, 2, 0, 0xC0, 1,   7, 5, 0x86, 2, 0, 2, 0};
const Bytes kDevice        = {18, 1, 0x00, 0x02, 0xFF, 0, 0, 0, 0xD1, 0x18, 0x01, 0x2D, 0, 0, 25, 45, 101, 1};
const Bytes kConnectEvent    = {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
const Bytes kDisconnectEvent = {0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0};
const Bytes kSuspendEvent    = {0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0};

constexpr SetupPacket kGetString       = {0x80, 6, 0x0319, 0x0409, 255};
constexpr SetupPacket kSelect2         = {0x00, 9, 2, 0, 0};
constexpr SetupPacket kSetInterface    = {0x01, 11, 0, 0, 0};
constexpr SetupPacket kVendorData      = {0x40, 52, 0, 0, 3};
// clang-format on

Bytes joined(const std::vector<Bytes>& pieces) {
    Bytes all;
    for (const Bytes& piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

const Bytes kDescription = joined({kTag, kFullSpeed, kHighSpeed, kDevice});

Bytes with(Bytes bytes, std::size_t at, std::uint8_t value) {
    bytes.at(at) = value;
    return bytes;
}

class Model : public testing::Test {
  protected:
    void describe() {
        model.open_control();
        ASSERT_EQ(model.write_control(kDescription).result, 54);
    }
    void connect() {
        describe();
        model.connect(UsbSpeed::kHigh);
        ASSERT_EQ(read(), kConnectEvent);
    }
    // A request that the process has read.
    void take(const SetupPacket& setup, const Bytes& data = {}) {
        model.setup(setup, data, false);
        ASSERT_EQ(read().at(8), 3);
    }

    Bytes read(std::size_t size = 60) {
        return model.read_control(size, true).value_or(CallResult{}).bytes;
    }
    int read_error(std::size_t size) {
        const auto result = model.read_control(size, true);
        return result && result->result < 0 ? result->error : 0;
    }
    int write_error(const Bytes& bytes) {
        const CallResult result = model.write_control(bytes);
        return result.result < 0 ? result.error : 0;
    }
    ControlStatus answer() { return model.control_answer().value_or(ControlResult{}).status; }

    GadgetfsModel model;
};

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

// -- the answer to a setup

TEST_F(Model, WriteIsTheDataStageCutToTheAskedLength) {
    connect();
    take({0x80, 6, 0x0319, 0x0409, 2});
    EXPECT_EQ(model.write_control(Bytes{6, 3, 'A', 0}).result, 4);
    const auto answer = model.control_answer();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, ControlStatus::kAcknowledged);
    EXPECT_EQ(answer->data, (Bytes{6, 3}));
    EXPECT_EQ(model.last_control_write(), (Bytes{6, 3, 'A', 0}));
}

TEST_F(Model, EmptyWriteIsAnEmptyDataStage) {
    connect();
    take(kGetString);
    EXPECT_EQ(write_error({}), 0);
    EXPECT_EQ(answer(), ControlStatus::kAcknowledged);
}

TEST_F(Model, AnyReadStallsADeviceToHostRequest) {
    connect();
    for (const std::size_t size : {std::size_t{0}, std::size_t{60}}) {
        take(kGetString);
        EXPECT_EQ(read_error(size), EL2HLT);
        EXPECT_EQ(answer(), ControlStatus::kStalled);
    }
}

TEST_F(Model, EmptyReadAcknowledgesAHostToDeviceRequest) {
    connect();
    take(kSetInterface);
    EXPECT_EQ(read_error(0), 0);
    EXPECT_EQ(answer(), ControlStatus::kAcknowledged);
}

TEST_F(Model, EmptyWriteStallsAHostToDeviceRequest) {
    connect();
    take(kSetInterface);
    EXPECT_EQ(write_error({}), EL2HLT);
    EXPECT_EQ(answer(), ControlStatus::kStalled);
}

TEST_F(Model, SetConfigurationCannotBeStalled) {
    connect();
    take(kSelect2);
    EXPECT_EQ(write_error({}), ESRCH);
    EXPECT_TRUE(model.host_waits());
    EXPECT_EQ(read_error(0), 0);
    EXPECT_EQ(answer(), ControlStatus::kAcknowledged);
}

TEST_F(Model, WriteWithoutASetupHasNoOneToGoTo) {
    describe();
    EXPECT_EQ(write_error({1}), ESRCH);
    model.connect(UsbSpeed::kHigh);
    EXPECT_EQ(write_error({1}), ESRCH);
    model.setup(kGetString, {}, false);
    EXPECT_EQ(write_error({1}), ESRCH) << "the event is not read yet";
}

TEST_F(Model, DataFromTheHostIsCompleteBeforeTheProcessSeesIt) {
    connect();
    model.setup(kVendorData, {7, 8, 9}, false);
    EXPECT_EQ(answer(), ControlStatus::kAcknowledged);
    EXPECT_EQ(read().at(8), 3);
    EXPECT_EQ(read(2), (Bytes{7, 8}));
    EXPECT_EQ(read_error(60), EAGAIN) << "answered: events again";
}

TEST_F(Model, SecondDataStageWaitsAfterTheFirstWasNotFetched) {
    connect();
    take(kVendorData, {7, 8, 9});
    model.setup(kVendorData, {1, 2, 3}, false);
    EXPECT_EQ(read_error(60), EIDRM);
    EXPECT_EQ(model.read_control(60, false), std::nullopt);
}

TEST_F(Model, NewSetupVoidsTheUnansweredOne) {
    connect();
    take(kGetString);
    model.setup(kSetInterface, {}, false);
    EXPECT_EQ(write_error({2, 3}), EIDRM);
    EXPECT_EQ(read_error(0), 0) << "said once";
    EXPECT_EQ(answer(), ControlStatus::kAcknowledged) << "of the new one";
}

TEST_F(Model, DisconnectVoidsTheUnansweredSetup) {
    connect();
    take(kGetString);
    model.disconnect();
    EXPECT_FALSE(model.host_waits());
    EXPECT_EQ(read_error(60), EIDRM);
    EXPECT_EQ(read(), kDisconnectEvent);
}

TEST_F(Model, PollHangsUpOnceWhereASetupWasVoided) {
    connect();
    take(kGetString);
    model.disconnect();
    EXPECT_EQ(model.poll_control(), POLLHUP);
    EXPECT_EQ(model.poll_control(), POLLIN);
    EXPECT_EQ(read(), kDisconnectEvent);
}

TEST_F(Model, AnswerAfterTheHostGaveUpGoesNowhere) {
    connect();
    take(kGetString);
    model.host_gives_up();
    EXPECT_EQ(write_error({2, 3}), 0);
    EXPECT_EQ(model.control_answer(), std::nullopt);
}

// -- what the kernel answers by itself

struct KernelAnswer {
    const char* name;
    SetupPacket setup;
    ControlStatus status;
    Bytes data;
};

class KernelAnswers : public testing::TestWithParam<KernelAnswer> {};

TEST_P(KernelAnswers, NeverReachTheProcess) {
    GadgetfsModel model;
    model.open_control();
    model.write_control(kDescription);
    model.connect(UsbSpeed::kHigh);
    ASSERT_EQ(model.read_control(60, true)->bytes, kConnectEvent);
    model.setup(GetParam().setup, {}, false);
    const auto answer = model.control_answer();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, GetParam().status);
    EXPECT_EQ(answer->data, GetParam().data);
    EXPECT_EQ(model.read_control(60, true)->error, EAGAIN);
}

// clang-format off
constexpr auto kYes = ControlStatus::kAcknowledged;
constexpr auto kNo = ControlStatus::kStalled;
INSTANTIATE_TEST_SUITE_P(Model, KernelAnswers, testing::Values(
    KernelAnswer{"Device",        {0x80, 6, 0x0100, 0, 64}, kYes, with(kDevice, 7, 64)},
    KernelAnswer{"DeviceCut",     {0x80, 6, 0x0100, 0, 8},  kYes, {18, 1, 0, 2, 0xFF, 0, 0, 64}},
    KernelAnswer{"Configuration", {0x80, 6, 0x0200, 0, 255}, kYes, kHighSpeed},
    KernelAnswer{"ConfigurationCut", {0x80, 6, 0x0200, 0, 9}, kYes, {9, 2, 16, 0, 1, 2, 0, 0xC0, 1}},
    KernelAnswer{"SecondConfiguration", {0x80, 6, 0x0201, 0, 9}, kNo, {}},
    KernelAnswer{"Qualifier",     {0x80, 6, 0x0600, 0, 10}, kYes, {10, 6, 0, 2, 0xFF, 0, 0, 64, 1, 0}},
    KernelAnswer{"OtherSpeed",    {0x80, 6, 0x0700, 0, 255}, kYes, with(kFullSpeed, 1, 7)},
    KernelAnswer{"GetConfiguration", {0x80, 8, 0, 0, 1},    kYes, {0}},
    KernelAnswer{"GetStatus",     {0x80, 0, 0, 0, 2},       kYes, {1, 0}},
    KernelAnswer{"EndpointStatus", {0x82, 0, 0, 2, 2},      kYes, {1, 0}},
    KernelAnswer{"UnknownConfiguration", {0x00, 9, 3, 0, 0}, kNo, {}}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST_F(Model, ConfigurationIsThatOfTheSpeed) {
    describe();
    model.connect(UsbSpeed::kFull);
    model.setup({0x80, 6, 0x0200, 0, 255}, {}, false);
    EXPECT_EQ(model.control_answer()->data, kFullSpeed);
    model.setup({0x80, 6, 0x0700, 0, 255}, {}, false);
    EXPECT_EQ(model.control_answer()->data, with(kHighSpeed, 1, 7));
}

TEST_F(Model, OneSpeedHasNoQualifier) {
    model.open_control();
    model.write_control(joined({kTag, kFullSpeed, kDevice}));
    model.connect(UsbSpeed::kFull);
    for (const std::uint16_t type : {std::uint16_t{0x0600}, std::uint16_t{0x0700}}) {
        model.setup({0x80, 6, type, 0, 10}, {}, false);
        EXPECT_EQ(answer(), ControlStatus::kStalled);
    }
}

TEST_F(Model, SelectedConfigurationIsRemembered) {
    connect();
    take(kSelect2);
    read_error(0);
    model.setup({0x80, 8, 0, 0, 1}, {}, false);
    EXPECT_EQ(model.control_answer()->data, Bytes{2});
    take({0x00, 9, 0, 0, 0});
    read_error(0);
    model.setup({0x80, 8, 0, 0, 1}, {}, false);
    EXPECT_EQ(model.control_answer()->data, Bytes{0});
}

TEST_F(Model, ProcessIsAskedAnythingOnDemand) {
    connect();
    model.setup({0x80, 6, 0x0100, 0, 18}, {}, true);
    EXPECT_EQ(model.control_answer(), std::nullopt);
    EXPECT_EQ(read(), (Bytes{0x80, 6, 0, 1, 0, 0, 18, 0, 3, 0, 0, 0}));
}

TEST_F(Model, KernelDecidesAloneUntilTheProcessReadsEvents) {
    describe();
    model.connect(UsbSpeed::kHigh);
    model.setup(kSelect2, {}, false);
    EXPECT_EQ(answer(), ControlStatus::kAcknowledged);
    model.setup(kGetString, {}, false);
    EXPECT_EQ(answer(), ControlStatus::kStalled);
    EXPECT_EQ(read(), kConnectEvent);
    EXPECT_EQ(read_error(60), EAGAIN);
}

TEST_F(Model, ReadWithoutRoomForAnEventDoesNotCount) {
    describe();
    EXPECT_EQ(read_error(11), EINVAL);
    EXPECT_EQ(read_error(0), EINVAL);
    model.connect(UsbSpeed::kHigh);
    model.setup(kSelect2, {}, false);
    EXPECT_EQ(answer(), ControlStatus::kAcknowledged);
    EXPECT_EQ(read(), kConnectEvent);
    EXPECT_EQ(read_error(60), EAGAIN);
}

TEST_F(Model, ReadThatFindsNothingCounts) {
    describe();
    EXPECT_EQ(read_error(12), EAGAIN);
    model.connect(UsbSpeed::kHigh);
    model.setup(kSelect2, {}, false);
    EXPECT_TRUE(model.host_waits());
    EXPECT_EQ(read(), joined({kConnectEvent, {0x00, 9, 2, 0, 0, 0, 0, 0, 3, 0, 0, 0}}));
}

TEST_F(Model, ReadThatWaitsCounts) {
    describe();
    EXPECT_EQ(model.read_control(12, false), std::nullopt);
    model.connect(UsbSpeed::kHigh);
    model.setup(kSelect2, {}, false);
    EXPECT_TRUE(model.host_waits());
}

TEST_F(Model, InjectedReadCountsWhereItHasRoomForAnEvent) {
    describe();
    model.connect(UsbSpeed::kHigh);
    model.inject_read(CallResult::failed(EIO));
    EXPECT_EQ(read_error(11), EIO);
    model.setup(kGetString, {}, false);
    EXPECT_EQ(answer(), ControlStatus::kStalled);
    model.inject_read(CallResult::failed(EIO));
    EXPECT_EQ(read_error(12), EIO);
    model.setup(kGetString, {}, false);
    EXPECT_TRUE(model.host_waits());
}

TEST_F(Model, NextProcessHasToReadAnew) {
    connect();
    model.close_control();
    describe();
    model.connect(UsbSpeed::kHigh);
    model.setup(kSelect2, {}, false);
    EXPECT_EQ(answer(), ControlStatus::kAcknowledged);
}

TEST_F(Model, NobodyAnswersWithoutAConnection) {
    describe();
    model.setup({0x80, 6, 0x0100, 0, 18}, {}, false);
    EXPECT_FALSE(model.host_waits());
    EXPECT_EQ(model.control_answer(), std::nullopt);
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
