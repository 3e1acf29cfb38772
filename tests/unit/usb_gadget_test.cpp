// Life of the device: opening, what is written for it, transfers and closing.
#include <errno.h>
#include <gtest/gtest.h>

#include <new>
#include <thread>

#include "tests/unit/fake_gadgetfs.h"
#include "usb/usb-gadget/usb-gadget-internal.h"
#include "usb/usb_description.h"

namespace {

// Records that may still be allocated; negative: any number.
int allocations_left = -1;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    if (allocations_left == 0) {
        return nullptr;
    }
    --allocations_left;
    return ::operator new(size);
}

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

constexpr std::uint8_t kDevice[] = {18, 1, 0, 2, 0xFF, 0, 0, 0, 1, 2, 3, 4, 0, 0, 0, 0, 0, 1};
constexpr std::uint8_t kConfiguration[] = {9, 2, 0, 0, 1, 1, 0, 0xC0, 1};
constexpr std::uint8_t kFullIn1[] = {7, 5, 0x81, 0x02, 0x40, 0x00, 0};
constexpr const UsbDescriptor* kFullSpeedOnly[] = {kConfiguration, kFullIn1, nullptr};
constexpr UsbGadgetDeviceConfig kFullSpeedDevice{kDevice, kFullSpeedOnly, nullptr, nullptr};

class UsbGadget : public testing::Test {
  protected:
    UsbGadget() {
        fake_reset();
        allocations_left = -1;
    }
    ~UsbGadget() override { free_device(device_); }

    // Opened, and with its endpoints: the calls so far are dropped.
    void configure(const UsbGadgetDeviceConfig* config, int speed) {
        device_ = usb_gadget_open(config);
        ASSERT_NE(device_, nullptr);
        device_->speed = speed;
        ASSERT_TRUE(set_config(device_));
        take_calls();
    }
    void configure(int speed) { configure(usb_description(0x18D1, 0x2D01), speed); }

    UsbGadgetHandle* device_ = nullptr;
};

using UsbGadgetDeathTest = UsbGadget;

// -- opening -------------------------------------------------------------------------------------

TEST_F(UsbGadget, OpenWritesTheDescriptionInOneWrite) {
    device_ = usb_gadget_open(usb_description(0x18D1, 0x2D01));
    ASSERT_NE(device_, nullptr);
    EXPECT_EQ(take_calls(),
              Calls{"fe980000.usb write"
                    " 00 00 00 00"                 // tag
                    " 09 02 20 00 01 02 FA C0 01"  // full speed: 32 bytes, configuration 2
                    " 09 04 00 00 02 FF 00 00 FA"  // interface
                    " 07 05 86 02 40 00 00"        // IN 6, bulk, 64 bytes
                    " 07 05 02 02 40 00 00"        // OUT 2, bulk, 64 bytes
                    " 09 02 20 00 01 02 FA C0 01"  // high speed: likewise
                    " 09 04 00 00 02 FF 00 00 FA"
                    " 07 05 86 02 00 02 00"  // IN 6, bulk, 512 bytes
                    " 07 05 02 02 00 02 00"  // OUT 2, bulk, 512 bytes
                    " 12 01 00 02 FF 00 00 00 D1 18 01 2D 00 00 19 2D 65 01"});
    EXPECT_EQ(device_->endpoints.next, &device_->endpoints);
    EXPECT_EQ(device_->ep0->fd, usb_gadget_control_fd(device_));
    EXPECT_GE(usb_gadget_control_fd(device_), 0);
}

TEST_F(UsbGadget, IdentifiersAreThoseAskedFor) {
    device_ = usb_gadget_open(usb_description(0x1234, 0x5678));
    ASSERT_NE(device_, nullptr);
    EXPECT_TRUE(
        take_calls().at(0).ends_with(" 12 01 00 02 FF 00 00 00 34 12 78 56 00 00 19 2D 65 01"));
}

TEST_F(UsbGadget, DescriptionWithoutHighSpeed) {
    device_ = usb_gadget_open(&kFullSpeedDevice);
    ASSERT_NE(device_, nullptr);
    EXPECT_EQ(take_calls(), Calls{"fe980000.usb write"
                                  " 00 00 00 00"
                                  " 09 02 10 00 01 01 00 C0 01"
                                  " 07 05 81 02 40 00 00"
                                  " 12 01 00 02 FF 00 00 00 01 02 03 04 00 00 00 00 00 01"});
}

TEST_F(UsbGadget, EveryKnownControllerIsTaken) {
    for (const char* name : {"fe980000.usb", "20980000.usb", "3f980000.usb", "musb-hdrc"}) {
        fake.directory = {name};
        UsbGadgetHandle* device = usb_gadget_open(&kFullSpeedDevice);
        ASSERT_NE(device, nullptr) << name;
        EXPECT_STREQ(device->ep0->name, name);
        free_device(device);
    }
}

TEST_F(UsbGadget, FirstControllerOfTheDirectoryWins) {
    fake.directory = {"ep1", "musb-hdrc", "fe980000.usb"};
    device_ = usb_gadget_open(&kFullSpeedDevice);
    ASSERT_NE(device_, nullptr);
    EXPECT_STREQ(device_->ep0->name, "musb-hdrc");
}

TEST_F(UsbGadget, UnknownControllersYieldNull) {
    fake.directory = {".", "..", "dummy_udc", "fe980000.usb2", "fe980000", "ep1in"};
    EXPECT_EQ(usb_gadget_open(&kFullSpeedDevice), nullptr);
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(UsbGadget, MissingDirectoryYieldsNull) {
    fake.has_directory = false;
    EXPECT_EQ(usb_gadget_open(&kFullSpeedDevice), nullptr);
}

TEST_F(UsbGadget, ControlFileThatCannotBeOpenedYieldsNull) {
    fake.refuses_open = {"fe980000.usb"};
    EXPECT_EQ(usb_gadget_open(&kFullSpeedDevice), nullptr);
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(UsbGadget, RefusedDescriptionYieldsNullAndClosesTheFile) {
    fake.refuses_write = {"fe980000.usb"};
    EXPECT_EQ(usb_gadget_open(&kFullSpeedDevice), nullptr);
    const Calls calls = take_calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), "fe980000.usb close");
}

TEST_F(UsbGadget, IncompleteConfigurationsAreRefused) {
    const UsbGadgetDeviceConfig no_device{nullptr, kFullSpeedOnly, nullptr, nullptr};
    const UsbGadgetDeviceConfig no_list{kDevice, nullptr, kFullSpeedOnly, nullptr};
    for (const UsbGadgetDeviceConfig* config :
         {static_cast<const UsbGadgetDeviceConfig*>(nullptr), &no_device, &no_list}) {
        errno = 0;
        EXPECT_EQ(usb_gadget_open(config), nullptr);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(UsbGadget, ListsThatDoNotBeginWithAConfigurationAreRefused) {
    constexpr const UsbDescriptor* kEndpointFirst[] = {kFullIn1, kConfiguration, nullptr};
    static constexpr std::uint8_t kEightBytes[] = {8, 2, 0, 0, 1, 1, 0, 0xC0};
    constexpr const UsbDescriptor* kShort[] = {kEightBytes, kFullIn1, nullptr};
    constexpr const UsbDescriptor* kEmpty[] = {nullptr};
    const UsbGadgetDeviceConfig configs[] = {
        {kDevice, kEndpointFirst, nullptr, nullptr},
        {kDevice, kShort, nullptr, nullptr},
        {kDevice, kEmpty, nullptr, nullptr},
        {kDevice, kFullSpeedOnly, kEndpointFirst, nullptr},
        {kDevice, kFullSpeedOnly, kShort, nullptr},
        {kDevice, kFullSpeedOnly, kEmpty, nullptr},
    };
    for (const UsbGadgetDeviceConfig& config : configs) {
        errno = 0;
        EXPECT_EQ(usb_gadget_open(&config), nullptr);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(take_calls(), Calls{"fe980000.usb close"});
    }
}

TEST_F(UsbGadget, ListThatDoesNotFitIsRefused) {
    static std::uint8_t filler[255] = {255, 0x24};
    std::vector<const UsbDescriptor*> list(30, filler);  // 30 x 255 bytes are above 7168
    list.front() = kConfiguration;
    list.push_back(nullptr);
    const UsbGadgetDeviceConfig config{kDevice, list.data(), nullptr, nullptr};
    errno = 0;
    EXPECT_EQ(usb_gadget_open(&config), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(take_calls(), Calls{"fe980000.usb close"});
}

TEST_F(UsbGadget, DeviceDescriptorThatDoesNotFitIsRefused) {
    // 4 + 9 + 28 x 255 + 7 = 7160 bytes: the lists fit, the device descriptor does not.
    static std::uint8_t filler[255] = {255, 0x24};
    std::vector<const UsbDescriptor*> list = {kConfiguration, kFullIn1};
    list.insert(list.end(), 28, filler);
    list.push_back(nullptr);
    const UsbGadgetDeviceConfig config{kDevice, list.data(), nullptr, nullptr};
    errno = 0;
    EXPECT_EQ(usb_gadget_open(&config), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(take_calls(), Calls{"fe980000.usb close"});
}

TEST_F(UsbGadget, MissingMemoryYieldsNull) {
    for (const int records : {0, 1}) {  // the device's, then the control endpoint's
        allocations_left = records;
        EXPECT_EQ(usb_gadget_open(&kFullSpeedDevice), nullptr) << records;
        EXPECT_EQ(take_calls(), Calls{});
    }
}

// -- configuration -------------------------------------------------------------------------------

std::vector<UsbGadgetEvent> events;

void record_event(UsbGadgetHandle* /*handle*/, const UsbGadgetEvent* event, void* /*argument*/) {
    events.push_back(*event);
}

TEST_F(UsbGadget, SetConfigWritesARecordToEachEndpointFile) {
    device_ = usb_gadget_open(usb_description(0x18D1, 0x2D01));
    ASSERT_NE(device_, nullptr);
    take_calls();
    events.clear();
    usb_gadget_set_event_cb(device_, record_event, nullptr);
    EXPECT_TRUE(set_config(device_));
    EXPECT_EQ(take_calls(), (Calls{
                                "ep6in-bulk write 01 00 00 00"
                                " 07 05 86 02 40 00 00 07 05 86 02 00 02 00",
                                "ep2out-bulk write 01 00 00 00"
                                " 07 05 02 02 40 00 00 07 05 02 02 00 02 00",
                            }));
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].type, 0U);
    EXPECT_EQ(events[0].number, 6U);
    EXPECT_EQ(events[1].type, 0U);
    EXPECT_EQ(events[1].number, 2U);
    // Newest first.
    EXPECT_STREQ(device_->endpoints.next->name, "ep2out-bulk");
    EXPECT_STREQ(device_->endpoints.next->next->name, "ep6in-bulk");
}

TEST_F(UsbGadget, RecordWithoutHighSpeedIsElevenBytes) {
    fake.directory = {"fe980000.usb", "ep1in-bulk"};
    device_ = usb_gadget_open(&kFullSpeedDevice);
    ASSERT_NE(device_, nullptr);
    take_calls();
    EXPECT_TRUE(set_config(device_));
    EXPECT_EQ(take_calls(), Calls{"ep1in-bulk write 01 00 00 00 07 05 81 02 40 00 00"});
}

TEST_F(UsbGadget, MissingMemoryForAnEndpointFailsTheConfiguration) {
    device_ = usb_gadget_open(usb_description(0x18D1, 0x2D01));
    ASSERT_NE(device_, nullptr);
    take_calls();
    usb_gadget_set_debug_level(device_, 2);
    allocations_left = 0;
    CaptureStderr();
    EXPECT_FALSE(set_config(device_));
    EXPECT_EQ(GetCapturedStderr(), "usb-gadget: set_config: find_ep failed\n");
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(UsbGadget, EndpointIsFoundByItsNumber) {
    configure(kUsbSpeedHigh);
    EXPECT_EQ(usb_gadget_endpoint(device_, 0), device_->ep0);
    EXPECT_STREQ(usb_gadget_endpoint(device_, 6)->name, "ep6in-bulk");
    EXPECT_STREQ(usb_gadget_endpoint(device_, 2)->name, "ep2out-bulk");
    EXPECT_EQ(usb_gadget_endpoint(device_, 1), nullptr);
}

TEST_F(UsbGadgetDeathTest, EndpointNumberZeroIsAnAssertionFailure) {
    static constexpr std::uint8_t kIn0[] = {7, 5, 0x80, 0x02, 0x40, 0x00, 0};
    constexpr const UsbDescriptor* kList[] = {kConfiguration, kIn0, nullptr};
    const UsbGadgetDeviceConfig config{kDevice, kList, nullptr, nullptr};
    device_ = usb_gadget_open(&config);
    ASSERT_NE(device_, nullptr);
    EXPECT_DEATH(set_config(device_),
                 "usb-gadget-config.cpp:509: set_config: Assertion `number' failed.");
}

// -- transfers -----------------------------------------------------------------------------------

struct LimitCase {
    const char* name;
    int speed;
    std::size_t length;
    bool passes;
};

// clang-format off
constexpr LimitCase kLimits[] = {
    {"FullSpeed64",     kUsbSpeedFull,     64, true},
    {"FullSpeed65",     kUsbSpeedFull,     65, false},
    {"FullSpeed512",    kUsbSpeedFull,    512, false},
    {"LowSpeed65",      kUsbSpeedLow,      65, false},
    {"UnknownSpeed64",  kUsbSpeedUnknown,  64, true},
    {"UnknownSpeed65",  kUsbSpeedUnknown,  65, false},
    {"HighSpeed512",    kUsbSpeedHigh,    512, true},
    {"HighSpeed513",    kUsbSpeedHigh,    513, false},
    {"HighSpeedEmpty",  kUsbSpeedHigh,      0, true},
};
// clang-format on

class UsbGadgetLimit : public UsbGadget, public testing::WithParamInterface<LimitCase> {};

TEST_P(UsbGadgetLimit, Write) {
    configure(GetParam().speed);
    usb_gadget_set_debug_level(device_, 2);
    const Bytes packet(GetParam().length, 0x55);
    errno = 0;
    CaptureStderr();
    const ssize_t result = usb_gadget_endpoint_write(usb_gadget_endpoint(device_, 6), packet.data(),
                                                     packet.size(), 20);
    const std::string log = GetCapturedStderr();
    if (GetParam().passes) {
        EXPECT_EQ(result, static_cast<ssize_t>(packet.size()));
        EXPECT_EQ(log, "");
        EXPECT_EQ(take_calls(), Calls{"ep6in-bulk write" + hex(packet.data(), packet.size())});
    } else {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(log, "usb-gadget: usb_gadget_endpoint_write: too long message\n");
        EXPECT_EQ(take_calls(), Calls{});
    }
}

TEST_P(UsbGadgetLimit, Read) {
    configure(GetParam().speed);
    usb_gadget_set_debug_level(device_, 2);
    fake_send("ep2out-bulk", {0x11, 0x22, 0x33});
    Bytes packet(GetParam().length);
    errno = 0;
    CaptureStderr();
    const ssize_t result = usb_gadget_endpoint_read(usb_gadget_endpoint(device_, 2), packet.data(),
                                                    packet.size(), 1000);
    const std::string log = GetCapturedStderr();
    if (!GetParam().passes) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(log, "usb-gadget: usb_gadget_endpoint_read: too long message\n");
    } else if (!packet.empty()) {
        EXPECT_EQ(result, 3);
        EXPECT_EQ(hex(packet.data(), 3), " 11 22 33");
        EXPECT_EQ(log, "");
    } else {
        EXPECT_EQ(result, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Speeds, UsbGadgetLimit, testing::ValuesIn(kLimits),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(UsbGadget, FullSpeedLimitStandsWhereThereIsNoHighSpeedDescriptor) {
    fake.directory = {"fe980000.usb", "ep1in-bulk"};
    configure(&kFullSpeedDevice, kUsbSpeedHigh);
    const Bytes packet(65, 0x55);
    UsbGadgetEndpoint* endpoint = usb_gadget_endpoint(device_, 1);
    EXPECT_EQ(usb_gadget_endpoint_write(endpoint, packet.data(), 65, 20), -1);
    EXPECT_EQ(usb_gadget_endpoint_write(endpoint, packet.data(), 64, 20), 64);
}

TEST_F(UsbGadget, ErrorOfTheKernelIsReturnedAsItIs) {
    configure(kUsbSpeedHigh);
    fake.refuses_write = {"ep6in-bulk"};
    const std::uint8_t packet[] = {0x55};
    errno = 0;
    EXPECT_EQ(usb_gadget_endpoint_write(usb_gadget_endpoint(device_, 6), packet, 1, 20), -1);
    EXPECT_EQ(errno, EPROTO);
}

TEST_F(UsbGadget, ClosedEndpointRefusesTransfers) {
    configure(kUsbSpeedHigh);
    usb_gadget_set_debug_level(device_, 2);
    UsbGadgetEndpoint* in = usb_gadget_endpoint(device_, 6);
    UsbGadgetEndpoint* out = usb_gadget_endpoint(device_, 2);
    const int out_fd = out->fd.exchange(-1);  // between the two steps of a close: still has a name
    usb_gadget_endpoint_close(in);
    std::uint8_t byte = 0x55;
    CaptureStderr();
    errno = 0;
    EXPECT_EQ(usb_gadget_endpoint_write(in, &byte, 1, 20), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(usb_gadget_endpoint_read(out, &byte, 1, 20), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(GetCapturedStderr(),
              "usb-gadget: usb_gadget_endpoint_write: (null) is closed\n"
              "usb-gadget: usb_gadget_endpoint_read: ep2out-bulk is closed\n");
    EXPECT_EQ(take_calls(), Calls{"ep6in-bulk close"});
    out->fd.store(out_fd);
}

TEST_F(UsbGadget, ControlEndpointRefusesTransfers) {
    configure(kUsbSpeedHigh);
    std::uint8_t byte = 0x55;
    errno = 0;
    EXPECT_EQ(usb_gadget_endpoint_write(usb_gadget_endpoint(device_, 0), &byte, 1, 20), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(take_calls(), Calls{});
}

// -- closing -------------------------------------------------------------------------------------

TEST_F(UsbGadget, ClosingAnEndpointTakesItOffTheList) {
    configure(kUsbSpeedHigh);
    UsbGadgetEndpoint* in = usb_gadget_endpoint(device_, 6);
    usb_gadget_endpoint_close(in);
    EXPECT_EQ(take_calls(), Calls{"ep6in-bulk close"});
    EXPECT_EQ(in->name, nullptr);
    EXPECT_EQ(in->fd, -1);
    EXPECT_EQ(usb_gadget_endpoint(device_, 6), nullptr);
    EXPECT_STREQ(usb_gadget_endpoint(device_, 2)->name, "ep2out-bulk");
}

TEST_F(UsbGadget, ClosingAnEndpointTwiceDoesNothingMore) {
    configure(kUsbSpeedHigh);
    UsbGadgetEndpoint* in = usb_gadget_endpoint(device_, 6);
    usb_gadget_endpoint_close(in);
    take_calls();
    usb_gadget_endpoint_close(in);
    EXPECT_EQ(take_calls(), Calls{});
    EXPECT_STREQ(usb_gadget_endpoint(device_, 2)->name, "ep2out-bulk");
}

// A file that is opened after the close gets the number of the closed one.
TEST_F(UsbGadget, CloseComesAfterTheWriteOfWhoHasSeenTheFile) {
    configure(kUsbSpeedHigh);
    UsbGadgetEndpoint* in = usb_gadget_endpoint(device_, 6);
    in->writers = 1;
    std::thread writer([in] {
        while (in->fd != -1) {
            std::this_thread::yield();
        }
        fake_call("ep6in-bulk written");
        in->writers = 0;
    });
    usb_gadget_endpoint_close(in);
    writer.join();
    EXPECT_EQ(take_calls(), (Calls{"ep6in-bulk written", "ep6in-bulk close"}));
}

TEST_F(UsbGadget, CloseDoesNotWaitForACameraThatLeavesAWriteUnread) {
    configure(kUsbSpeedHigh);
    UsbGadgetEndpoint* in = usb_gadget_endpoint(device_, 6);
    in->writers = 1;
    usb_gadget_endpoint_close(in);
    EXPECT_EQ(take_calls(), Calls{"ep6in-bulk close"});
}

TEST_F(UsbGadget, WriterIsNoneAnyMoreAfterItsWrite) {
    configure(kUsbSpeedHigh);
    UsbGadgetEndpoint* in = usb_gadget_endpoint(device_, 6);
    const std::uint8_t byte = 0;
    EXPECT_EQ(usb_gadget_endpoint_write(in, &byte, 1, 20), 1);
    EXPECT_EQ(in->writers, 0);
    usb_gadget_endpoint_close(in);
    EXPECT_EQ(usb_gadget_endpoint_write(in, &byte, 1, 20), -1);
    EXPECT_EQ(in->writers, 0);
}

TEST_F(UsbGadgetDeathTest, ClosingNoEndpointIsAnAssertionFailure) {
    EXPECT_DEATH(usb_gadget_endpoint_close(nullptr),
                 "usb-gadget-config.cpp:365: close_ep: Assertion `ep' failed.");
}

TEST_F(UsbGadget, CloseClosesTheControlFileThenTheEndpointsNewestFirst) {
    configure(kUsbSpeedHigh);
    EXPECT_EQ(usb_gadget_close(device_), 0);
    EXPECT_EQ(take_calls(), (Calls{"fe980000.usb close", "ep2out-bulk close", "ep6in-bulk close"}));
    EXPECT_EQ(device_->ep0, nullptr);
}

TEST_F(UsbGadget, CloseTwiceFails) {
    configure(kUsbSpeedHigh);
    ASSERT_EQ(usb_gadget_close(device_), 0);
    errno = 0;
    EXPECT_EQ(usb_gadget_close(device_), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(UsbGadget, CloseOfNothingFails) {
    errno = 0;
    EXPECT_EQ(usb_gadget_close(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

// -- messages ------------------------------------------------------------------------------------

TEST_F(UsbGadget, MessagesNeedALevelAboveOne) {
    configure(kUsbSpeedHigh);
    CaptureStderr();
    for (const int level : {-1, 0, 1}) {
        usb_gadget_set_debug_level(device_, level);
        usb_gadget_debug(device_, "level %d\n", level);
    }
    usb_gadget_set_debug_level(device_, 2);
    usb_gadget_debug(device_, "level %d\n", 2);
    EXPECT_EQ(GetCapturedStderr(), "level 2\n");
}

}  // namespace
