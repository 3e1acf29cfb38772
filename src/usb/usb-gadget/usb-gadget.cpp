// Life of the device, and its transfers.
#include "usb/usb-gadget/usb-gadget.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "app/system_paths.h"
#include "protocol/little_endian.h"
#include "usb/usb-gadget/usb-gadget-internal.h"

namespace {

constexpr int kWriterLooks = 20;
constexpr useconds_t kWriterLookTime = 1000;

// Names that the kernel gives to the control files of the boards' USB device controllers.
constexpr const char* kControllers[] = {"fe980000.usb", "20980000.usb", "3f980000.usb",
                                        "musb-hdrc"};

bool is_controller(const char* name) {
    return std::any_of(std::begin(kControllers), std::end(kControllers),
                       [name](const char* known) { return std::strcmp(name, known) == 0; });
}

// The control file's record. The directory's order decides between controllers, not the list's.
UsbGadgetEndpoint* find_controller(UsbGadgetHandle* handle) {
    DIR* directory = opendir(kGadgetDirectory);
    if (directory == nullptr) {
        return nullptr;
    }
    UsbGadgetEndpoint* found = nullptr;
    while (const dirent* entry = readdir(directory)) {
        if (is_controller(entry->d_name)) {
            found = new_endpoint(handle, entry->d_name);
            break;
        }
    }
    closedir(directory);
    return found;
}

// What gadgetfs takes as the description of a device: a zero tag, the configuration at full speed,
// the one at high speed if there is one, the device descriptor. Its length; 0 where it is refused.
std::size_t device_description(std::uint8_t* buffer, std::size_t size,
                               const UsbGadgetDeviceConfig* config) {
    std::size_t length = 4;
    write_le32(buffer, 0);
    for (const UsbDescriptor* const* list : {config->full_speed_list, config->high_speed_list}) {
        if (list == nullptr) {
            continue;
        }
        const std::size_t joined = join_descriptors(buffer + length, size - length, list);
        if (joined == 0) {
            return 0;
        }
        length += joined;
    }
    if (size - length < kDeviceDescriptorSize) {
        errno = EINVAL;
        return 0;
    }
    std::memcpy(buffer + length, config->device, kDeviceDescriptorSize);
    return length + kDeviceDescriptorSize;
}

bool open_ep0(UsbGadgetHandle* handle) {
    const int fd = open_gadget_file(handle->ep0->name);
    if (fd < 0) {
        return false;
    }
    std::uint8_t buffer[kGadgetBufferSize];
    const std::size_t length = device_description(buffer, sizeof buffer, handle->config);
    if (length == 0) {
        close(fd);
        errno = EINVAL;
        return false;
    }
    if (write(fd, buffer, length) < 0) {
        const int reason = errno;
        usb_gadget_debug(handle, "usb-gadget: open_ep0: can't write config\n");
        close(fd);
        errno = reason;
        return false;
    }
    handle->ep0->fd.store(fd, std::memory_order_relaxed);
    return true;
}

// The file that the transfer may be made on, looked up once, since another thread may close it in
// between; -1 with errno EINVAL where the transfer is refused. `operation` is the caller's name.
int transfer_file(const UsbGadgetEndpoint* endpoint, std::size_t length, const char* operation) {
    const UsbGadgetHandle* handle = endpoint->handle;
    const int fd = endpoint->fd.load();
    if (fd < 0) {
        const char* name = endpoint->name.load(std::memory_order_relaxed);
        usb_gadget_debug(handle, "usb-gadget: %s: %s is closed\n", operation,
                         name != nullptr ? name : "(null)");
        errno = EINVAL;
        return -1;
    }
    const bool high_speed = handle->speed.load(std::memory_order_relaxed) == kUsbSpeedHigh;
    const UsbDescriptor* descriptor =
        high_speed && endpoint->high_speed != nullptr ? endpoint->high_speed : endpoint->full_speed;
    if (descriptor == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (length > read_le16(descriptor + kMaxPacketSize)) {
        usb_gadget_debug(handle, "usb-gadget: %s: too long message\n", operation);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

}  // namespace

void usb_gadget_debug(const UsbGadgetHandle* handle, const char* format, ...) {
    if (handle->debug_level <= 1) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fflush(stderr);
}

int open_gadget_file(const char* name) {
    char path[kGadgetBufferSize];
    const int length = std::snprintf(path, sizeof path, "%s/%s", kGadgetDirectory, name);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return open(path, O_RDWR | O_CLOEXEC);
}

UsbGadgetEndpoint* new_endpoint(UsbGadgetHandle* handle, const char* name) {
    auto* endpoint = new (std::nothrow) UsbGadgetEndpoint{};
    if (endpoint == nullptr) {
        return nullptr;
    }
    char* const copy = strdup(name);
    endpoint->name.store(copy, std::memory_order_relaxed);
    if (copy == nullptr) {
        delete endpoint;
        return nullptr;
    }
    endpoint->previous = endpoint;
    endpoint->next = endpoint;
    endpoint->handle = handle;
    endpoint->fd.store(-1, std::memory_order_relaxed);
    return endpoint;
}

void release_file(UsbGadgetEndpoint* endpoint) {
    // The field is cleared first: from here on no other thread starts a write on the file. One that
    // has looked before must have come to its write: a file opened after the close gets the number.
    // It is in the kernel after so long, held by a camera that does not read.
    const int fd = endpoint->fd.exchange(-1);
    for (int i = 0; i < kWriterLooks && endpoint->writers.load() != 0; ++i) {
        usleep(kWriterLookTime);
    }
    if (fd > 0) {
        close(fd);
    }
    std::free(endpoint->name.exchange(nullptr, std::memory_order_relaxed));
}

UsbGadgetHandle* usb_gadget_open(const UsbGadgetDeviceConfig* config) {
    if (config == nullptr || config->device == nullptr || config->full_speed_list == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    auto* handle = new (std::nothrow) UsbGadgetHandle{};
    if (handle == nullptr) {
        return nullptr;
    }
    handle->config = config;
    handle->endpoints.previous = &handle->endpoints;
    handle->endpoints.next = &handle->endpoints;
    handle->endpoints.fd.store(-1, std::memory_order_relaxed);
    handle->ep0 = find_controller(handle);
    if (handle->ep0 != nullptr && open_ep0(handle)) {
        return handle;
    }
    const int reason = errno;
    if (handle->ep0 != nullptr) {
        release_file(handle->ep0);
        delete handle->ep0;
    }
    delete handle;
    errno = reason;
    return nullptr;
}

int usb_gadget_close(UsbGadgetHandle* handle) {
    if (handle == nullptr || handle->ep0 == nullptr) {
        errno = EINVAL;
        return -1;
    }
    release_file(handle->ep0);
    delete handle->ep0;
    handle->ep0 = nullptr;
    UsbGadgetEndpoint* endpoint = handle->endpoints.next;
    while (endpoint != &handle->endpoints) {
        UsbGadgetEndpoint* const next = endpoint->next;
        release_file(endpoint);
        delete endpoint;
        endpoint = next;
    }
    handle->endpoints.previous = &handle->endpoints;
    handle->endpoints.next = &handle->endpoints;
    return 0;
}

void usb_gadget_set_event_cb(UsbGadgetHandle* handle, UsbGadgetEventCallback callback,
                             void* argument) {
    handle->event_cb = callback;
    handle->event_argument = argument;
}

void usb_gadget_set_debug_level(UsbGadgetHandle* handle, int level) {
    handle->debug_level = level;
}

int usb_gadget_control_fd(const UsbGadgetHandle* handle) {
    return handle->ep0->fd.load(std::memory_order_relaxed);
}

UsbGadgetEndpoint* usb_gadget_endpoint(UsbGadgetHandle* handle, int number) {
    if (number == 0) {
        return handle->ep0;
    }
    for (UsbGadgetEndpoint* endpoint = handle->endpoints.next; endpoint != &handle->endpoints;
         endpoint = endpoint->next) {
        if (endpoint_number(endpoint->full_speed) == number) {
            return endpoint;
        }
    }
    return nullptr;
}

ssize_t usb_gadget_endpoint_write(UsbGadgetEndpoint* endpoint, const void* buffer,
                                  std::size_t length, int /*timeout_ms*/) {
    // Counted before the look at the file. Both are sequentially consistent with the close, which
    // takes the file away before it looks at the count: one of the two sees the other.
    endpoint->writers.fetch_add(1);
    const int fd = transfer_file(endpoint, length, "usb_gadget_endpoint_write");
    const ssize_t result = fd < 0 ? -1 : write(fd, buffer, length);
    endpoint->writers.fetch_sub(1);
    return result;
}

ssize_t usb_gadget_endpoint_read(UsbGadgetEndpoint* endpoint, void* buffer, std::size_t length,
                                 int /*timeout_ms*/) {
    const int fd = transfer_file(endpoint, length, "usb_gadget_endpoint_read");
    return fd < 0 ? -1 : read(fd, buffer, length);
}

void usb_gadget_endpoint_close(UsbGadgetEndpoint* endpoint) {
    close_ep(endpoint);
}
