// bare-reader: the receiver's device with nothing behind it, for comparison. It reads bulk OUT a
// packet at a time, as the receiver does, and throws away what it reads, until the link ends.
// bare-reader [MILLISECONDS]: lets so much time pass before its first look at endpoint zero.

#include <poll.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "app/system_paths.h"
#include "usb/usb-gadget/usb-gadget.h"
#include "usb/usb_description.h"

namespace {

constexpr std::uint16_t kVendorId = 0x18D1;
constexpr std::uint16_t kProductId = 0x2D01;
constexpr std::size_t kPacket = 512;

unsigned endpoints = 0;

void note_event(UsbGadgetHandle* /*handle*/, const UsbGadgetEvent* event, void* /*argument*/) {
    endpoints += event->type == USB_GADGET_EP_ENABLE ? 1 : 0;
}

void handle_event(UsbGadgetHandle* handle) {
    pollfd control = {usb_gadget_control_fd(handle), POLLIN, 0};
    poll(&control, 1, -1);
    usb_gadget_handle_event(handle);
}

}  // namespace

int main(int argc, char** argv) {
    for (const char* command : kMountGadgetCommands) {
        [[maybe_unused]] const int status = std::system(command);
    }
    UsbGadgetHandle* const handle = usb_gadget_open(usb_description(kVendorId, kProductId));
    if (handle == nullptr) {
        return 1;
    }
    usb_gadget_set_event_cb(handle, note_event, nullptr);
    usb_gadget_set_debug_level(handle, 0);
    if (argc > 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(argv[1])));
    }
    while (endpoints < 2) {
        handle_event(handle);
    }
    // The host asks for a string yet before it lets anybody at the device.
    std::thread([handle] {
        for (;;) {
            handle_event(handle);
        }
    }).detach();

    std::fprintf(stderr, "USB connected\n");
    UsbGadgetEndpoint* const out = usb_gadget_endpoint(handle, kOutEndpointNumber);
    static char packet[kPacket];
    while (usb_gadget_endpoint_read(out, packet, sizeof packet, 0) > 0) {
    }
    return 0;
}
