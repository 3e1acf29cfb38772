#include "usb/usb_description.h"

#include "protocol/little_endian.h"

namespace {

constexpr std::uint8_t kManufacturerString = 25;
constexpr std::uint8_t kProductString = 45;
constexpr std::uint8_t kSerialString = 101;
constexpr std::uint8_t kConfigurationString = 250;

// clang-format off
UsbDescriptor device_descriptor[] = {
    18, 1,                // device
    0x00, 0x02,           // USB 2.0
    0xFF, 0x00, 0x00,     // vendor-specific class
    0,                    // packet size of endpoint zero: the kernel fills it in
    0x00, 0x00,           // vendor, written at start-up
    0x00, 0x00,           // product, likewise
    0x00, 0x00,           // version
    kManufacturerString, kProductString, kSerialString,
    1,                    // configurations
};
constexpr std::size_t kVendorOffset = 8;
constexpr std::size_t kProductOffset = 10;

constexpr UsbDescriptor kConfiguration[] = {
    9, 2,                 // configuration
    0x00, 0x00,           // total length: filled in as it is sent
    1,                    // interfaces
    2,                    // number by which the host selects it
    kConfigurationString,
    0xC0,                 // self-powered
    1,                    // 2 mA
};

constexpr UsbDescriptor kInterface[] = {
    9, 4,                 // interface
    0, 0,                 // number 0, alternate setting 0
    2,                    // endpoints
    0xFF, 0x00, 0x00,     // vendor-specific class
    kConfigurationString,
};

// length, type, address, bulk, largest packet (le), interval
constexpr UsbDescriptor kFullSpeedIn[]  = {7, 5, 0x86, 0x02, 0x40, 0x00, 0};
constexpr UsbDescriptor kFullSpeedOut[] = {7, 5, 0x02, 0x02, 0x40, 0x00, 0};
constexpr UsbDescriptor kHighSpeedIn[]  = {7, 5, 0x86, 0x02, 0x00, 0x02, 0};
constexpr UsbDescriptor kHighSpeedOut[] = {7, 5, 0x02, 0x02, 0x00, 0x02, 0};

constexpr const UsbDescriptor* kFullSpeedList[] = {
    kConfiguration, kInterface, kFullSpeedIn, kFullSpeedOut, nullptr,
};
constexpr const UsbDescriptor* kHighSpeedList[] = {
    kConfiguration, kInterface, kHighSpeedIn, kHighSpeedOut, nullptr,
};

constexpr UsbGadgetString kTexts[] = {
    {kManufacturerString,  "Android"},
    {kProductString,       "Android"},
    {kSerialString,        "00000000"},
    {kConfigurationString, "ec21013c"},
    {0,                    nullptr},
};
// clang-format on

constexpr UsbGadgetStrings kStrings{0x0409, kTexts};  // US English

constexpr UsbGadgetDeviceConfig kDescription{device_descriptor, kFullSpeedList, kHighSpeedList,
                                             &kStrings};

static_assert(sizeof device_descriptor == 18);
static_assert(sizeof kConfiguration == 9 && kConfiguration[0] == 9);
static_assert(sizeof kInterface == 9 && kInterface[0] == 9);
static_assert(sizeof kFullSpeedIn == 7 && sizeof kFullSpeedOut == 7);
static_assert(sizeof kHighSpeedIn == 7 && sizeof kHighSpeedOut == 7);
static_assert((kFullSpeedIn[2] & 0x0F) == kInEndpointNumber);
static_assert((kFullSpeedOut[2] & 0x0F) == kOutEndpointNumber);

}  // namespace

const UsbGadgetDeviceConfig* usb_description(std::uint16_t vendor_id, std::uint16_t product_id) {
    write_le16(device_descriptor + kVendorOffset, vendor_id);
    write_le16(device_descriptor + kProductOffset, product_id);
    return &kDescription;
}
