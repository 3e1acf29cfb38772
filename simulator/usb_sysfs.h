// What the kernel tells of a USB device, by its name in sysfs ("1-1"). Reading it sends nothing to
// the device, but waits while the kernel configures it. Reentrant; what is not there reads as
// nothing.
#pragma once

#include <string>

std::string sysfs_bytes(const std::string& device, const std::string& file);
std::string sysfs_line(const std::string& device, const std::string& file);
unsigned sysfs_number(const std::string& device, const std::string& file);

// Whether the kernel has finished its configure step.
bool sysfs_configured(const std::string& device);
