// Endpoint zero: the events of the control file, and the requests of the host.
#include <errno.h>
#include <linux/usb/gadgetfs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "protocol/little_endian.h"
#include "usb/usb-gadget/usb-gadget-internal.h"
#include "usb/usb-gadget/usb-gadget.h"

namespace {

// Event, numbers in the machine's byte order, which is little-endian on every board:
//
//   byte:  0 .. 7                                                     8 .. 11
//          connect: speed (32 bits); setup: the request               type
//
// Setup request:
//
//   byte:  0              1         2       3   4       5   6        7
//          bmRequestType  bRequest  wValue      wIndex      wLength
constexpr std::size_t kEventSize = 12;
constexpr std::size_t kEventsPerRead = 5;
static_assert(sizeof(usb_gadgetfs_event) == kEventSize);

constexpr std::uint8_t kDeviceToHost = 0x80;
constexpr std::uint8_t kRequestTypeBits = 0x60;  // all clear: a standard request

constexpr int kDeviceType = 1;
constexpr int kStringType = 3;

struct Setup {
    std::uint8_t request_type;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
};

// A transfer of no bytes is how gadgetfs is told the end of a request, and its result says
// nothing: a stall that worked is reported as an error.
void read_nothing(const UsbGadgetHandle* handle) {
    std::uint8_t unused = 0;
    [[maybe_unused]] const ssize_t result = read(usb_gadget_control_fd(handle), &unused, 0);
}

void write_reply(const UsbGadgetHandle* handle, const std::uint8_t* reply, std::size_t length) {
    [[maybe_unused]] const ssize_t result = write(usb_gadget_control_fd(handle), reply, length);
}

void acknowledge(const UsbGadgetHandle* handle) {
    read_nothing(handle);
}

// Transfers against the request's direction.
void stall(const UsbGadgetHandle* handle, const Setup& setup) {
    if ((setup.request_type & kDeviceToHost) != 0) {
        read_nothing(handle);
    } else {
        const std::uint8_t unused = 0;
        write_reply(handle, &unused, 0);
    }
}

// -- requests; each returns false to have the request stalled ------------------------------------

bool send_configuration(const UsbGadgetHandle* handle) {
    // High speed's wherever there is one, and all of it: neither the current speed, nor the index,
    // nor wLength counts. Kept: the kernel cuts the reply, and answers most of these by itself.
    const UsbGadgetDeviceConfig* config = handle->config;
    std::uint8_t buffer[kGadgetBufferSize];
    const std::size_t length = join_descriptors(
        buffer, sizeof buffer,
        config->high_speed_list != nullptr ? config->high_speed_list : config->full_speed_list);
    if (length == 0) {
        return false;
    }
    write_reply(handle, buffer, length);
    return true;
}

bool get_descriptor(UsbGadgetHandle* handle, const Setup& setup) {
    switch (setup.value >> 8) {
        case kDeviceType:
            write_reply(handle, handle->config->device,
                        std::min<std::size_t>(setup.length, kDeviceDescriptorSize));
            return true;
        case kConfigurationType:
            return send_configuration(handle);
        case kStringType: {
            std::uint8_t reply[kStringReplySize];
            const int length =
                usb_gadget_get_string(handle->config->strings, setup.value & 0xFF, reply);
            if (length < 0) {
                return false;
            }
            write_reply(handle, reply,
                        std::min<std::size_t>(setup.length, static_cast<std::size_t>(length)));
            return true;
        }
        default:
            return false;
    }
}

bool set_configuration(UsbGadgetHandle* handle, const Setup& setup) {
    bool done = true;
    if (setup.value == 0) {
        clear_config(handle);
    } else if (setup.value == handle->config->full_speed_list[0][kConfigurationValue]) {
        done = set_config(handle);
    } else {
        errno = EINVAL;
        done = false;
    }
    if (!done) {
        usb_gadget_debug(handle, "usb-gadget: setup: set_config failed\n");
        return false;
    }
    acknowledge(handle);
    return true;
}

bool get_interface(UsbGadgetHandle* handle, const Setup& setup) {
    if (setup.index != 0 || setup.length > 1) {
        return false;
    }
    const std::uint8_t alternate_setting = 0;
    write_reply(handle, &alternate_setting, setup.length);
    return true;
}

bool set_interface(UsbGadgetHandle* handle, const Setup& setup) {
    if (setup.value != 0 || setup.index != 0) {
        return false;
    }
    // On every controller, and to the last endpoint even when one refuses.
    int result = 0;
    for (const UsbGadgetEndpoint* endpoint = handle->endpoints.next; endpoint != &handle->endpoints;
         endpoint = endpoint->next) {
        const int fd = endpoint->fd.load(std::memory_order_relaxed);
        usb_gadget_debug(handle, "usb-gadget: setup: clear halt %s %d %d\n", endpoint->name.load(),
                         fd, result);
        if (fd > 0 && ioctl(fd, GADGETFS_CLEAR_HALT) < 0) {
            result = -1;
        }
    }
    if (result < 0) {
        return false;
    }
    acknowledge(handle);
    return true;
}

struct RequestRow {
    std::uint8_t request;
    std::uint8_t request_type;
    bool (*answer)(UsbGadgetHandle* handle, const Setup& setup);
};
// clang-format off
constexpr RequestRow kRequests[] = {
    { 6, 0x80, get_descriptor},
    { 9, 0x00, set_configuration},
    {10, 0x81, get_interface},
    {11, 0x01, set_interface},
};
// clang-format on

// A request that has no row is stalled: SET_DESCRIPTOR (7) and GET_CONFIGURATION (8) too.
bool answer_request(UsbGadgetHandle* handle, const Setup& setup) {
    if ((setup.request_type & kRequestTypeBits) != 0) {
        return false;
    }
    for (const RequestRow& row : kRequests) {
        if (row.request == setup.request) {
            return row.request_type == setup.request_type && row.answer(handle, setup);
        }
    }
    return false;
}

void handle_setup(UsbGadgetHandle* handle, const std::uint8_t* bytes) {
    const Setup setup{bytes[0], bytes[1], read_le16(bytes + 2), read_le16(bytes + 4),
                      read_le16(bytes + 6)};
    usb_gadget_debug(handle,
                     "usb-gadget: setup: ctrl->bRequestType = %d, ctrl->bRequest = %d, "
                     "ctrl->wValue = %d, ctrl->wIndex = %d, ctrl->wLength = %d\n",
                     setup.request_type, setup.request, setup.value, setup.index, setup.length);
    if (!answer_request(handle, setup)) {
        stall(handle, setup);
    }
}

// -- events --------------------------------------------------------------------------------------

void notify(UsbGadgetHandle* handle, UsbGadgetEventType type) {
    const UsbGadgetEvent event{type, 0};
    handle->event_cb(handle, &event, handle->event_argument);
}

void handle_one(UsbGadgetHandle* handle, const std::uint8_t* bytes) {
    const std::uint32_t type = read_le32(bytes + 8);
    usb_gadget_debug(handle, "usb-gadget: event %d\n", static_cast<int>(type));
    if (type == GADGETFS_SETUP) {
        handle_setup(handle, bytes);
        return;
    }
    // Without a callback the speed is not kept either: nobody has asked for this device yet.
    if (handle->event_cb == nullptr) {
        return;
    }
    if (type == GADGETFS_CONNECT) {
        const int speed = static_cast<int>(read_le32(bytes));
        handle->speed.store(speed, std::memory_order_relaxed);
        usb_gadget_debug(handle, "usb-gadget: connected with speed %d\n", speed);
        notify(handle, USB_GADGET_CONNECT);
    } else if (type == GADGETFS_DISCONNECT) {
        handle->speed.store(kUsbSpeedUnknown, std::memory_order_relaxed);
        notify(handle, USB_GADGET_DISCONNECT);
    } else if (type == GADGETFS_SUSPEND) {
        notify(handle, USB_GADGET_SUSPEND);
    }
}

}  // namespace

ssize_t usb_gadget_handle_event(UsbGadgetHandle* handle) {
    std::uint8_t events[kEventsPerRead * kEventSize];
    const ssize_t result = read(usb_gadget_control_fd(handle), events, sizeof events);
    if (result < 0) {
        return result;
    }
    const std::size_t count = static_cast<std::size_t>(result) / kEventSize;
    usb_gadget_debug(handle, "usb-gadget: %d events received\n", static_cast<int>(count));
    for (std::size_t i = 0; i < count; ++i) {
        handle_one(handle, events + i * kEventSize);
    }
    return result;
}
