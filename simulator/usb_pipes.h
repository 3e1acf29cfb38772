// The two bulk pipes between a USB host and the receiver's device, whoever the host is: a simulated
// board's or a real one's (usb_host.h). The simulated camera needs nothing else of it.
#pragma once

#include <functional>
#include <optional>
#include <span>

#include "simulator/usb_bus.h"

struct UsbPipes {
    // Sends the bytes in transfers of at most `transfer` bytes. False when the device does not take
    // them in time, or is gone.
    std::function<bool(std::span<const std::uint8_t> bytes, std::size_t transfer,
                       Milliseconds timeout)>
        bulk_out;
    // Waits for the transfer of that index that the device has sent; nullopt when the time is up.
    std::function<std::optional<Bytes>(std::size_t index, Milliseconds timeout)> wait_for_bulk_in;
};

// The pipes of a SimulatedBoard or a UsbHost, which must outlive them.
template <typename Host>
UsbPipes usb_pipes(Host& host) {
    return {
        .bulk_out = [&host](
                        std::span<const std::uint8_t> bytes, std::size_t transfer,
                        Milliseconds timeout) { return host.bulk_out(bytes, transfer, timeout); },
        .wait_for_bulk_in =
            [&host](std::size_t index, Milliseconds timeout) {
                return host.wait_for_bulk_in(index, timeout);
            },
    };
}
