#include "simulator/usb_search.h"

#include <cstdio>
#include <iterator>

#include "simulator/usb_sysfs.h"

namespace {

// The kernel's name: the bus, then the ports on the way to the device.
std::string sysfs_name_of(libusb_device* device) {
    std::uint8_t ports[7];
    const int depth = libusb_get_port_numbers(device, ports, static_cast<int>(std::size(ports)));
    std::string name = std::to_string(libusb_get_bus_number(device));
    for (int i = 0; i < depth; ++i) {
        name += (i == 0 ? "-" : ".") + std::to_string(ports[i]);
    }
    return name;
}

}  // namespace

bool usb_succeeded(int error, const std::string& what) {
    if (error != 0) {
        fprintf(stderr, "usb host: %s: %s\n", what.c_str(), libusb_strerror(error));
    }
    if (error == LIBUSB_ERROR_ACCESS) {
        fputs("usb host: this takes root, or a rule that lets you at the device\n", stderr);
    }
    return error == 0;
}

bool UsbSearch::is_wanted(libusb_device* candidate) const {
    libusb_device_descriptor descriptor{};
    return libusb_get_device_descriptor(candidate, &descriptor) == 0 &&
           descriptor.idVendor == vendor_ && descriptor.idProduct == product_;
}

// With a context of its own: one that exists hears of a new device from a running udev alone.
bool UsbSearch::begin_anew() {
    forget();
    const int error = libusb_init(&context_);
    if (error != 0) {
        context_ = nullptr;
        if (!unusable_was_said_) {
            unusable_was_said_ = true;
            usb_succeeded(error, "no USB on this machine so far");
        }
    }
    return error == 0;
}

void UsbSearch::take(libusb_device* found, const std::string& name) {
    device_ = libusb_ref_device(found);
    name_ = name;
    bus_ = libusb_get_bus_number(found);
    address_ = libusb_get_device_address(found);
}

bool UsbSearch::look() {
    if (!begin_anew()) {
        return false;
    }
    libusb_device** list = nullptr;
    const auto count = libusb_get_device_list(context_, &list);
    for (ssize_t i = 0; i < count && device_ == nullptr; ++i) {
        const std::string name = sysfs_name_of(list[i]);
        if (is_wanted(list[i]) && sysfs_configured(name)) {
            take(list[i], name);
        }
    }
    if (count >= 0) {
        libusb_free_device_list(list, 1);
    }
    if (device_ == nullptr) {
        forget();
    }
    return device_ != nullptr;
}

void UsbSearch::forget() {
    if (device_ != nullptr) {
        libusb_unref_device(device_);
        device_ = nullptr;
    }
    if (context_ != nullptr) {
        libusb_exit(context_);
        context_ = nullptr;
    }
    name_.clear();
    bus_ = address_ = 0;
}
