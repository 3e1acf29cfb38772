// A camera that sends as fast as the host moves it, and the main application's look at what comes
// out of the ring: numbered parts, so that a missing or a swapped one is seen.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "client/ring_reader.h"
#include "simulator/usb_host.h"

Bytes numbered_part(std::uint32_t number);

// Sends from the constructor to stop(), or until the device takes no more.
class FullRateStream {
  public:
    explicit FullRateStream(UsbHost& host);
    ~FullRateStream() { stop(); }
    FullRateStream(const FullRateStream&) = delete;
    FullRateStream& operator=(const FullRateStream&) = delete;
    // Returns when the last part is under way, with what completes it.
    void stop();
    // How many parts were sent.
    std::uint32_t sent() const { return sent_; }

  private:
    UsbHost& host_;
    std::atomic<bool> stop_ = false;
    std::atomic<std::uint32_t> sent_ = 0;
    std::thread thread_;
};

// Follows the ring of one process. Opened once that process has made it.
class NumberedParts {
  public:
    NumberedParts();
    // Takes what has come until this many parts have, or the time is up. How many have come: parts
    // 0, 1, 2, ..., each as it was sent, up to the first that is not.
    std::uint32_t wait_for(std::uint32_t parts, std::chrono::milliseconds timeout);
    // The same until a point in time.
    std::uint32_t follow_until(std::chrono::steady_clock::time_point end);
    // Whether a part was missing, or other than it was sent.
    bool damaged() const { return damaged_ || ring_.missed() != 0; }

  private:
    void take();

    RingReader ring_;
    bool primed_ = false;
    bool damaged_ = false;
    std::uint32_t parts_ = 0;
};
