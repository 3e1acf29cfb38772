// The requests of the host on endpoint zero, and how each is answered: bytes written, acknowledged
// by a read of no bytes, or stalled by a transfer of no bytes against the request's direction.
#include <gtest/gtest.h>

#include "tests/unit/fake_gadgetfs.h"
#include "usb/usb-gadget/usb-gadget-internal.h"
#include "usb/usb_description.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

const std::string kControl = "fe980000.usb";
const std::string kRead = "fe980000.usb read";
const std::string kWrite = "fe980000.usb write";
const Calls kAcknowledged = {kRead};
const Calls kStalledIn = {kRead};    // a device-to-host request
const Calls kStalledOut = {kWrite};  // a host-to-device request

std::vector<UsbGadgetEvent> events;

void record_event(UsbGadgetHandle* /*handle*/, const UsbGadgetEvent* event, void* /*argument*/) {
    events.push_back(*event);
}

class UsbGadgetSetup : public testing::Test {
  protected:
    UsbGadgetSetup() {
        fake_reset();
        open(usb_description(0x18D1, 0x2D01));
    }
    ~UsbGadgetSetup() override { free_device(device_); }

    void open(const UsbGadgetDeviceConfig* config) {
        free_device(device_);
        device_ = usb_gadget_open(config);
        ASSERT_NE(device_, nullptr);
        usb_gadget_set_event_cb(device_, record_event, nullptr);
        take_calls();
        events.clear();
    }

    // One request, as it goes over the wire; the calls that answer it.
    Calls request(const Bytes& setup) {
        Bytes event = setup;
        event.insert(event.end(), {3, 0, 0, 0});
        fake_send(kControl, event);
        EXPECT_EQ(usb_gadget_handle_event(device_), 12);
        return take_calls();
    }
    Calls set_configuration(std::uint8_t value) { return request({0x00, 9, value, 0, 0, 0, 0, 0}); }
    Calls set_interface() { return request({0x01, 11, 0, 0, 0, 0, 0, 0}); }

    UsbGadgetHandle* device_ = nullptr;
};

// -- requests that are answered without a look at the endpoints ----------------------------------

struct RequestCase {
    const char* name;
    Bytes setup;  // type, request, value (le), index (le), length (le)
    Calls calls;
};

#define DEVICE_BYTES " 12 01 00 02 FF 00 00 00"
#define CONFIGURATION_BYTES                                                             \
    " 09 02 20 00 01 02 FA C0 01 09 04 00 00 02 FF 00 00 FA 07 05 86 02 00 02 00 07 05" \
    " 02 02 00 02 00"
#define ANDROID_BYTES " 10 03 41 00 6E 00 64 00 72 00 6F 00 69 00 64 00"

// clang-format off
const RequestCase kRequestCases[] = {
    // GET_DESCRIPTOR: device
    {"DeviceOf64",          {0x80, 6, 0, 1, 0, 0, 64, 0},
     {kWrite + DEVICE_BYTES " D1 18 01 2D 00 00 19 2D 65 01"}},
    {"DeviceOf18",          {0x80, 6, 0, 1, 0, 0, 18, 0},
     {kWrite + DEVICE_BYTES " D1 18 01 2D 00 00 19 2D 65 01"}},
    {"DeviceOf8",           {0x80, 6, 0, 1, 0, 0, 8, 0},      {kWrite + DEVICE_BYTES}},
    {"DeviceOf0",           {0x80, 6, 0, 1, 0, 0, 0, 0},      {kWrite}},
    {"DeviceOf256",         {0x80, 6, 0, 1, 0, 0, 0, 1},
     {kWrite + DEVICE_BYTES " D1 18 01 2D 00 00 19 2D 65 01"}},
    // GET_DESCRIPTOR: configuration, never cut, of any index
    {"ConfigurationOf255",  {0x80, 6, 0, 2, 0, 0, 255, 0},    {kWrite + CONFIGURATION_BYTES}},
    {"ConfigurationOf9",    {0x80, 6, 0, 2, 0, 0, 9, 0},      {kWrite + CONFIGURATION_BYTES}},
    {"ConfigurationIndex7", {0x80, 6, 7, 2, 0, 0, 255, 0},    {kWrite + CONFIGURATION_BYTES}},
    // GET_DESCRIPTOR: strings
    {"Languages",           {0x80, 6, 0, 3, 0, 0, 255, 0},    {kWrite + " 04 03 09 04"}},
    {"LanguagesOf2",        {0x80, 6, 0, 3, 0, 0, 2, 0},      {kWrite + " 04 03"}},
    {"Manufacturer",        {0x80, 6, 25, 3, 9, 4, 255, 0},   {kWrite + ANDROID_BYTES}},
    {"Product",             {0x80, 6, 45, 3, 9, 4, 255, 0},   {kWrite + ANDROID_BYTES}},
    {"ProductOf2",          {0x80, 6, 45, 3, 9, 4, 2, 0},     {kWrite + " 10 03"}},
    {"Serial",              {0x80, 6, 101, 3, 9, 4, 255, 0},
     {kWrite + " 12 03 30 00 30 00 30 00 30 00 30 00 30 00 30 00 30 00"}},
    {"Configuration250",    {0x80, 6, 250, 3, 9, 4, 255, 0},
     {kWrite + " 12 03 65 00 63 00 32 00 31 00 30 00 31 00 33 00 63 00"}},
    {"UnknownString",       {0x80, 6, 1, 3, 9, 4, 255, 0},    kStalledIn},
    // GET_DESCRIPTOR: the rest
    {"Qualifier",           {0x80, 6, 0, 6, 0, 0, 10, 0},     kStalledIn},
    {"OtherSpeed",          {0x80, 6, 0, 7, 0, 0, 9, 0},      kStalledIn},
    {"DescriptorType0",     {0x80, 6, 0, 0, 0, 0, 9, 0},      kStalledIn},
    {"DescriptorType255",   {0x80, 6, 0, 255, 0, 0, 9, 0},    kStalledIn},
    {"DescriptorOfInterface", {0x81, 6, 0, 1, 0, 0, 64, 0},   kStalledIn},
    {"DescriptorToDevice",  {0x00, 6, 0, 1, 0, 0, 64, 0},     kStalledOut},
    // Requests without an answer
    {"SetDescriptor",       {0x00, 7, 0, 1, 0, 0, 0, 0},      kStalledOut},
    {"GetConfiguration",    {0x80, 8, 0, 0, 0, 0, 1, 0},      kStalledIn},
    {"GetStatus",           {0x80, 0, 0, 0, 0, 0, 2, 0},      kStalledIn},
    {"SetAddress",          {0x00, 5, 1, 0, 0, 0, 0, 0},      kStalledOut},
    {"SynchFrame",          {0x82, 12, 0, 0, 0, 0, 2, 0},     kStalledIn},
    {"Request255",          {0x00, 255, 0, 0, 0, 0, 0, 0},    kStalledOut},
    // Only standard requests: the numbers mean something else in a class or of a vendor
    {"ClassDescriptor",     {0xA0, 6, 0, 1, 0, 0, 64, 0},     kStalledIn},
    {"VendorDescriptor",    {0xC0, 6, 0, 1, 0, 0, 64, 0},     kStalledIn},
    {"ReservedDescriptor",  {0xE0, 6, 0, 1, 0, 0, 64, 0},     kStalledIn},
    {"ClassConfiguration",  {0x20, 9, 0, 0, 0, 0, 0, 0},      kStalledOut},
    {"VendorConfiguration", {0x40, 9, 0, 0, 0, 0, 0, 0},      kStalledOut},
    {"VendorProtocol51",    {0xC0, 51, 0, 0, 0, 0, 2, 0},     kStalledIn},
    // SET_CONFIGURATION
    {"ConfigurationZero",   {0x00, 9, 0, 0, 0, 0, 0, 0},      kAcknowledged},
    {"ConfigurationOne",    {0x00, 9, 1, 0, 0, 0, 0, 0},      kStalledOut},
    {"ConfigurationThree",  {0x00, 9, 3, 0, 0, 0, 0, 0},      kStalledOut},
    {"Configuration2OfHighByte", {0x00, 9, 2, 1, 0, 0, 0, 0}, kStalledOut},
    {"ConfigurationFromDevice", {0x80, 9, 2, 0, 0, 0, 0, 0},  kStalledIn},
    {"ConfigurationOfInterface", {0x01, 9, 2, 0, 0, 0, 0, 0}, kStalledOut},
    // GET_INTERFACE
    {"GetInterface",        {0x81, 10, 0, 0, 0, 0, 1, 0},     {kWrite + " 00"}},
    {"GetInterfaceOf0",     {0x81, 10, 0, 0, 0, 0, 0, 0},     {kWrite}},
    {"GetInterfaceOf2",     {0x81, 10, 0, 0, 0, 0, 2, 0},     kStalledIn},
    {"GetInterfaceOf256",   {0x81, 10, 0, 0, 0, 0, 0, 1},     kStalledIn},
    {"GetInterface1",       {0x81, 10, 0, 0, 1, 0, 1, 0},     kStalledIn},
    {"GetInterfaceOfDevice", {0x80, 10, 0, 0, 0, 0, 1, 0},    kStalledIn},
    {"GetInterfaceToDevice", {0x01, 10, 0, 0, 0, 0, 1, 0},    kStalledOut},
    // SET_INTERFACE
    {"SetInterface",        {0x01, 11, 0, 0, 0, 0, 0, 0},     kAcknowledged},
    {"SetInterfaceSetting1", {0x01, 11, 1, 0, 0, 0, 0, 0},    kStalledOut},
    {"SetInterface1",       {0x01, 11, 0, 0, 1, 0, 0, 0},     kStalledOut},
    {"SetInterfaceOfDevice", {0x00, 11, 0, 0, 0, 0, 0, 0},    kStalledOut},
    {"SetInterfaceFromDevice", {0x81, 11, 0, 0, 0, 0, 0, 0},  kStalledIn},
};
// clang-format on

class UsbGadgetRequest : public UsbGadgetSetup, public testing::WithParamInterface<RequestCase> {};

TEST_P(UsbGadgetRequest, IsAnswered) {
    EXPECT_EQ(request(GetParam().setup), GetParam().calls);
    EXPECT_TRUE(events.empty());
}

INSTANTIATE_TEST_SUITE_P(Requests, UsbGadgetRequest, testing::ValuesIn(kRequestCases),
                         [](const auto& test) { return std::string(test.param.name); });

constexpr std::uint8_t kDevice[] = {18, 1, 0, 2, 0xFF, 0, 0, 0, 1, 2, 3, 4, 0, 0, 0, 0, 0, 1};
constexpr std::uint8_t kConfiguration1[] = {9, 2, 0, 0, 1, 1, 0, 0xC0, 1};
constexpr std::uint8_t kFullIn1[] = {7, 5, 0x81, 0x02, 0x40, 0x00, 0};
constexpr std::uint8_t kHighIn3[] = {7, 5, 0x83, 0x02, 0x00, 0x02, 0};
constexpr const UsbDescriptor* kFullSpeedList[] = {kConfiguration1, kFullIn1, nullptr};

TEST_F(UsbGadgetSetup, ConfigurationIsThatOfFullSpeedWhereThereIsNoOther) {
    const UsbGadgetDeviceConfig config{kDevice, kFullSpeedList, nullptr, nullptr};
    open(&config);
    device_->speed = kUsbSpeedHigh;
    EXPECT_EQ(request({0x80, 6, 0, 2, 0, 0, 255, 0}),
              Calls{kWrite + " 09 02 10 00 01 01 00 C0 01 07 05 81 02 40 00 00"});
    EXPECT_EQ(request({0x80, 6, 0, 3, 0, 0, 255, 0}), kStalledIn);  // no strings at all
}

TEST_F(UsbGadgetSetup, ConfigurationIsThatOfHighSpeedEvenAtFullSpeed) {
    device_->speed = kUsbSpeedFull;
    EXPECT_EQ(request({0x80, 6, 0, 2, 0, 0, 9, 0}), Calls{kWrite + CONFIGURATION_BYTES});
}

TEST_F(UsbGadgetSetup, ListThatLostItsConfigurationDescriptorIsStalled) {
    const UsbDescriptor* list[] = {kConfiguration1, kFullIn1, nullptr};
    const UsbGadgetDeviceConfig config{kDevice, list, nullptr, nullptr};
    open(&config);
    list[0] = kFullIn1;
    errno = 0;
    EXPECT_EQ(request({0x80, 6, 0, 2, 0, 0, 255, 0}), kStalledIn);
    EXPECT_EQ(errno, EINVAL);
}

// -- SET_CONFIGURATION ---------------------------------------------------------------------------

const std::string kOpenIn =
    "ep6in-bulk write 01 00 00 00 07 05 86 02 40 00 00 07 05 86 02 00 02 00";
const std::string kOpenOut =
    "ep2out-bulk write 01 00 00 00 07 05 02 02 40 00 00 07 05 02 02 00 02 00";

TEST_F(UsbGadgetSetup, ConfigurationTwoOpensTheEndpointsThenAcknowledges) {
    EXPECT_EQ(set_configuration(2), (Calls{kOpenIn, kOpenOut, kRead}));
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].type, 0U);  // enabled
    EXPECT_EQ(events[0].number, 6U);
    EXPECT_EQ(events[1].type, 0U);
    EXPECT_EQ(events[1].number, 2U);
}

TEST_F(UsbGadgetSetup, ConfigurationTwoAgainFindsNoFurtherFiles) {
    set_configuration(2);
    events.clear();
    EXPECT_EQ(set_configuration(2), kStalledOut);
    EXPECT_TRUE(events.empty());
    EXPECT_NE(usb_gadget_endpoint(device_, 6), nullptr);
    EXPECT_NE(usb_gadget_endpoint(device_, 2), nullptr);
}

TEST_F(UsbGadgetSetup, ConfigurationTwoAgainTakesFurtherFiles) {
    fake.directory = {"fe980000.usb", "ep2out", "ep6in", "ep2out-bulk", "ep6in-bulk"};
    set_configuration(2);
    EXPECT_EQ(set_configuration(2), (Calls{kOpenIn, kOpenOut, kRead}));
    EXPECT_EQ(events.size(), 4U);
}

TEST_F(UsbGadgetSetup, ConfigurationZeroClosesTheEndpointsNewestFirst) {
    set_configuration(2);
    UsbGadgetEndpoint* in = usb_gadget_endpoint(device_, 6);
    events.clear();
    EXPECT_EQ(set_configuration(0), (Calls{"ep2out-bulk close", "ep6in-bulk close", kRead}));
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].type, 1U);  // disabled
    EXPECT_EQ(events[0].number, 2U);
    EXPECT_EQ(events[1].type, 1U);
    EXPECT_EQ(events[1].number, 6U);
    // The records are kept for whoever still holds one.
    EXPECT_EQ(in->fd, -1);
    EXPECT_EQ(in->name, nullptr);
    EXPECT_EQ(usb_gadget_endpoint(device_, 6), nullptr);
}

TEST_F(UsbGadgetSetup, ConfigurationZeroTwiceJustAcknowledges) {
    set_configuration(2);
    set_configuration(0);
    events.clear();
    EXPECT_EQ(set_configuration(0), kAcknowledged);
    EXPECT_TRUE(events.empty());
}

TEST_F(UsbGadgetSetup, ConfigurationTwoAfterZeroOpensAgain) {
    set_configuration(2);
    set_configuration(0);
    EXPECT_EQ(set_configuration(2), (Calls{kOpenIn, kOpenOut, kRead}));
}

TEST_F(UsbGadgetSetup, ConfigurationWithoutACallbackWorks) {
    usb_gadget_set_event_cb(device_, nullptr, nullptr);
    EXPECT_EQ(set_configuration(2), (Calls{kOpenIn, kOpenOut, kRead}));
    EXPECT_EQ(set_configuration(0), (Calls{"ep2out-bulk close", "ep6in-bulk close", kRead}));
}

TEST_F(UsbGadgetSetup, HighSpeedDescriptorIsTakenByItsNumber) {
    constexpr const UsbDescriptor* kHighSpeedList[] = {kConfiguration1, kHighIn3, nullptr};
    const UsbGadgetDeviceConfig config{kDevice, kFullSpeedList, kHighSpeedList, nullptr};
    open(&config);
    fake.directory.push_back("ep1in-bulk");
    EXPECT_EQ(set_configuration(1),
              (Calls{"ep1in-bulk write 01 00 00 00 07 05 81 02 40 00 00", kRead}));
    EXPECT_EQ(usb_gadget_endpoint(device_, 1)->high_speed, nullptr);
}

TEST_F(UsbGadgetSetup, MissingEndpointFileStallsAndKeepsWhatIsOpen) {
    fake.directory = {"fe980000.usb", "ep6in-bulk"};
    usb_gadget_set_debug_level(device_, 2);
    CaptureStderr();
    EXPECT_EQ(set_configuration(2), (Calls{kOpenIn, kWrite}));
    EXPECT_EQ(GetCapturedStderr(),
              "usb-gadget: 1 events received\n"
              "usb-gadget: event 3\n"
              "usb-gadget: setup: ctrl->bRequestType = 0, ctrl->bRequest = 9, ctrl->wValue = 2, "
              "ctrl->wIndex = 0, ctrl->wLength = 0\n"
              "usb-gadget: set_config: ep6in-bulk opened\n"
              "usb-gadget: set_config: find_ep failed\n"
              "usb-gadget: setup: set_config failed\n");
    EXPECT_NE(usb_gadget_endpoint(device_, 6), nullptr);
    EXPECT_EQ(events.size(), 1U);
}

TEST_F(UsbGadgetSetup, EndpointFileThatCannotBeOpenedStalls) {
    fake.refuses_open = {"ep2out-bulk"};
    usb_gadget_set_debug_level(device_, 2);
    CaptureStderr();
    EXPECT_EQ(set_configuration(2), (Calls{kOpenIn, kWrite}));
    EXPECT_TRUE(
        GetCapturedStderr().ends_with("usb-gadget: set_config: ep6in-bulk opened\n"
                                      "usb-gadget: set_config: ep2out-bulk open failed\n"
                                      "usb-gadget: setup: set_config failed\n"));
    EXPECT_EQ(usb_gadget_endpoint(device_, 2), nullptr);
    EXPECT_NE(usb_gadget_endpoint(device_, 6), nullptr);
}

TEST_F(UsbGadgetSetup, EndpointRecordThatIsRefusedStalls) {
    fake.refuses_write = {"ep6in-bulk"};
    usb_gadget_set_debug_level(device_, 2);
    CaptureStderr();
    EXPECT_EQ(set_configuration(2), (Calls{kOpenIn, "ep6in-bulk close", kWrite}));
    EXPECT_TRUE(
        GetCapturedStderr().ends_with("usb-gadget: open_ep: can't write config\n"
                                      "usb-gadget: set_config: ep6in-bulk open failed\n"
                                      "usb-gadget: setup: set_config failed\n"));
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(device_->endpoints.next, &device_->endpoints);
}

TEST_F(UsbGadgetSetup, UnknownConfigurationIsReported) {
    usb_gadget_set_debug_level(device_, 2);
    CaptureStderr();
    errno = 0;
    EXPECT_EQ(set_configuration(1), kStalledOut);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(GetCapturedStderr().ends_with("usb-gadget: setup: set_config failed\n"));
}

// -- SET_INTERFACE -------------------------------------------------------------------------------

TEST_F(UsbGadgetSetup, SetInterfaceClearsTheHaltOfEveryEndpoint) {
    set_configuration(2);
    EXPECT_EQ(set_interface(), (Calls{"ep2out-bulk clear-halt", "ep6in-bulk clear-halt", kRead}));
}

TEST_F(UsbGadgetSetup, HaltIsClearedOnEveryController) {
    for (const char* controller : {"20980000.usb", "3f980000.usb", "musb-hdrc"}) {
        fake.directory[2] = controller;
        open(usb_description(0x18D1, 0x2D01));
        const std::string name = controller;
        fake_send(name, {0x00, 9, 2, 0, 0, 0, 0, 0, 3, 0, 0, 0});
        usb_gadget_handle_event(device_);
        take_calls();
        fake_send(name, {0x01, 11, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0});
        usb_gadget_handle_event(device_);
        EXPECT_EQ(take_calls(),
                  (Calls{"ep2out-bulk clear-halt", "ep6in-bulk clear-halt", name + " read"}));
    }
}

TEST_F(UsbGadgetSetup, HaltOfAFileThatIsNotOpenIsNotCleared) {
    set_configuration(2);
    usb_gadget_set_debug_level(device_, 2);
    UsbGadgetEndpoint* out = usb_gadget_endpoint(device_, 2);
    const int in = usb_gadget_endpoint(device_, 6)->fd;
    const int opened = out->fd;
    for (const int fd : {-1, 0}) {
        out->fd = fd;
        CaptureStderr();
        EXPECT_EQ(set_interface(), (Calls{"ep6in-bulk clear-halt", kRead})) << fd;
        EXPECT_TRUE(GetCapturedStderr().ends_with(
            "usb-gadget: setup: clear halt ep2out-bulk " + std::to_string(fd) + " 0\n" +
            "usb-gadget: setup: clear halt ep6in-bulk " + std::to_string(in) + " 0\n"));
    }
    out->fd = opened;
}

TEST_F(UsbGadgetSetup, OneRefusedClearHaltStallsAfterTheWholeWalk) {
    set_configuration(2);
    fake.refuses_clear_halt = {"ep2out-bulk"};
    usb_gadget_set_debug_level(device_, 2);
    const int out = usb_gadget_endpoint(device_, 2)->fd;
    const int in = usb_gadget_endpoint(device_, 6)->fd;
    CaptureStderr();
    EXPECT_EQ(set_interface(), (Calls{"ep2out-bulk clear-halt", "ep6in-bulk clear-halt", kWrite}));
    EXPECT_TRUE(GetCapturedStderr().ends_with(
        "usb-gadget: setup: clear halt ep2out-bulk " + std::to_string(out) + " 0\n" +
        "usb-gadget: setup: clear halt ep6in-bulk " + std::to_string(in) + " -1\n"));
}

}  // namespace
