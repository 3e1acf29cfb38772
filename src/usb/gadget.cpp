#include "usb/gadget.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "app/millisecond_clock.h"
#include "app/process_end.h"
#include "app/system_paths.h"
#include "link/udp_bridge.h"
#include "usb/usb_description.h"
#include "usb/usb_link_state.h"
#include "usb/usb_reader.h"

namespace {

// An Android device in accessory mode with debugging: what the camera's handle looks for.
constexpr std::uint16_t kVendorId = 0x18D1;
constexpr std::uint16_t kProductId = 0x2D01;

constexpr std::uint16_t kBridgePort = 6000;
constexpr int kPollTimeoutMs = 10;
constexpr useconds_t kSpinTime = 1000;
constexpr useconds_t kLeaveTime = 200000;  // for the reader to see the end of the link

void endpoint_enabled(UsbGadgetHandle* handle, std::uint32_t number) {
    UsbGadgetEndpoint* endpoint = usb_gadget_endpoint(handle, static_cast<int>(number));
    if (number == kInEndpointNumber) {
        usb_link.in_endpoint.store(endpoint, std::memory_order_release);
    } else if (number == kOutEndpointNumber) {
        usb_link.out_endpoint.store(endpoint, std::memory_order_release);
        if (!usb_reader_start()) {
            assertion_failed("0", "gadget.c", 168, "loopback_event_cb");
        }
    }
    if (usb_link.in_endpoint.load(std::memory_order_relaxed) != nullptr &&
        usb_link.out_endpoint.load(std::memory_order_relaxed) != nullptr) {
        std::fprintf(stderr, "USB connected\n");
    }
}

void endpoint_disabled(std::uint32_t number) {
    if (number == kInEndpointNumber) {
        usb_link.in_endpoint.store(nullptr, std::memory_order_release);
    } else if (number == kOutEndpointNumber) {
        usb_link.out_endpoint.store(nullptr, std::memory_order_release);
    }
}

// Stands while events may be handled: no bulk read is begun, and a reader that leaves by itself
// waits with the closing of its endpoints.
class EndpointZeroPass {
  public:
    EndpointZeroPass() {
        usb_link.busy.store(1, std::memory_order_relaxed);
        usb_link.handling_events.store(1);
    }
    EndpointZeroPass(const EndpointZeroPass&) = delete;
    EndpointZeroPass& operator=(const EndpointZeroPass&) = delete;
    ~EndpointZeroPass() {
        usb_link.handling_events.store(0);
        usb_link.busy.store(0, std::memory_order_relaxed);
    }
};

// Reads the control file once without waiting, for the sake of having read it: until a process
// does, the kernel takes the device for one that leaves control requests to it. It acknowledges
// SET_CONFIGURATION by itself and stalls strings, and the process never hears of either. A Linux
// host selects the configuration 0.42 s after the description was written, before the watchdog's
// first look that finds an event, at 0.5 s: it would send to a device whose endpoints nobody opens.
void begin_to_listen() {
    const int fd = usb_link.control.fd;
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
        return;  // a read that waits for the host would hold up the start
    }
    {
        const EndpointZeroPass pass;
        usb_gadget_handle_event(usb_link.handle);
    }
    fcntl(fd, F_SETFL, flags);
}

// What the control file has. False when the link is finished.
bool service_endpoint_zero() {
    usb_link.control.revents = 0;
    const int result = poll(&usb_link.control, 1, kPollTimeoutMs);
    if (result < 0 || usb_link.stop.load() != 0) {
        return false;
    }
    if ((usb_link.control.revents & POLLIN) != 0) {
        // A failed read says nothing about the link: the host's next event may be read again.
        usb_gadget_handle_event(usb_link.handle);
    }
    return true;
}

}  // namespace

int gadget_start() {
    std::fprintf(stderr, "Mounting gadgetfs\n");
    for (const char* command : kMountGadgetCommands) {
        [[maybe_unused]] const int status = std::system(command);
    }
    if (gadget_init(kVendorId, kProductId) < 0) {
        std::fprintf(stderr, "Gadget init failed\n");
        return 1;
    }
    return 0;
}

int gadget_init(std::uint16_t vendor_id, std::uint16_t product_id) {
    udp_bridge_open(kBridgePort);  // the camera works without the bridge
    usb_link.fill_count = 0;
    auto* buffer = new (std::nothrow) std::uint8_t[kReceiveBufferSize];
    if (buffer == nullptr) {
        std::fprintf(stderr, "Couldn't allocate memory\n");
        return -1;
    }
    usb_link.receive_buffer.store(buffer, std::memory_order_release);
    usb_link.receiving.store(0, std::memory_order_relaxed);
    usb_link.last_rx_ms.store(clock_ms(), std::memory_order_relaxed);
    usb_link.handle = usb_gadget_open(usb_description(vendor_id, product_id));
    if (usb_link.handle == nullptr) {
        std::fprintf(stderr, "Couldn't open USB device\n");
        return -1;
    }
    std::fprintf(stderr, "USB device opened\n");
    usb_gadget_set_event_cb(usb_link.handle, loopback_event_cb, nullptr);
    usb_gadget_set_debug_level(usb_link.handle, 0);
    usb_link.control.fd = usb_gadget_control_fd(usb_link.handle);
    usb_link.control.events = POLLIN | POLLPRI;
    begin_to_listen();
    if (pthread_mutex_init(&usb_link.mutex, nullptr) != 0) {
        std::fprintf(stderr, "Mutex init failed");
        return -1;
    }
    std::fprintf(stderr, "Gadget init done\n");
    return 0;
}

int gadget_poll() {
    if (gadget_is_receiving()) {
        while (usb_link.busy.load(std::memory_order_relaxed) != 0) {
            usleep(kSpinTime);
        }
    }
    bool goes_on = false;
    {
        const EndpointZeroPass pass;
        goes_on = service_endpoint_zero();
    }
    if (!goes_on) {
        std::fprintf(stderr, "poll error or break!\n");
        return 0;
    }
    return 1;
}

void gadget_exit() {
    usb_link.stop.store(1);
    usb_link.receiving.store(0, std::memory_order_relaxed);
    usb_link.last_rx_ms.store(0, std::memory_order_relaxed);
    // Who is about to send, and the reader, have the pause to let go; a reader that waits in the
    // kernel for the camera is cancelled. Then nobody is left in the buffer and the endpoints.
    usb_link.in_endpoint.store(nullptr, std::memory_order_release);
    std::uint8_t* buffer = usb_link.receive_buffer.exchange(nullptr, std::memory_order_acq_rel);
    usleep(kLeaveTime);
    usb_reader_stop();
    usb_link.out_endpoint.store(nullptr, std::memory_order_release);
    delete[] buffer;
    usb_gadget_close(usb_link.handle);
    pthread_mutex_destroy(&usb_link.mutex);
    std::fprintf(stderr, "Exit gadget\n");
}

bool gadget_is_receiving() {
    return usb_link.receiving.load(std::memory_order_relaxed) != 0;
}

std::uint32_t gadget_last_rx_ms() {
    return usb_link.last_rx_ms.load(std::memory_order_relaxed);
}

void loopback_event_cb(UsbGadgetHandle* handle, const UsbGadgetEvent* event, void* /*argument*/) {
    switch (event->type) {
        case USB_GADGET_EP_ENABLE:
            endpoint_enabled(handle, event->number);
            break;
        case USB_GADGET_EP_DISABLE:
            endpoint_disabled(event->number);
            break;
        case USB_GADGET_DISCONNECT:
            std::fprintf(stderr, "USB disconnected\n");
            usb_reader_stop();
            break;
        default:
            break;
    }
}
