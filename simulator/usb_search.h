// One USB device of this machine, found by its identifiers, and what libusb needs to open it.
// Thread-bound: one thread looks; what was found may be read while it does not.
#pragma once

#include <libusb.h>

#include <cstdint>
#include <string>

// False after a line on standard error that says what failed and why.
bool usb_succeeded(int error, const std::string& what);

class UsbSearch {
  public:
    UsbSearch(std::uint16_t vendor, std::uint16_t product) : vendor_(vendor), product_(product) {}
    ~UsbSearch() { forget(); }
    UsbSearch(const UsbSearch&) = delete;
    UsbSearch& operator=(const UsbSearch&) = delete;

    // One look, after which the device of an earlier one, which must be closed, is forgotten.
    // Whether it is there and the kernel has configured it.
    bool look();

    // Of the device found last; null, empty or 0 without one.
    libusb_context* context() const { return context_; }
    libusb_device* device() const { return device_; }
    const std::string& name() const { return name_; }  // in sysfs, e.g. "1-1"
    unsigned bus() const { return bus_; }
    unsigned address() const { return address_; }

  private:
    bool is_wanted(libusb_device* candidate) const;
    bool begin_anew();
    void take(libusb_device* found, const std::string& name);
    void forget();

    const std::uint16_t vendor_;
    const std::uint16_t product_;
    bool unusable_was_said_ = false;

    libusb_context* context_ = nullptr;
    libusb_device* device_ = nullptr;
    std::string name_;
    unsigned bus_ = 0;
    unsigned address_ = 0;
};
