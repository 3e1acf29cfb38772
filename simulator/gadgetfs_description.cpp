#include "simulator/gadgetfs_description.h"

#include <algorithm>

namespace {

constexpr std::size_t kTagSize = 4;
constexpr std::size_t kConfigurationSize = 9;
constexpr std::size_t kDeviceSize = 18;
constexpr std::size_t kEndpointSize = 7;
constexpr std::size_t kLargestDescription = std::size_t{4} * 4096;  // four pages

enum DescriptorType : std::uint8_t {
    kDevice = 1,
    kConfiguration = 2,
    kEndpoint = 5,
    kDeviceQualifier = 6,
    kOtherSpeedConfiguration = 7,
};

// The one thing in the device descriptor that the process cannot know: the controller's.
constexpr std::uint8_t kControlPacketSize = 64;

std::uint32_t tag_of(std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint32_t>(bytes[0] | bytes[1] << 8 | bytes[2] << 16) |
           static_cast<std::uint32_t>(bytes[3]) << 24;
}

// Length of the configuration at the front, with all its descriptors; 0 where the kernel would not
// have it: self-powered or not, but never with remote wake-up.
std::size_t configuration_length(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < kConfigurationSize) {
        return 0;
    }
    const std::size_t total = static_cast<std::size_t>(bytes[2] | bytes[3] << 8);
    const bool valid = bytes[0] == kConfigurationSize && bytes[1] == kConfiguration &&
                       bytes[5] != 0 && (bytes[7] & 0x80) != 0 && (bytes[7] & 0x20) == 0 &&
                       total >= kConfigurationSize && total <= bytes.size();
    return valid ? total : 0;
}

Bytes taken(std::span<const std::uint8_t>& bytes, std::size_t count) {
    const auto front = bytes.first(count);
    bytes = bytes.subspan(count);
    return {front.begin(), front.end()};
}

Bytes cut(Bytes bytes, std::size_t length) {
    bytes.resize(std::min(bytes.size(), length));
    return bytes;
}

Bytes qualifier(const Bytes& device) {
    return {10,        kDeviceQualifier, device[2],          device[3],  device[4],
            device[5], device[6],        kControlPacketSize, device[17], 0};
}

}  // namespace

std::optional<DeviceDescription> check_device_description(std::span<const std::uint8_t> written) {
    if (written.size() < kTagSize + kConfigurationSize + kDeviceSize ||
        written.size() > kLargestDescription || tag_of(written) != 0) {
        return std::nullopt;
    }
    DeviceDescription description;
    description.written.assign(written.begin(), written.end());
    auto rest = written.subspan(kTagSize);

    const std::size_t full_speed = configuration_length(rest);
    if (full_speed == 0) {
        return std::nullopt;
    }
    description.full_speed = taken(rest, full_speed);

    if (rest.size() > 1 && rest[1] == kConfiguration) {
        const std::size_t high_speed = configuration_length(rest);
        if (high_speed == 0) {
            return std::nullopt;
        }
        description.high_speed = taken(rest, high_speed);
    }

    if (rest.size() != kDeviceSize || rest[0] != kDeviceSize || rest[1] != kDevice ||
        rest[17] != 1) {
        return std::nullopt;
    }
    description.device = taken(rest, kDeviceSize);
    return description;
}

std::optional<Bytes> kernel_descriptor(const DeviceDescription& description, UsbSpeed speed,
                                       const SetupPacket& setup) {
    const std::uint8_t type = static_cast<std::uint8_t>(setup.value >> 8);
    const std::uint8_t index = static_cast<std::uint8_t>(setup.value & 0xFF);
    if (type == kDevice) {
        Bytes device = description.device;
        device[7] = kControlPacketSize;
        return cut(device, setup.length);
    }
    const bool dual_speed = !description.high_speed.empty();
    if (type == kDeviceQualifier) {
        return dual_speed ? std::optional(cut(qualifier(description.device), setup.length))
                          : std::nullopt;
    }
    if ((type == kOtherSpeedConfiguration && !dual_speed) || index != 0) {
        return std::nullopt;
    }
    const bool high_speed = dual_speed && (speed == UsbSpeed::kHigh) == (type == kConfiguration);
    Bytes configuration = high_speed ? description.high_speed : description.full_speed;
    configuration[1] = type;
    return cut(configuration, setup.length);
}

bool is_endpoint_record(std::span<const std::uint8_t> written) {
    constexpr std::size_t kOneSpeed = kTagSize + kEndpointSize;
    constexpr std::size_t kTwoSpeeds = kOneSpeed + kEndpointSize;
    if ((written.size() != kOneSpeed && written.size() != kTwoSpeeds) || tag_of(written) != 1) {
        return false;
    }
    for (std::size_t at = kTagSize; at < written.size(); at += kEndpointSize) {
        if (written[at] != kEndpointSize || written[at + 1] != kEndpoint) {
            return false;
        }
    }
    return true;
}
