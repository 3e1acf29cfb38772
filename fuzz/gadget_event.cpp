// Endpoint zero: the events and requests of any host, on a gadgetfs whose calls fail at any place,
// through the camera link's own service of it.
//
//   byte:  0                     1 ..
//          failures up to there  steps, each with its kind:
//
//   0..9  a pass with an event of that row of the table
//   10    a pass with events of the input: count(8 bits) of bytes, bytes
//   11    a pass whose read fails
//   12    the reader leaves: it closes both endpoints
//   13    a packet to the camera: length(16 bits)
//   14    the debug level: 8 bits
//   15    a reader cannot be started from here on
//
// The first byte says how many bytes from the input's end decide on failing calls.
#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "fuzz/event_files.h"
#include "fuzz/fuzz_check.h"
#include "fuzz/input.h"
#include "fuzz/log.h"
#include "fuzz/receiver_end.h"
#include "link/udp_bridge.h"
#include "usb/camera_send.h"
#include "usb/gadget.h"
#include "usb/usb_link_state.h"
#include "usb/usb_reader.h"

namespace {

// clang-format off
constexpr std::uint8_t kEvents[][12] = {
    {3, 0, 0, 0, 0, 0, 0, 0, 1},             // connect at high speed
    {2, 0, 0, 0, 0, 0, 0, 0, 1},             // at full speed
    {0, 0, 0, 0, 0, 0, 0, 0, 2},             // disconnect
    {0, 0, 0, 0, 0, 0, 0, 0, 4},             // suspend
    {0x00, 9, 2, 0, 0, 0, 0, 0, 3},          // SET_CONFIGURATION 2
    {0x00, 9, 0, 0, 0, 0, 0, 0, 3},          // SET_CONFIGURATION 0
    {0x80, 6, 250, 3, 9, 4, 255, 0, 3},      // string 250
    {0x80, 6, 0, 2, 0, 0, 9, 0, 3},          // configuration descriptor
    {0x81, 10, 0, 0, 0, 0, 1, 0, 3},         // GET_INTERFACE
    {0x01, 11, 0, 0, 0, 0, 0, 0, 3},         // SET_INTERFACE
};
// clang-format on

bool reader_runs = false;
bool reader_can_start = true;

// The reader's own end: whatever field is set is cleared, and its endpoint closed.
void reader_leaves() {
    for (auto* field : {&usb_link.in_endpoint, &usb_link.out_endpoint}) {
        if (UsbGadgetEndpoint* const endpoint = field->exchange(nullptr)) {
            usb_gadget_endpoint_close(endpoint);
        }
    }
    reader_runs = false;
}

void check_endpoint(const UsbGadgetEndpoint* endpoint) {
    FUZZ_CHECK(endpoint->name != nullptr && event_file_is_open(endpoint->fd));
    FUZZ_CHECK(endpoint->next->previous == endpoint && endpoint->previous->next == endpoint);
}

// The ring of endpoints holds each open file but the control file once; the link's fields point
// into it.
void check_endpoints() {
    const UsbGadgetEndpoint* const head = &usb_link.handle->endpoints;
    const UsbGadgetEndpoint* const in = usb_link.in_endpoint;
    const UsbGadgetEndpoint* const out = usb_link.out_endpoint;
    std::size_t count = 0;
    bool in_is_there = in == nullptr;
    bool out_is_there = out == nullptr;
    for (const auto* endpoint = head->next; endpoint != head; endpoint = endpoint->next) {
        check_endpoint(endpoint);
        in_is_there = in_is_there || endpoint == in;
        out_is_there = out_is_there || endpoint == out;
        ++count;
    }
    FUZZ_CHECK(in_is_there && out_is_there);
    FUZZ_CHECK(count + 1 == event_files_open());
}

void pass(const Bytes* events) {
    event_files_send(events);
    gadget_poll();
    event_files_send(nullptr);
    event_files_check_answered();
    check_endpoints();
    FUZZ_CHECK(usb_link.busy == 0 && usb_link.handling_events == 0);
}

void send_packet(std::size_t length) {
    const Bytes packet(length, 0x55);
    const bool connected = usb_link.in_endpoint.load() != nullptr;
    const bool high_speed = usb_link.handle->speed == kUsbSpeedHigh;
    const ssize_t sent = camera_send(packet.data(), packet.size());
    if (!connected) {
        FUZZ_CHECK(sent == 0);
    } else {
        FUZZ_CHECK(sent == -1 ||
                   (sent == static_cast<ssize_t>(length) && length <= (high_speed ? 512U : 64U)));
    }
}

void step(Input& input) {
    const unsigned kind = input.byte() % 16;
    if (kind < std::size(kEvents)) {
        const Bytes events(std::begin(kEvents[kind]), std::end(kEvents[kind]));
        pass(&events);
        return;
    }
    switch (kind) {
        case 10: {
            const Bytes events = input.bytes(input.byte());
            pass(&events);
            break;
        }
        case 11:
            pass(nullptr);
            break;
        case 12:
            reader_leaves();
            check_endpoints();
            break;
        case 13:
            send_packet(input.word() % 1024);
            break;
        case 14:
            usb_gadget_set_debug_level(usb_link.handle, input.byte() % 4);
            break;
        default:
            reader_can_start = false;
            break;
    }
}

// What the receiver keeps until its end.
void free_device(UsbGadgetHandle* handle) {
    while (UsbGadgetEndpoint* const endpoint = handle->closed) {
        handle->closed = endpoint->next;
        delete endpoint;
    }
    delete handle;
}

void reset_link() {
    event_files_reset();
    reader_runs = false;
    reader_can_start = true;
    usb_link.in_endpoint = nullptr;
    usb_link.out_endpoint = nullptr;
    usb_link.stop = 0;
    usb_link.busy = 0;
    usb_link.handling_events = 0;
    usb_link.handle = nullptr;
}

void run_steps(Input& input) {
    try {
        while (!input.empty()) {
            step(input);
        }
    } catch (const ReceiverEnd& end) {
        // Without a reader there is no link.
        FUZZ_CHECK(end.why == "0" && !reader_can_start);
    }
}

}  // namespace

// -- in place of the bridge and of the reader thread
// -----------------------------------------------

int udp_bridge_open(std::uint16_t /*port*/) {
    return 0;
}

bool usb_reader_start() {
    reader_runs = reader_can_start;
    return reader_can_start;
}

// A reader that is stopped closes its endpoints.
void usb_reader_stop() {
    if (reader_runs) {
        reader_leaves();
    }
}

extern "C" {
int LLVMFuzzerInitialize(int* argument_count, char*** arguments);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

int usleep(useconds_t /*time*/) {
    return 0;
}

int LLVMFuzzerInitialize(int* /*argument_count*/, char*** /*arguments*/) {
    record_log();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    reset_link();
    const std::size_t failing = size > 0 ? std::min<std::size_t>(data[0], size - 1) : 0;
    Input failures(data + size - failing, failing);
    Input input(data, size - failing);
    input.byte();

    event_files_fail_by(&failures);
    const bool opened = gadget_init(0x18D1, 0x2D01) == 0;
    if (opened) {
        run_steps(input);
    }
    event_files_fail_by(nullptr);
    if (opened) {
        UsbGadgetHandle* const handle = usb_link.handle;
        gadget_exit();
        FUZZ_CHECK(usb_link.in_endpoint == nullptr && usb_link.out_endpoint == nullptr);
        FUZZ_CHECK(usb_gadget_close(handle) == -1);
        free_device(handle);
    } else {
        FUZZ_CHECK(usb_link.handle == nullptr);
        delete[] usb_link.receive_buffer.exchange(nullptr);
    }
    FUZZ_CHECK(event_files_open() == 0);
    take_log();
    return 0;
}
