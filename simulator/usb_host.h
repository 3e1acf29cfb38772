// A real USB host's end of the receiver's device, over libusb: finds it on any port of this
// machine, claims its interface and moves its two bulk pipes.
//
//   UsbHost host;
//   host.wait_for_device(Milliseconds(60000)) && host.open() && host.claim();
//   SimulatedCamera camera(usb_pipes(host), {.transfer = kUsbHostTransfer});
//
// "Finding" and "opening" belong to one thread; all else may be called from any, at any time. A
// thread of the host's own, from open() to close(), handles libusb's events.
//
// The device answers one control request each 500 ms, and none at all once it has taken bulk data:
// nothing here asks it for anything but control() and reset() do. Descriptors and strings come from
// what the kernel has read while it enumerated.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/usb_bus.h"

constexpr std::uint8_t kUsbHostOutEndpoint = 0x02;
constexpr std::uint8_t kUsbHostInEndpoint = 0x86;
constexpr std::size_t kUsbHostTransfer = 16384;  // the largest that the kernel keeps in one piece

struct UsbHostOptions {
    std::uint16_t vendor = 0x18D1;
    std::uint16_t product = 0x2D01;
    std::size_t transfers = 16;  // of bulk OUT in flight at a time
};

class UsbHost {
  public:
    using Cancelled = std::function<bool()>;

    explicit UsbHost(UsbHostOptions options = {});
    ~UsbHost();  // closes
    UsbHost(const UsbHost&) = delete;
    UsbHost& operator=(const UsbHost&) = delete;

    // -- finding ----------------------------------------------------------------------------------
    // One look: whether the device is there and the kernel has configured it, that is, has made its
    // interface.
    bool find_device();
    // Looks until it is there; false when the time is up (none: without end) or `cancelled` says
    // so.
    bool wait_for_device(std::optional<Milliseconds> timeout, const Cancelled& cancelled = {});

    // Of the device found last, as the kernel read it during enumeration. Empty or 0 without one.
    unsigned bus() const;
    unsigned address() const;
    std::string sysfs_name() const;                         // e.g. "1-1"
    std::string sysfs_text(const std::string& file) const;  // e.g. "product", "serial", "speed"
    Bytes device_descriptor() const;                        // 18 bytes
    Bytes configuration_descriptor() const;  // the active one, all wTotalLength bytes
    unsigned configuration_value() const;

    // -- opening ----------------------------------------------------------------------------------
    // Each prints the reason on standard error where it fails. open() waits until the kernel has
    // finished configuring the device, the interface's string included. claim() takes interface 0,
    // which must have both bulk endpoints, and begins to read bulk IN.
    bool open();
    bool claim();
    void release();  // ends all transfers
    void close();
    // Whether the device found last has left its port, or come back on it as another.
    bool gone() const;
    // Waits for that; false when the time is up.
    bool wait_until_gone(Milliseconds timeout) const;

    // -- endpoint zero ----------------------------------------------------------------------------
    // Any request, data stage included; kGone where the device has left.
    ControlResult control(const SetupPacket& setup, Bytes data_out = {},
                          Milliseconds timeout = Milliseconds(5000));
    // Bus reset: what is in flight ends first, then the kernel configures the device as it was.
    // False when it did not come back the same.
    bool reset();

    // -- bulk pipes -------------------------------------------------------------------------------
    // Bulk OUT: the bytes in transfers of at most `transfer` (1..kUsbHostTransfer) bytes, several
    // of them in flight. Returns when the last is under way; one call's bytes are never mixed with
    // another's. False when the device is gone, a transfer has failed since claim() or reset(), or
    // the time is up, which leaves the rest unsent.
    bool bulk_out(std::span<const std::uint8_t> bytes, std::size_t transfer = kUsbHostTransfer,
                  Milliseconds timeout = Milliseconds(10000));
    // One transfer of no bytes.
    bool bulk_out_empty(Milliseconds timeout = Milliseconds(10000));
    // Waits until the device has taken all that was sent.
    bool wait_for_bulk_out_taken(Milliseconds timeout);

    // Bulk IN: every transfer that a device has sent, oldest first, over all claims.
    std::vector<Bytes> bulk_in() const;
    // Waits for the transfer of that index; nullopt when the time is up.
    std::optional<Bytes> wait_for_bulk_in(std::size_t index, Milliseconds timeout);
    // Whether the host leaves bulk IN unread: the device's writes soon block. Returns when it is
    // so.
    void hold_bulk_in(bool hold);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
