// The kernel's gadgetfs rules for requests: which of them the process hears of, and what its answer
// comes to.
#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "gadgetfs_model_fixture.h"

namespace {

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

}  // namespace
