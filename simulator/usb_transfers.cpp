#include "simulator/usb_transfers.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

#include "simulator/usb_host.h"

namespace {

// A packet at high speed: what the device writes comes as it was written.
constexpr std::size_t kInTransfer = 512;

libusb_transfer* new_transfer() {
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    if (transfer == nullptr) {
        throw std::bad_alloc();
    }
    return transfer;
}

}  // namespace

UsbTransfers::UsbTransfers(std::size_t out_count)
    : out_(std::max<std::size_t>(out_count, 1)), in_bytes_(kInTransfer) {
    for (OutTransfer& each : out_) {
        each.owner = this;
    }
}

void UsbTransfers::begin(libusb_device_handle* handle) {
    const std::lock_guard lock(mutex_);
    handle_ = handle;
    for (OutTransfer& each : out_) {
        each.transfer = new_transfer();
    }
    in_ = new_transfer();
    running_ = true;
    no_device_ = false;
    out_failed_ = false;
    submit_in();
}

// A transfer keeps hold of its device, which must not outlive libusb's context: all are freed here.
void UsbTransfers::end() {
    std::unique_lock lock(mutex_);
    running_ = false;
    changed_.notify_all();
    cancel_out();
    if (in_pending_) {
        libusb_cancel_transfer(in_);
    }
    changed_.wait(lock, [this] { return !any_in_flight() && !in_pending_; });
    for (OutTransfer& each : out_) {
        libusb_free_transfer(std::exchange(each.transfer, nullptr));
    }
    libusb_free_transfer(std::exchange(in_, nullptr));
}

bool UsbTransfers::met_no_device() const {
    const std::lock_guard lock(mutex_);
    return no_device_;
}

void UsbTransfers::note(int error) {
    no_device_ = no_device_ || error == LIBUSB_ERROR_NO_DEVICE;
}

// -- bulk OUT

bool UsbTransfers::any_in_flight() const {
    return std::ranges::any_of(out_, &OutTransfer::in_flight);
}

UsbTransfers::OutTransfer* UsbTransfers::free_transfer() {
    const auto free = std::ranges::find(out_, false, &OutTransfer::in_flight);
    return free == out_.end() ? nullptr : &*free;
}

void UsbTransfers::cancel_out() {
    for (const OutTransfer& each : out_) {
        if (each.in_flight) {
            libusb_cancel_transfer(each.transfer);
        }
    }
}

bool UsbTransfers::send(std::span<const std::uint8_t> bytes, std::size_t largest,
                        Milliseconds timeout) {
    const std::lock_guard whole_call(one_sender_);
    const auto deadline = Clock::now() + timeout;
    while (!bytes.empty()) {
        const auto piece = bytes.first(std::min(bytes.size(), largest));
        if (!send_one(piece, deadline)) {
            return false;
        }
        bytes = bytes.subspan(piece.size());
    }
    const std::lock_guard lock(mutex_);
    return can_send();
}

bool UsbTransfers::send_empty(Milliseconds timeout) {
    const std::lock_guard whole_call(one_sender_);
    return send_one({}, Clock::now() + timeout);
}

bool UsbTransfers::send_one(std::span<const std::uint8_t> bytes, Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, deadline,
                        [this] { return !can_send() || free_transfer() != nullptr; });
    OutTransfer* const free = free_transfer();
    if (!can_send() || free == nullptr) {
        return false;
    }
    free->bytes.assign(bytes.begin(), bytes.end());
    libusb_fill_bulk_transfer(free->transfer, handle_, kUsbHostOutEndpoint, free->bytes.data(),
                              static_cast<int>(free->bytes.size()), out_ended, free, 0);
    const int error = libusb_submit_transfer(free->transfer);
    free->in_flight = error == 0;
    out_failed_ = error != 0;
    note(error);
    return error == 0;
}

void UsbTransfers::out_ended(libusb_transfer* transfer) {
    auto* const out = static_cast<OutTransfer*>(transfer->user_data);
    UsbTransfers& self = *out->owner;
    const std::lock_guard lock(self.mutex_);
    out->in_flight = false;
    if (transfer->status != LIBUSB_TRANSFER_COMPLETED) {
        // Those behind it would leave a gap in the stream: they go with it.
        self.out_failed_ = true;
        self.no_device_ = self.no_device_ || transfer->status == LIBUSB_TRANSFER_NO_DEVICE;
        self.cancel_out();
    }
    self.changed_.notify_all();
}

bool UsbTransfers::wait_for_taken(Milliseconds timeout) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, timeout, [this] { return !can_send() || !any_in_flight(); });
    return can_send() && !any_in_flight();
}

// -- bulk IN

void UsbTransfers::submit_in() {
    if (in_held_ || in_pending_) {
        return;
    }
    libusb_fill_bulk_transfer(in_, handle_, kUsbHostInEndpoint, in_bytes_.data(),
                              static_cast<int>(in_bytes_.size()), in_ended, this, 0);
    const int error = libusb_submit_transfer(in_);
    in_pending_ = error == 0;
    note(error);
    if (error != 0) {
        fprintf(stderr, "usb host: bulk IN is not read: %s\n", libusb_error_name(error));
    }
}

void UsbTransfers::in_ended(libusb_transfer* transfer) {
    UsbTransfers& self = *static_cast<UsbTransfers*>(transfer->user_data);
    const std::lock_guard lock(self.mutex_);
    self.in_pending_ = false;
    // One that was cancelled may have been filled before.
    if (transfer->status == LIBUSB_TRANSFER_COMPLETED || transfer->actual_length > 0) {
        const auto* const bytes = self.in_bytes_.data();
        self.received_.emplace_back(bytes, bytes + transfer->actual_length);
    }
    self.no_device_ = self.no_device_ || transfer->status == LIBUSB_TRANSFER_NO_DEVICE;
    const bool broken = transfer->status != LIBUSB_TRANSFER_COMPLETED &&
                        transfer->status != LIBUSB_TRANSFER_CANCELLED;
    if (broken) {
        fprintf(stderr, "usb host: reading bulk IN ended with status %d\n", transfer->status);
    } else if (self.running_) {
        self.submit_in();
    }
    self.changed_.notify_all();
}

std::vector<Bytes> UsbTransfers::received() const {
    const std::lock_guard lock(mutex_);
    return received_;
}

std::optional<Bytes> UsbTransfers::wait_for_received(std::size_t index, Milliseconds timeout) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, timeout, [&] { return received_.size() > index; })) {
        return std::nullopt;
    }
    return received_[index];
}

void UsbTransfers::hold_in(bool hold) {
    std::unique_lock lock(mutex_);
    in_held_ = hold;
    if (!hold && running_) {
        submit_in();
    } else if (hold && in_pending_) {
        libusb_cancel_transfer(in_);
        changed_.wait(lock, [this] { return !in_pending_; });
    }
}
