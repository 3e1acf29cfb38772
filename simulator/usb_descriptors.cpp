#include "simulator/usb_descriptors.h"

#include <algorithm>
#include <span>

namespace {

constexpr std::size_t kDeviceLength = 18;
constexpr std::size_t kConfigurationLength = 9;
constexpr std::uint8_t kConfiguration = 2;
constexpr std::uint8_t kInterface = 4;
constexpr std::uint8_t kEndpoint = 5;
constexpr unsigned kBulk = 2;

using Descriptor = std::span<const std::uint8_t>;

// The descriptor at the front, empty where it is cut off; the rest stays.
Descriptor take_descriptor(Descriptor& rest) {
    if (rest.size() < 2 || rest[0] < 2 || rest[0] > rest.size()) {
        rest = {};
        return {};
    }
    const Descriptor first = rest.first(rest[0]);
    rest = rest.subspan(rest[0]);
    return first;
}

bool is_descriptor(Descriptor descriptor, std::uint8_t type, std::size_t length) {
    return descriptor.size() >= length && descriptor[1] == type;
}

}  // namespace

Bytes configuration_of(const Bytes& descriptors, unsigned value) {
    Descriptor rest(descriptors);
    rest = rest.subspan(std::min(kDeviceLength, rest.size()));
    while (rest.size() >= kConfigurationLength && rest[1] == kConfiguration) {
        const std::size_t total = rest[2] + rest[3] * std::size_t{256};
        const Descriptor configuration = rest.first(std::min(total, rest.size()));
        if (rest[5] == value) {
            return {configuration.begin(), configuration.end()};
        }
        rest = rest.subspan(std::max(configuration.size(), kConfigurationLength));
    }
    return {};
}

bool has_bulk_endpoint(const Bytes& configuration, unsigned interface, unsigned address) {
    bool inside = false;
    for (Descriptor rest(configuration); !rest.empty();) {
        const Descriptor descriptor = take_descriptor(rest);
        if (is_descriptor(descriptor, kInterface, 4)) {
            inside = descriptor[2] == interface && descriptor[3] == 0;
        } else if (inside && is_descriptor(descriptor, kEndpoint, 4) && descriptor[2] == address &&
                   (descriptor[3] & 3U) == kBulk) {
            return true;
        }
    }
    return false;
}
