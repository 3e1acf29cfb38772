// A board that the receiver can run on without hardware: a directory that stands for the few
// absolute places it touches, the kernel's side of gadgetfs, and the USB host behind it.
//
// The receiver runs unmodified with environment() around it: a preloaded library sends its gadgetfs
// files here over a Unix socket, and stand-ins for the shell commands stand first in its PATH. One
// receiver at a time. The functions may be called from any thread; a thread of the board's own
// serves the receiver.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/usb_bus.h"

// Linux's host with a new device, counted from the device's description. A connection must have
// lasted 100 ms (USB 2.0, 7.1.7.3) before the port is reset, which is what the device is told of.
// Resets, the address and the descriptors, which the kernel answers by itself, take until 420 ms;
// then follow the requests of which a process should hear, one upon the other's answer.
inline constexpr Milliseconds kHostConnectsAfter{100};
inline constexpr Milliseconds kHostAsksAfter{420};

struct SimulatedBoardOptions {
    std::string root = {};  // directory of the run; empty: a new one under /tmp, removed at the end
    std::string board_model = "Raspberry Pi 4 Model B Rev 1.4";
    std::string controller = "fe980000.usb";
    bool with_run_directory = true;  // whether /run/vantarel exists
    Milliseconds host_connects_after = kHostConnectsAfter;
    Milliseconds host_asks_after = kHostAsksAfter;
};

class SimulatedBoard {
  public:
    explicit SimulatedBoard(SimulatedBoardOptions options = {});
    ~SimulatedBoard();
    SimulatedBoard(const SimulatedBoard&) = delete;
    SimulatedBoard& operator=(const SimulatedBoard&) = delete;

    const std::string& root() const;
    // Path under root of an absolute place, e.g. "/run/vantarel/video_width".
    std::string path(const std::string& place) const;
    // "NAME=value" texts that a receiver process needs on top of its environment.
    std::vector<std::string> environment() const;
    // Command lines that met a stand-in, oldest first, e.g. "modprobe gadgetfs".
    std::vector<std::string> shell_commands() const;

    // -- the kernel's side ----------------------------------------------------------------------
    // Waits until the process has written an accepted device description.
    bool wait_for_device(Milliseconds timeout);
    // The description as written: tag, descriptor lists, device descriptor.
    Bytes device_description() const;
    // The configuration record that was written to an endpoint file (18 or 11 bytes); empty while
    // it is not open.
    Bytes endpoint_record(const std::string& file) const;
    int clear_halt_count(const std::string& file) const;
    // The next read of the control file returns this instead of what the kernel would say.
    void inject_control_read(Bytes bytes);
    void inject_control_error(int error_number);
    // Sends bytes of a device-to-host reply exactly as the process wrote them (before the cut to
    // wLength): the last such write.
    Bytes last_control_write() const;

    // -- the USB host's side --------------------------------------------------------------------
    // It does not wait for the process. Until that has read the control file once, the kernel
    // acknowledges SET_CONFIGURATION by itself and stalls strings, and the process never hears of
    // either.
    // Queues the connect event; for a new device not before the host sees it.
    void connect(UsbSpeed speed = UsbSpeed::kHigh);
    void disconnect();  // queues the disconnect event; pending bulk transfers fail
    void reset();       // disconnect and connect at the same speed
    void suspend();
    // A request to a new device waits for the host's time first; the time-out begins then.
    ControlResult control(const SetupPacket& setup, Bytes data_out = {},
                          Milliseconds timeout = Milliseconds(5000));
    // The same, but the process is asked also what the kernel would answer by itself.
    ControlResult control_to_process(const SetupPacket& setup, Bytes data_out = {},
                                     Milliseconds timeout = Milliseconds(5000));
    // connect() at the speed, then SET_CONFIGURATION 2 alone; true once it is acknowledged.
    bool configure(UsbSpeed speed = UsbSpeed::kHigh);
    // What a Linux host does: connect, disconnect, connect, strings 0, 45, 25, 101,
    // SET_CONFIGURATION 2, string 250 twice. True when all was answered.
    bool enumerate(UsbSpeed speed = UsbSpeed::kHigh);

    // Bulk OUT: the bytes cut into transfers of at most `transfer` (1..512) bytes. Blocks while the
    // device does not take them; false when the endpoint is closed or the time is up.
    bool bulk_out(std::span<const std::uint8_t> bytes, std::size_t transfer = 512,
                  Milliseconds timeout = Milliseconds(10000));
    // One transfer of no bytes.
    bool bulk_out_empty();
    // The device's pending (or next) bulk OUT read fails with this errno.
    void fail_bulk_out(int error_number);
    // Waits until the device has read all that was sent.
    bool wait_for_bulk_out_taken(Milliseconds timeout);
    // Waits until the process holds both bulk endpoints open.
    bool wait_for_endpoints(Milliseconds timeout);

    // Bulk IN: every transfer that the device has sent, oldest first, each as one packet.
    std::vector<Bytes> bulk_in() const;
    // Waits for the transfer of that index; nullopt when the time is up.
    std::optional<Bytes> wait_for_bulk_in(std::size_t index, Milliseconds timeout);
    // Whether the host leaves bulk IN unread: the device's writes soon block.
    void hold_bulk_in(bool hold);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
