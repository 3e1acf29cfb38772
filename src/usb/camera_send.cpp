#include "usb/camera_send.h"

#include "usb/usb-gadget/usb-gadget.h"
#include "usb/usb_link_state.h"

namespace {

constexpr int kSendTimeoutMs = 20;

}  // namespace

ssize_t camera_send(const std::uint8_t* packet, std::size_t length) {
    UsbGadgetEndpoint* endpoint = usb_link.in_endpoint.load(std::memory_order_acquire);
    if (endpoint == nullptr) {
        return 0;
    }
    return usb_gadget_endpoint_write(endpoint, packet, length, kSendTimeoutMs);
}
