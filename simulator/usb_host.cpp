#include "simulator/usb_host.h"

#include <libusb.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <thread>

#include "simulator/usb_descriptors.h"
#include "simulator/usb_search.h"
#include "simulator/usb_sysfs.h"
#include "simulator/usb_transfers.h"

namespace {

using Clock = UsbTransfers::Clock;

constexpr int kInterface = 0;
constexpr std::size_t kDeviceDescriptorLength = 18;
constexpr std::uint8_t kDeviceToHost = 0x80;
constexpr Milliseconds kBetweenLooks{100};
constexpr Milliseconds kBetweenChecks{20};

timeval one_second() {
    return {.tv_sec = 1, .tv_usec = 0};
}

}  // namespace

struct UsbHost::Impl {
    explicit Impl(UsbHostOptions options)
        : search(options.vendor, options.product), transfers(options.transfers) {}

    void handle_events() const;

    UsbSearch search;
    std::mutex handle_mutex;  // no request while it is closed
    libusb_device_handle* handle = nullptr;
    std::atomic<bool> claimed = false;
    std::atomic<bool> events_end = false;
    std::thread events;
    UsbTransfers transfers;
};

UsbHost::UsbHost(UsbHostOptions options) : impl_(std::make_unique<Impl>(options)) {}

UsbHost::~UsbHost() {
    close();
}

// -- finding

bool UsbHost::find_device() {
    close();
    return impl_->search.look();
}

bool UsbHost::wait_for_device(std::optional<Milliseconds> timeout, const Cancelled& cancelled) {
    const auto start = Clock::now();
    while (!find_device()) {
        if ((cancelled && cancelled()) || (timeout && Clock::now() - start >= *timeout)) {
            return false;
        }
        std::this_thread::sleep_for(kBetweenLooks);
    }
    return true;
}

unsigned UsbHost::bus() const {
    return impl_->search.bus();
}

unsigned UsbHost::address() const {
    return impl_->search.address();
}

std::string UsbHost::sysfs_name() const {
    return impl_->search.name();
}

std::string UsbHost::sysfs_text(const std::string& file) const {
    return impl_->search.name().empty() ? "" : sysfs_line(impl_->search.name(), file);
}

Bytes UsbHost::device_descriptor() const {
    const std::string all = sysfs_bytes(impl_->search.name(), "descriptors");
    return {all.begin(), all.begin() + static_cast<std::ptrdiff_t>(
                                           std::min(all.size(), kDeviceDescriptorLength))};
}

Bytes UsbHost::configuration_descriptor() const {
    const std::string all = sysfs_bytes(impl_->search.name(), "descriptors");
    return configuration_of(Bytes(all.begin(), all.end()), configuration_value());
}

unsigned UsbHost::configuration_value() const {
    return sysfs_number(impl_->search.name(), "bConfigurationValue");
}

// -- opening

void UsbHost::Impl::handle_events() const {
    while (!events_end) {
        timeval timeout = one_second();
        if (libusb_handle_events_timeout_completed(search.context(), &timeout, nullptr) != 0) {
            std::this_thread::sleep_for(kBetweenChecks);  // lest an error that stays spins
        }
    }
}

bool UsbHost::open() {
    close();
    if (impl_->search.device() == nullptr) {
        return false;
    }
    const std::lock_guard lock(impl_->handle_mutex);
    // The kernel lets nobody open a device in the middle of its configure step.
    if (!usb_succeeded(libusb_open(impl_->search.device(), &impl_->handle),
                       "cannot open " + impl_->search.name())) {
        impl_->handle = nullptr;
        return false;
    }
    impl_->events_end = false;
    impl_->events = std::thread([this] { impl_->handle_events(); });
    return true;
}

bool UsbHost::claim() {
    const std::lock_guard lock(impl_->handle_mutex);
    if (impl_->handle == nullptr || impl_->claimed) {
        return impl_->claimed;
    }
    const Bytes configuration = configuration_descriptor();
    if (!has_bulk_endpoint(configuration, kInterface, kUsbHostOutEndpoint) ||
        !has_bulk_endpoint(configuration, kInterface, kUsbHostInEndpoint)) {
        fprintf(stderr, "usb host: %s has not the bulk endpoints %02x and %02x\n",
                impl_->search.name().c_str(), kUsbHostOutEndpoint, kUsbHostInEndpoint);
        return false;
    }
    impl_->claimed = usb_succeeded(libusb_claim_interface(impl_->handle, kInterface),
                                   "cannot claim the interface of " + impl_->search.name());
    if (impl_->claimed) {
        impl_->transfers.begin(impl_->handle);
    }
    return impl_->claimed;
}

void UsbHost::release() {
    const std::lock_guard lock(impl_->handle_mutex);
    if (impl_->claimed) {
        impl_->claimed = false;
        impl_->transfers.end();
        libusb_release_interface(impl_->handle, kInterface);
    }
}

void UsbHost::close() {
    release();
    const std::lock_guard lock(impl_->handle_mutex);
    if (impl_->handle == nullptr) {
        return;
    }
    impl_->events_end = true;
    libusb_interrupt_event_handler(impl_->search.context());
    impl_->events.join();
    libusb_close(impl_->handle);
    impl_->handle = nullptr;
}

// The kernel's number of the device tells it from another on the same port.
bool UsbHost::gone() const {
    return impl_->search.device() == nullptr ||
           (impl_->claimed && impl_->transfers.met_no_device()) ||
           sysfs_number(impl_->search.name(), "devnum") != impl_->search.address();
}

bool UsbHost::wait_until_gone(Milliseconds timeout) const {
    const auto deadline = Clock::now() + timeout;
    while (!gone()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(kBetweenChecks);
    }
    return true;
}

// -- endpoint zero

ControlResult UsbHost::control(const SetupPacket& setup, Bytes data_out, Milliseconds timeout) {
    const std::lock_guard lock(impl_->handle_mutex);
    if (impl_->handle == nullptr) {
        return {.status = ControlStatus::kGone, .data = {}};
    }
    Bytes data = std::move(data_out);
    data.resize(setup.length);
    // For libusb, no time at all would mean no limit.
    const auto limit = static_cast<unsigned>(std::max<Milliseconds::rep>(timeout.count(), 1));
    const int result =
        libusb_control_transfer(impl_->handle, setup.request_type, setup.request, setup.value,
                                setup.index, data.data(), setup.length, limit);
    switch (result) {
        case LIBUSB_ERROR_PIPE:
            return {.status = ControlStatus::kStalled, .data = {}};
        case LIBUSB_ERROR_TIMEOUT:
            return {.status = ControlStatus::kTimedOut, .data = {}};
        default:
            break;
    }
    if (result < 0) {  // a request that breaks off does so because the device is leaving
        return {.status = ControlStatus::kGone, .data = {}};
    }
    data.resize((setup.request_type & kDeviceToHost) != 0 ? static_cast<std::size_t>(result) : 0);
    return {.status = ControlStatus::kAcknowledged, .data = std::move(data)};
}

bool UsbHost::reset() {
    const std::lock_guard lock(impl_->handle_mutex);
    if (impl_->handle == nullptr) {
        return false;
    }
    if (impl_->claimed) {
        impl_->transfers.end();
    }
    if (!usb_succeeded(libusb_reset_device(impl_->handle), "reset of " + impl_->search.name())) {
        return false;
    }
    if (impl_->claimed) {
        impl_->transfers.begin(impl_->handle);
    }
    return true;
}

// -- bulk pipes

bool UsbHost::bulk_out(std::span<const std::uint8_t> bytes, std::size_t transfer,
                       Milliseconds timeout) {
    const std::size_t largest = std::clamp<std::size_t>(transfer, 1, kUsbHostTransfer);
    return impl_->transfers.send(bytes, largest, timeout);
}

bool UsbHost::bulk_out_empty(Milliseconds timeout) {
    return impl_->transfers.send_empty(timeout);
}

bool UsbHost::wait_for_bulk_out_taken(Milliseconds timeout) {
    return impl_->transfers.wait_for_taken(timeout);
}

std::vector<Bytes> UsbHost::bulk_in() const {
    return impl_->transfers.received();
}

std::optional<Bytes> UsbHost::wait_for_bulk_in(std::size_t index, Milliseconds timeout) {
    return impl_->transfers.wait_for_received(index, timeout);
}

void UsbHost::hold_bulk_in(bool hold) {
    impl_->transfers.hold_in(hold);
}
