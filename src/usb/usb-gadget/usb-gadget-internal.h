// What the files of the gadgetfs layer share. All of it runs on the event thread, except where a
// comment says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

#include "usb/usb-gadget/usb-gadget.h"

// Offsets into standard descriptors, and the values that are looked at.
inline constexpr std::uint8_t kConfigurationType = 2;
inline constexpr std::uint8_t kEndpointType = 5;
inline constexpr std::size_t kDeviceDescriptorSize = 18;
inline constexpr std::size_t kConfigurationDescriptorSize = 9;
inline constexpr std::size_t kEndpointDescriptorSize = 7;
inline constexpr std::size_t kDescriptorType = 1;
inline constexpr std::size_t kTotalLength = 2;         // configuration descriptor, 16 bits
inline constexpr std::size_t kConfigurationValue = 5;  // configuration descriptor
inline constexpr std::size_t kEndpointAddress = 2;     // endpoint descriptor
inline constexpr std::size_t kEndpointAttributes = 3;  // endpoint descriptor
inline constexpr std::size_t kMaxPacketSize = 4;       // endpoint descriptor, 16 bits

// Holds a path, or what is written to a file.
inline constexpr std::size_t kGadgetBufferSize = 7168;

inline int endpoint_number(const UsbDescriptor* endpoint) {
    return endpoint[kEndpointAddress] & 0x0F;
}

// Prints a message above debug level 1. Any thread.
[[gnu::format(printf, 2, 3)]] void usb_gadget_debug(const UsbGadgetHandle* handle,
                                                    const char* format, ...);

// Opens a file under the gadgetfs mount point. Its descriptor or -1.
int open_gadget_file(const char* name);

// A closed, unlinked record under a copy of the name; null without memory.
UsbGadgetEndpoint* new_endpoint(UsbGadgetHandle* handle, const char* name);

// Closes the file and drops the name; the record stays where it is.
void release_file(UsbGadgetEndpoint* endpoint);

// The list's descriptors back to back, wTotalLength filled in. Their length; 0 with errno EINVAL
// for a list that does not begin with a configuration descriptor or does not fit.
std::size_t join_descriptors(std::uint8_t* buffer, std::size_t size,
                             const UsbDescriptor* const* list);

// Name (to be freed) of the first endpoint file that fits the descriptor and is not open yet; null
// when there is none.
char* find_ep(const UsbGadgetHandle* handle, const UsbDescriptor* endpoint);

// Opens the file of the record and writes its configuration.
bool open_ep(UsbGadgetEndpoint* endpoint);

// Unlinks and closes; the record stays allocated. Nothing happens to one that is closed. Also
// called by the thread that reads, while the event thread leaves the list alone.
void close_ep(UsbGadgetEndpoint* endpoint);

// Opens every endpoint of the configuration and tells the callback of each. One failure ends it;
// what is open by then stays open.
bool set_config(UsbGadgetHandle* handle);

// Closes every endpoint and tells the callback of each.
void clear_config(UsbGadgetHandle* handle);

// String descriptor into a reply of kStringReplySize bytes. Its length, or -EINVAL.
inline constexpr std::size_t kStringReplySize = 254;
int usb_gadget_get_string(const UsbGadgetStrings* strings, int index, std::uint8_t* reply);
