// A camera that behaves, at the host's end of a simulated board or a real port: a thread of its own
// takes every packet that the receiver sends, lets it act on the camera model, moves the model's
// time, and sends the messages that are due. The functions may be called from any thread.
//
//   camera.set("iso_set", "400");
//   camera.wait_for("record", "recording", Milliseconds(5000));
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "simulator/camera_commands.h"
#include "simulator/camera_model.h"
#include "simulator/simulated_board.h"
#include "simulator/status_messages.h"
#include "simulator/usb_pipes.h"

struct SimulatedCameraOptions {
    std::size_t transfer = 512;       // bytes of a USB transfer
    Milliseconds send_timeout{5000};  // as long as the receiver bears silence
    bool messages = true;             // whether it sends any
};

class SimulatedCamera {
  public:
    explicit SimulatedCamera(UsbPipes pipes, SimulatedCameraOptions options = {});
    explicit SimulatedCamera(SimulatedBoard& board, SimulatedCameraOptions options = {});
    ~SimulatedCamera();
    SimulatedCamera(const SimulatedCamera&) = delete;
    SimulatedCamera& operator=(const SimulatedCamera&) = delete;

    // The device is configured: messages go out from now on, all kinds at once, and the receiver's
    // sequence numbers may begin anywhere.
    void link_begins();
    // No messages any more. What the receiver sends is still taken.
    void link_ends();

    // Sends bytes of the stream, whole envelopes, between the messages. False when the device does
    // not take them.
    bool send(std::span<const std::uint8_t> envelopes);

    // The model's values by name, see camera_values.h.
    bool set(const std::string& name, const std::string& text);
    std::optional<std::string> get(const std::string& name) const;
    // Until the value is this text; false when the time is up first.
    bool wait_for(const std::string& name, const std::string& text, Milliseconds timeout) const;
    CameraModel model() const;
    bool is_off() const;

    CommandCounts counts() const;
    unsigned taken(const std::string& command) const;
    unsigned refused() const;
    bool wait_for_taken(const std::string& command, unsigned count, Milliseconds timeout) const;

  private:
    void live();
    void take_packets();
    void send_messages();
    bool flush_messages();
    template <typename Condition>
    bool wait_until(Milliseconds timeout, Condition condition) const;

    const UsbPipes pipes_;
    const SimulatedCameraOptions options_;

    mutable std::mutex model_mutex_;
    mutable std::condition_variable changed_;
    CameraModel model_;
    CommandReceiver commands_{model_};
    MessageSchedule schedule_;
    Milliseconds now_{0};
    bool sends_ = false;
    bool stop_ = false;
    Bytes messages_;  // envelopes that wait for the wire

    std::mutex wire_mutex_;  // one writer: an envelope is never cut by another's
    std::size_t packets_seen_ = 0;
    std::thread thread_;
};
