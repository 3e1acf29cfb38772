// The configuration: which endpoint file serves which descriptor, and the files' life.
#include <dirent.h>
#include <errno.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <new>

#include "app/process_end.h"
#include "app/system_paths.h"
#include "protocol/little_endian.h"
#include "usb/usb-gadget/usb-gadget-internal.h"
#include "usb/usb-gadget/usb-gadget.h"

namespace {

constexpr char kSourceName[] = "usb-gadget-config.cpp";

// Parts of an endpoint file's name, and what they stand for in the descriptor.
struct NamePart {
    const char* text;
    int value;
};
// clang-format off
constexpr NamePart kDirections[] = {  // bit 7 of bEndpointAddress
    {"in",  0x80},
    {"out", 0x00},
};
constexpr NamePart kTransferTypes[] = {  // bmAttributes & 3
    {"-iso",  1},
    {"-bulk", 2},
    {"-int",  3},
};
// clang-format on

bool is_digit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Whether a file of that name can serve the descriptor: "ep", number, direction, type, as in
// "ep6in-bulk". A part that is absent or unknown fits anything.
bool name_fits(const char* name, const UsbDescriptor* endpoint) {
    const char* rest = name + 2;
    if (!is_digit(*rest)) {
        return true;  // freely configurable
    }
    char* behind_number = nullptr;
    const unsigned long number = std::strtoul(rest, &behind_number, 10);
    const int wanted = endpoint_number(endpoint);
    if (wanted != 0 && number != static_cast<unsigned long>(wanted)) {
        return false;
    }
    rest = behind_number;
    for (const NamePart& direction : kDirections) {
        const std::size_t length = std::strlen(direction.text);
        if (std::strncmp(rest, direction.text, length) == 0) {
            if (direction.value != (endpoint[kEndpointAddress] & 0x80)) {
                return false;
            }
            rest += length;
            break;
        }
    }
    for (const NamePart& type : kTransferTypes) {
        if (std::strcmp(rest, type.text) == 0) {
            return type.value == (endpoint[kEndpointAttributes] & 3);
        }
    }
    return true;
}

bool is_open(const UsbGadgetHandle* handle, const char* name) {
    for (const UsbGadgetEndpoint* endpoint = handle->endpoints.next; endpoint != &handle->endpoints;
         endpoint = endpoint->next) {
        if (std::strcmp(endpoint->name, name) == 0) {
            return true;
        }
    }
    return false;
}

void insert_first(UsbGadgetEndpoint* endpoint) {
    UsbGadgetEndpoint* const head = &endpoint->handle->endpoints;
    endpoint->previous = head;
    endpoint->next = head->next;
    head->next->previous = endpoint;
    head->next = endpoint;
}

// The high-speed endpoint descriptor of that number; null where there is none.
const UsbDescriptor* find_high_speed(const UsbGadgetDeviceConfig* config, int number) {
    if (config->high_speed_list == nullptr) {
        return nullptr;
    }
    for (const UsbDescriptor* const* item = config->high_speed_list; *item != nullptr; ++item) {
        if ((*item)[kDescriptorType] == kEndpointType && endpoint_number(*item) == number) {
            return *item;
        }
    }
    return nullptr;
}

void notify(UsbGadgetHandle* handle, UsbGadgetEventType type, int number) {
    if (handle->event_cb != nullptr) {
        const UsbGadgetEvent event{type, static_cast<std::uint32_t>(number)};
        handle->event_cb(handle, &event, handle->event_argument);
    }
}

}  // namespace

std::size_t join_descriptors(std::uint8_t* buffer, std::size_t size,
                             const UsbDescriptor* const* list) {
    if (list[0] == nullptr || list[0][0] < kConfigurationDescriptorSize ||
        list[0][kDescriptorType] != kConfigurationType) {
        errno = EINVAL;
        return 0;
    }
    std::size_t length = 0;
    for (const UsbDescriptor* const* item = list; *item != nullptr; ++item) {
        const std::size_t item_length = (*item)[0];
        if (item_length > size - length) {
            errno = EINVAL;
            return 0;
        }
        std::memcpy(buffer + length, *item, item_length);
        length += item_length;
    }
    write_le16(buffer + kTotalLength, static_cast<std::uint16_t>(length));
    return length;
}

char* find_ep(const UsbGadgetHandle* handle, const UsbDescriptor* endpoint) {
    if (handle->ep0 == nullptr) {
        assertion_failed("handle->ep0", kSourceName, 267, "find_ep");
    }
    DIR* directory = opendir(kGadgetDirectory);
    if (directory == nullptr) {
        return nullptr;
    }
    char* found = nullptr;
    while (const dirent* entry = readdir(directory)) {
        const char* name = entry->d_name;
        if (std::strcmp(name, handle->ep0->name) != 0 && std::strncmp(name, "ep", 2) == 0 &&
            !is_open(handle, name) && name_fits(name, endpoint)) {
            found = strdup(name);
            break;
        }
    }
    closedir(directory);
    return found;
}

bool open_ep(UsbGadgetEndpoint* endpoint) {
    const int fd = open_gadget_file(endpoint->name);
    if (fd < 0) {
        return false;
    }
    std::uint8_t record[4 + 2 * kEndpointDescriptorSize];
    std::size_t length = 4;
    write_le32(record, 1);
    for (const UsbDescriptor* descriptor : {endpoint->full_speed, endpoint->high_speed}) {
        if (descriptor != nullptr) {
            std::memcpy(record + length, descriptor, kEndpointDescriptorSize);
            length += kEndpointDescriptorSize;
        }
    }
    if (write(fd, record, length) < 0) {
        usb_gadget_debug(endpoint->handle, "usb-gadget: open_ep: can't write config\n");
        close(fd);
        return false;
    }
    endpoint->fd.store(fd, std::memory_order_relaxed);
    return true;
}

void close_ep(UsbGadgetEndpoint* endpoint) {
    if (endpoint == nullptr) {
        assertion_failed("ep", kSourceName, 365, "close_ep");
    }
    if (endpoint->previous == nullptr) {
        return;  // closed before
    }
    endpoint->previous->next = endpoint->next;
    endpoint->next->previous = endpoint->previous;
    release_file(endpoint);
    endpoint->previous = nullptr;
    endpoint->next = endpoint->handle->closed;
    endpoint->handle->closed = endpoint;
}

bool set_config(UsbGadgetHandle* handle) {
    for (const UsbDescriptor* const* item = handle->config->full_speed_list; *item != nullptr;
         ++item) {
        const UsbDescriptor* const descriptor = *item;
        if (descriptor[kDescriptorType] != kEndpointType) {
            continue;
        }
        const int number = endpoint_number(descriptor);
        if (number == 0) {
            assertion_failed("number", kSourceName, 509, "set_config");
        }
        char* const name = find_ep(handle, descriptor);
        UsbGadgetEndpoint* const endpoint = name != nullptr ? new_endpoint(handle, name) : nullptr;
        std::free(name);
        if (endpoint == nullptr) {
            usb_gadget_debug(handle, "usb-gadget: set_config: find_ep failed\n");
            return false;
        }
        endpoint->full_speed = descriptor;
        endpoint->high_speed = find_high_speed(handle->config, number);
        insert_first(endpoint);
        if (!open_ep(endpoint)) {
            usb_gadget_debug(handle, "usb-gadget: set_config: %s open failed\n",
                             endpoint->name.load());
            close_ep(endpoint);
            return false;
        }
        usb_gadget_debug(handle, "usb-gadget: set_config: %s opened\n", endpoint->name.load());
        notify(handle, USB_GADGET_EP_ENABLE, number);
    }
    return true;
}

void clear_config(UsbGadgetHandle* handle) {
    // Taken from the front each time: the callback may close endpoints too.
    while (handle->endpoints.next != &handle->endpoints) {
        UsbGadgetEndpoint* const endpoint = handle->endpoints.next;
        close_ep(endpoint);
        notify(handle, USB_GADGET_EP_DISABLE, endpoint_number(endpoint->full_speed));
    }
}
