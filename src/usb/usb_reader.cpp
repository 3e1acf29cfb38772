#include "usb/usb_reader.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>

#include "app/millisecond_clock.h"
#include "usb/usb-gadget/usb-gadget.h"
#include "usb/usb_link_state.h"
#include "video/usb_stream_demux.h"

namespace {

constexpr useconds_t kSettleTime = 1000000;  // before the first read
constexpr useconds_t kSpinTime = 1000;       // between two looks at a flag
constexpr std::size_t kReadSize = 512;       // one packet at high speed; too long for full speed
constexpr int kReadTimeoutMs = 1000;         // not used by the device layer
constexpr std::size_t kFillLimit = 49486;    // above it the buffer is emptied

static_assert(kFillLimit + kReadSize <= kReceiveBufferSize);

void close_endpoint(std::atomic<UsbGadgetEndpoint*>& field) {
    // Cleared first, so that no other thread begins to send on an endpoint that is being closed.
    if (UsbGadgetEndpoint* endpoint = field.exchange(nullptr, std::memory_order_acq_rel)) {
        usb_gadget_endpoint_close(endpoint);
    }
}

// Set while a reader is stopped whose endpoints are already a newer configuration's.
std::atomic<bool> superseded;

// Clean-up of the thread. A cancellation unwinds the stack like an exception, so a destructor is
// run by both ways out.
struct EndpointsCloser {
    EndpointsCloser() = default;
    EndpointsCloser(const EndpointsCloser&) = delete;
    EndpointsCloser& operator=(const EndpointsCloser&) = delete;
    ~EndpointsCloser() {
        if (!superseded.load()) {
            close_endpoint(usb_link.in_endpoint);
            close_endpoint(usb_link.out_endpoint);
        }
    }
};

bool stopped() {
    return usb_link.stop.load() != 0;
}

void finish_link() {
    usb_link.receiving.store(0, std::memory_order_relaxed);
    usb_link.stop.store(1);
}

// One packet to the buffer's fill point. While endpoint zero is serviced no read is begun.
ssize_t read_packet(std::uint8_t* buffer) {
    while (usb_link.busy.load(std::memory_order_relaxed) != 0) {
        usleep(kSpinTime);
    }
    usb_link.busy.store(1, std::memory_order_relaxed);
    UsbGadgetEndpoint* endpoint = usb_link.out_endpoint.load(std::memory_order_acquire);
    ssize_t result = -1;
    if (endpoint != nullptr) {
        result = usb_gadget_endpoint_read(endpoint, buffer + usb_link.fill_count, kReadSize,
                                          kReadTimeoutMs);
    }
    usb_link.busy.store(0, std::memory_order_relaxed);
    return result;
}

// Takes the new bytes into account and hands on what is complete. False ends the link. A
// cancellation waits until it is done: the fill count must be right for the next reader, and what
// is called from here may hold a file open.
bool take_packet(std::uint8_t* buffer, std::size_t count) {
    int previous = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    usb_link.fill_count += count;
    usb_link.receiving.store(1, std::memory_order_relaxed);
    usb_link.last_rx_ms.store(clock_ms(), std::memory_order_relaxed);
    // Before the demultiplexer has looked, so an envelope that ends up here is lost even when it is
    // complete. It bounds the envelopes that pass.
    if (usb_link.fill_count > kFillLimit) {
        std::fprintf(stderr, "Buffer overflowed\n");
        usb_link.fill_count = 0;
    }
    const int result = usb_stream_demux(buffer, &usb_link.fill_count);
    pthread_setcancelstate(previous, nullptr);
    return result != -1;
}

void read_until_stopped() {
    while (!stopped()) {
        pthread_testcancel();
        std::uint8_t* buffer = usb_link.receive_buffer.load(std::memory_order_acquire);
        if (stopped() || buffer == nullptr) {
            return;
        }
        const ssize_t result = read_packet(buffer);
        if (result < 1) {
            std::fprintf(stderr, "read failed\n");
            finish_link();
            return;
        }
        if (!take_packet(buffer, static_cast<std::size_t>(result))) {
            finish_link();
            return;
        }
        pthread_testcancel();
    }
}

}  // namespace

void* usb_reader_thread(void* /*unused*/) {
    const EndpointsCloser closer;
    usleep(kSettleTime);
    read_until_stopped();
    while (usb_link.handling_events.load() != 0) {
        usleep(kSpinTime);
    }
    // Leaving by itself: a cancellation from here on must not unwind out of the destructor.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return nullptr;
}

bool usb_reader_start() {
    // A reader that an earlier configuration left waiting must not share the buffer with this one,
    // nor close the endpoints that are open now.
    superseded.store(true);
    usb_reader_stop();
    superseded.store(false);
    if (pthread_create(&usb_link.reader, nullptr, usb_reader_thread, nullptr) != 0) {
        usb_link.reader = 0;
        return false;
    }
    return true;
}

void usb_reader_stop() {
    if (usb_link.reader != 0) {
        pthread_cancel(usb_link.reader);
        pthread_join(usb_link.reader, nullptr);
        usb_link.reader = 0;
    }
}
