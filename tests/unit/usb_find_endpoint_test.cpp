// Which endpoint file is taken for a descriptor.
#include <gtest/gtest.h>

#include "tests/unit/fake_gadgetfs.h"
#include "usb/usb-gadget/usb-gadget-internal.h"

namespace {

constexpr std::uint8_t kBulkIn6[] = {7, 5, 0x86, 0x02, 0x00, 0x02, 0};
constexpr std::uint8_t kBulkOut2[] = {7, 5, 0x02, 0x02, 0x00, 0x02, 0};
constexpr std::uint8_t kIsoIn1[] = {7, 5, 0x81, 0x0D, 0x00, 0x02, 1};
constexpr std::uint8_t kInterruptOut12[] = {7, 5, 0x0C, 0x03, 0x08, 0x00, 1};
constexpr std::uint8_t kBulkInAny[] = {7, 5, 0x80, 0x02, 0x00, 0x02, 0};

struct FindCase {
    const char* name;
    const std::uint8_t* descriptor;
    std::vector<std::string> directory;
    const char* found;  // empty: nothing fits
};

// clang-format off
const FindCase kCases[] = {
    {"ExactName",                kBulkIn6,        {"ep6in-bulk"},                  "ep6in-bulk"},
    {"OutName",                  kBulkOut2,       {"ep2out-bulk"},                 "ep2out-bulk"},
    {"OtherFilesAreSkipped",     kBulkIn6,        {".", "..", "Ep6in", "e6", "ep6in"}, "ep6in"},
    {"ControlFileIsSkipped",     kBulkIn6,        {"ep-control", "ep6in"},         "ep6in"},
    {"OpenedFileIsSkipped",      kBulkIn6,        {"ep6-opened", "ep6in-bulk"},    "ep6in-bulk"},
    {"LetterIsTakenAtOnce",      kBulkIn6,        {"ep-a", "ep6in-bulk"},          "ep-a"},
    {"BareNameIsTakenAtOnce",    kBulkIn6,        {"ep", "ep6in-bulk"},            "ep"},
    {"FirstThatFits",            kBulkIn6,        {"ep6", "ep6in-bulk"},           "ep6"},
    {"OtherNumber",              kBulkIn6,        {"ep5in-bulk"},                  ""},
    {"NumberWithTwoDigits",      kInterruptOut12, {"ep1out-int", "ep12out-int"},   "ep12out-int"},
    {"NumberIsNotItsFirstDigit", kBulkIn6,        {"ep60in-bulk"},                 ""},
    {"NumberIsDecimal",          kInterruptOut12, {"ep0xC", "ep012out-int"},       "ep012out-int"},
    {"HugeNumber",               kBulkIn6,        {"ep99999999999999999999in"},    ""},
    {"NumberThatWrapsTo6",       kBulkIn6,        {"ep4294967302in"},              ""},
    {"AnyNumberForZero",         kBulkInAny,      {"ep5out-bulk", "ep9in-bulk"},   "ep9in-bulk"},
    {"DirectionInForOut",        kBulkOut2,       {"ep2in-bulk"},                  ""},
    {"DirectionOutForIn",        kBulkIn6,        {"ep6out-bulk"},                 ""},
    {"NoDirection",              kBulkOut2,       {"ep2-bulk"},                    "ep2-bulk"},
    {"NoDirectionOtherType",     kBulkOut2,       {"ep2-iso"},                     ""},
    {"NoType",                   kBulkOut2,       {"ep2out"},                      "ep2out"},
    {"TypeIsoForBulk",           kBulkIn6,        {"ep6in-iso"},                   ""},
    {"TypeInterruptForBulk",     kBulkIn6,        {"ep6in-int"},                   ""},
    {"TypeIso",                  kIsoIn1,         {"ep1in-bulk", "ep1in-iso"},     "ep1in-iso"},
    {"TypeInterrupt",            kInterruptOut12, {"ep12out-bulk", "ep12out-int"}, "ep12out-int"},
    {"UnknownType",              kBulkIn6,        {"ep6in-fast"},                  "ep6in-fast"},
    {"UnknownDirection",         kBulkIn6,        {"ep6both"},                     "ep6both"},
    {"EmptyDirectory",           kBulkIn6,        {},                              ""},
};
// clang-format on

class FindEndpoint : public testing::TestWithParam<FindCase> {
  protected:
    FindEndpoint() {
        fake_reset();
        control_.name = control_name_;
        opened_.name = opened_name_;
        handle_.ep0 = &control_;
        handle_.endpoints.previous = handle_.endpoints.next = &opened_;
        opened_.previous = opened_.next = &handle_.endpoints;
    }

    char control_name_[11] = "ep-control";
    char opened_name_[11] = "ep6-opened";
    UsbGadgetEndpoint control_{};
    UsbGadgetEndpoint opened_{};
    UsbGadgetHandle handle_{};
};

TEST_P(FindEndpoint, TakesTheFirstFileThatFits) {
    fake.directory = GetParam().directory;
    char* name = find_ep(&handle_, GetParam().descriptor);
    EXPECT_EQ(std::string(name != nullptr ? name : ""), GetParam().found);
    free(name);
}

INSTANTIATE_TEST_SUITE_P(Names, FindEndpoint, testing::ValuesIn(kCases),
                         [](const auto& test) { return std::string(test.param.name); });

using FindEndpointDeathTest = FindEndpoint;

TEST_F(FindEndpoint, MissingDirectoryFails) {
    fake.has_directory = false;
    EXPECT_EQ(find_ep(&handle_, kBulkIn6), nullptr);
}

TEST_F(FindEndpointDeathTest, DeviceWithoutControlFileIsAnAssertionFailure) {
    handle_.ep0 = nullptr;
    EXPECT_DEATH(find_ep(&handle_, kBulkIn6),
                 "usb-gadget-config.cpp:267: find_ep: Assertion `handle->ep0' failed.");
}

}  // namespace
