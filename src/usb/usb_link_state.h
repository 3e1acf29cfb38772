// The camera link's process-wide record.
//
// Written by the watchdog thread (endpoint-zero service, shut-down), the USB reader thread, and the
// start-up thread before the watchdog exists; read by every thread that sends to the camera. There
// is no lock: each field is a word of its own, and a reader may see one changed before the other.
// The pointers are published with release and taken with acquire, as what they point to is written
// just before.
#pragma once

#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "usb/usb-gadget/usb-gadget.h"

inline constexpr std::size_t kReceiveBufferSize = 50100;

struct UsbLinkState {
    std::atomic<UsbGadgetEndpoint*> in_endpoint;   // null while not configured
    std::atomic<UsbGadgetEndpoint*> out_endpoint;  // likewise
    pthread_t reader;                              // 0 until started
    std::atomic<int> stop;                         // 1: the link is finished
    std::atomic<int> busy;       // 1 while a bulk read or a poll of endpoint zero goes on
    std::atomic<int> receiving;  // 1 once a bulk read has returned data
    std::atomic<std::uint32_t> last_rx_ms;
    UsbGadgetHandle* handle;
    pollfd control;         // the control file
    pthread_mutex_t mutex;  // guards nothing; a system that cannot make one is refused at start
    std::atomic<std::uint8_t*> receive_buffer;
    std::size_t fill_count;  // bytes held; the reader's alone

    // 1 while a pass over endpoint zero may change the endpoints: a reader that leaves by itself
    // waits for its end before it closes them. Sequentially consistent with `stop`: either the
    // reader sees the pass, or the pass sees the stop.
    std::atomic<int> handling_events;
};

extern UsbLinkState usb_link;
