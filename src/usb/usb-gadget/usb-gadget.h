// A USB device in user space, through the kernel's gadgetfs mounted at /dev/gadget.
//
// usb_gadget_open() finds the device controller's control file, and writes the descriptors to it;
// usb_gadget_handle_event() answers what the host asks on endpoint zero, and opens the endpoint
// files when the host selects the configuration; the transfer functions move the data. What happens
// is told to one callback.
//
// There are no locks. Events and the callback run on the thread that calls
// usb_gadget_handle_event(); transfers may run on other threads, each endpoint on one of them.
// Descriptors are those of the USB 2.0 standard, chapter 9: bytes as they go over the wire,
// multi-byte fields little-endian. File formats and requests are the kernel's gadgetfs ABI
// (linux/usb/gadgetfs.h).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

// A standard descriptor: its first byte is its length, its second its type.
using UsbDescriptor = std::uint8_t;

struct UsbGadgetString {
    std::uint8_t index;
    const char* text;  // UTF-8; null ends the table
};

struct UsbGadgetStrings {
    std::uint16_t language;
    const UsbGadgetString* strings;
};

// What the device presents. Owned by the caller; must outlive the handle. A list is an array of
// descriptors that a null ends; its first is a configuration descriptor, whose wTotalLength is
// filled in whenever the list is sent.
struct UsbGadgetDeviceConfig {
    const UsbDescriptor* device;                  // 18 bytes
    const UsbDescriptor* const* full_speed_list;  // required
    const UsbDescriptor* const* high_speed_list;  // may be null
    const UsbGadgetStrings* strings;
};

struct UsbGadgetHandle;

// One opened gadgetfs file. Written on the event thread, except that the thread that reads closes
// the endpoints at its end, which the event thread keeps apart from its own work (it waits for a
// reader that it cancels). Another thread that still sends then sees the fd of -1; one that has
// already seen the file is waited for, unless the camera keeps it, and then fails in the kernel.
struct UsbGadgetEndpoint {
    std::atomic<char*> name;          // file name under /dev/gadget, owned; null once closed
    const UsbDescriptor* full_speed;  // endpoint descriptor, borrowed
    const UsbDescriptor* high_speed;  // likewise; null where there is none
    UsbGadgetEndpoint* previous;      // links of the handle's list
    UsbGadgetEndpoint* next;
    UsbGadgetHandle* handle;
    std::atomic<int> fd;       // -1 when closed
    std::atomic<int> writers;  // threads between their look at fd and the end of their write
};

enum UsbGadgetEventType : std::uint32_t {
    USB_GADGET_EP_ENABLE = 0,   // an endpoint was opened by SET_CONFIGURATION
    USB_GADGET_EP_DISABLE = 1,  // an endpoint was closed by SET_CONFIGURATION 0
    USB_GADGET_CONNECT = 2,
    USB_GADGET_DISCONNECT = 3,
    USB_GADGET_SUSPEND = 4,
};

struct UsbGadgetEvent {
    std::uint32_t type;    // UsbGadgetEventType
    std::uint32_t number;  // endpoint number, for the two endpoint events only
};

using UsbGadgetEventCallback = void (*)(UsbGadgetHandle* handle, const UsbGadgetEvent* event,
                                        void* argument);

// Speeds as gadgetfs reports them (the kernel's usb_device_speed).
enum UsbGadgetSpeed : int {
    kUsbSpeedUnknown = 0,
    kUsbSpeedLow = 1,
    kUsbSpeedFull = 2,
    kUsbSpeedHigh = 3,
};

struct UsbGadgetHandle {
    UsbGadgetEndpoint* ep0;  // the control endpoint; null once closed
    const UsbGadgetDeviceConfig* config;
    UsbGadgetEndpoint endpoints;  // head of the ring of opened endpoints, newest first
    UsbGadgetEventCallback event_cb;
    void* event_argument;
    int debug_level;
    std::atomic<int> speed;  // as of the last connect; kUsbSpeedUnknown after a disconnect
    // Records of closed endpoints, linked by next: kept allocated, since a thread that transfers
    // may still hold one.
    UsbGadgetEndpoint* closed;
};

// Null, with errno EINVAL for a configuration without a device descriptor or a full-speed list;
// null too where no known controller is found or it refuses the descriptors. The caller sets the
// callback and the debug level at once.
UsbGadgetHandle* usb_gadget_open(const UsbGadgetDeviceConfig* config);

// 0, or -1 with errno EINVAL for a null handle and for one that is closed. The handle record itself
// stays allocated.
int usb_gadget_close(UsbGadgetHandle* handle);

void usb_gadget_set_event_cb(UsbGadgetHandle* handle, UsbGadgetEventCallback callback,
                             void* argument);

// Messages go to standard error above level 1.
void usb_gadget_set_debug_level(UsbGadgetHandle* handle, int level);

// The control file's descriptor, for poll().
int usb_gadget_control_fd(const UsbGadgetHandle* handle);

// Reads and handles up to five pending control events. The byte count read, or the read's negative
// result.
ssize_t usb_gadget_handle_event(UsbGadgetHandle* handle);

// Number 0 is the control endpoint; else the opened endpoint of that number, or null.
UsbGadgetEndpoint* usb_gadget_endpoint(UsbGadgetHandle* handle, int number);

// One transfer of at most one packet of the current speed. Bytes moved, or -1 (errno EINVAL for a
// closed endpoint, too long a transfer or the control endpoint, else the kernel's). They block as
// the file does; the timeout is not used.
ssize_t usb_gadget_endpoint_write(UsbGadgetEndpoint* endpoint, const void* buffer,
                                  std::size_t length, int timeout_ms);
ssize_t usb_gadget_endpoint_read(UsbGadgetEndpoint* endpoint, void* buffer, std::size_t length,
                                 int timeout_ms);

// The record stays allocated; closing it again does nothing. A null endpoint is an assertion
// failure.
void usb_gadget_endpoint_close(UsbGadgetEndpoint* endpoint);
