#include "simulator/usb_sysfs.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

std::filesystem::path place_of(const std::string& device, const std::string& file) {
    return std::filesystem::path("/sys/bus/usb/devices") / device / file;
}

}  // namespace

std::string sysfs_bytes(const std::string& device, const std::string& file) {
    const std::ifstream stream(place_of(device, file), std::ios::binary);
    // Reading fails where the device has left since the file was opened.
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

std::string sysfs_line(const std::string& device, const std::string& file) {
    std::string line = sysfs_bytes(device, file);
    line.erase(std::ranges::find(line, '\n'), line.end());
    return line;
}

unsigned sysfs_number(const std::string& device, const std::string& file) {
    return static_cast<unsigned>(strtoul(sysfs_line(device, file).c_str(), nullptr, 10));
}

// The kernel gives the value away only between its steps: with it, all of the step is over.
bool sysfs_configured(const std::string& device) {
    const std::string value = sysfs_line(device, "bConfigurationValue");
    std::error_code ignored;
    return !value.empty() &&
           std::filesystem::exists(place_of(device, device + ":" + value + ".0"), ignored);
}
