// The bulk transfers of one claimed interface: several on OUT at a time, in order, and one that is
// always pending on IN. What UsbHost promises of its bulk pipes is done here; the functions may be
// called from any thread while another handles libusb's events, but for begin() and end(), which
// belong to one.
#pragma once

#include <libusb.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "simulator/usb_bus.h"

class UsbTransfers {
  public:
    using Clock = std::chrono::steady_clock;

    explicit UsbTransfers(std::size_t out_count);
    UsbTransfers(const UsbTransfers&) = delete;
    UsbTransfers& operator=(const UsbTransfers&) = delete;

    // In pairs: an end() behind the last begin().
    void begin(libusb_device_handle* handle);
    void end();  // cancels what is in flight and waits for it
    // Whether a transfer has met a device that is no longer there, since begin().
    bool met_no_device() const;

    // See UsbHost::bulk_out and its neighbours.
    bool send(std::span<const std::uint8_t> bytes, std::size_t largest, Milliseconds timeout);
    bool send_empty(Milliseconds timeout);
    bool wait_for_taken(Milliseconds timeout);

    std::vector<Bytes> received() const;
    std::optional<Bytes> wait_for_received(std::size_t index, Milliseconds timeout);
    void hold_in(bool hold);

  private:
    struct OutTransfer {
        UsbTransfers* owner = nullptr;
        libusb_transfer* transfer = nullptr;
        Bytes bytes;
        bool in_flight = false;
    };

    bool send_one(std::span<const std::uint8_t> bytes, Clock::time_point deadline);
    static void LIBUSB_CALL out_ended(libusb_transfer* transfer);
    static void LIBUSB_CALL in_ended(libusb_transfer* transfer);

    // With the mutex held:
    bool can_send() const { return running_ && !out_failed_; }
    bool any_in_flight() const;
    OutTransfer* free_transfer();
    void cancel_out();
    void submit_in();
    void note(int error);

    std::mutex one_sender_;  // the bytes of one call stay together
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    libusb_device_handle* handle_ = nullptr;
    bool running_ = false;
    bool no_device_ = false;

    std::vector<OutTransfer> out_;
    bool out_failed_ = false;

    libusb_transfer* in_ = nullptr;
    Bytes in_bytes_;
    bool in_pending_ = false;
    bool in_held_ = false;
    std::vector<Bytes> received_;
};
