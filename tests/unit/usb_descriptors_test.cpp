// USB descriptors as the kernel keeps them in a device's file.
#include "simulator/usb_descriptors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

Bytes joined(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// clang-format off
const Bytes kDevice = {18, 1, 0x00, 0x02, 0, 0, 0, 64, 0xD1, 0x18, 0x01, 0x2D, 0, 1, 25, 45, 101, 2};
const Bytes kFirst = {
    9, 2, 25, 0, 1, 1, 0, 0x80, 50,     // configuration 1, 25 bytes
    9, 4, 0, 0, 1, 3, 0, 0, 0,          // interface 0
    7, 5, 0x81, 3, 8, 0, 10};           // interrupt IN
const Bytes kSecond = {
    9, 2, 48, 0, 2, 2, 250, 0xC0, 1,    // configuration 2, 48 bytes
    9, 4, 0, 0, 2, 0xFF, 0xFF, 0, 250,  // interface 0
    7, 5, 0x86, 2, 0, 2, 0,             // bulk IN
    7, 5, 0x02, 2, 0, 2, 1,             // bulk OUT
    9, 4, 1, 0, 1, 3, 0, 0, 0,          // interface 1
    7, 5, 0x83, 2, 0, 2, 0};            // bulk IN
// clang-format on

TEST(UsbDescriptors, ConfigurationIsFoundByItsValue) {
    const Bytes file = joined({kDevice, kFirst, kSecond});
    EXPECT_THAT(configuration_of(file, 1), ElementsAreArray(kFirst));
    EXPECT_THAT(configuration_of(file, 2), ElementsAreArray(kSecond));
    EXPECT_THAT(configuration_of(file, 3), IsEmpty());
}

TEST(UsbDescriptors, LengthOfAConfigurationIsAWord) {
    Bytes large(300, 0);
    const Bytes head = {9, 2, 0x2C, 0x01, 1, 7, 0, 0x80, 50};
    std::copy(head.begin(), head.end(), large.begin());
    EXPECT_THAT(configuration_of(joined({kDevice, large, kSecond}), 7), ElementsAreArray(large));
}

TEST(UsbDescriptors, CutOffFileHasNoConfiguration) {
    EXPECT_THAT(configuration_of({}, 0), IsEmpty());
    EXPECT_THAT(configuration_of(kDevice, 0), IsEmpty());
    EXPECT_THAT(configuration_of(joined({kDevice, {9, 2, 25}}), 0), IsEmpty());
}

TEST(UsbDescriptors, ConfigurationOfNoLengthEndsTheSearch) {
    const Bytes empty = {9, 2, 0, 0, 0, 1, 0, 0, 0};
    EXPECT_THAT(configuration_of(joined({kDevice, empty}), 2), IsEmpty());
}

TEST(UsbDescriptors, BulkEndpointsAreThoseOfTheInterface) {
    EXPECT_TRUE(has_bulk_endpoint(kSecond, 0, 0x86));
    EXPECT_TRUE(has_bulk_endpoint(kSecond, 0, 0x02));
    EXPECT_TRUE(has_bulk_endpoint(kSecond, 1, 0x83));
    EXPECT_FALSE(has_bulk_endpoint(kSecond, 0, 0x83));
    EXPECT_FALSE(has_bulk_endpoint(kSecond, 0, 0x82));
}

TEST(UsbDescriptors, InterruptEndpointIsNoBulkEndpoint) {
    EXPECT_FALSE(has_bulk_endpoint(kFirst, 0, 0x81));
}

TEST(UsbDescriptors, OtherSettingOfAnInterfaceDoesNotCount) {
    Bytes second_setting = kSecond;
    second_setting[12] = 1;
    EXPECT_FALSE(has_bulk_endpoint(second_setting, 0, 0x86));
}

TEST(UsbDescriptors, DescriptorOfNoLengthEndsTheSearch) {
    Bytes broken = kSecond;
    broken[9] = 0;
    EXPECT_FALSE(has_bulk_endpoint(broken, 0, 0x86));
}

}  // namespace
