// Sends a file as the simulated camera's video, between its messages, at its pace. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "simulator/simulated_camera.h"
#include "simulator/simulator_options.h"

class CameraPlayer {
  public:
    using Clock = std::chrono::steady_clock;

    CameraPlayer(SimulatedCamera& camera, const SimulatorOptions& options)
        : camera_(camera), options_(options) {}

    // Reads the file and lays out what is sent. False after a message.
    bool load();
    // The pace counts from now; what was lost meanwhile is not caught up.
    void start();

    // Sends what is due, at most one piece. False when the device does not take it.
    bool play();
    // When the next piece is due, now or earlier where one waits.
    Clock::time_point next_due() const { return due_; }
    // Whether the whole file has gone out.
    bool finished() const { return next_ == pieces_.size(); }

    // A burst of bytes that are neither video nor packets.
    bool send_garbage();

    std::uint64_t bytes() const { return bytes_; }
    std::uint64_t chunks() const { return chunks_; }

  private:
    struct Piece {  // a picture, or some bytes of a raw file
        Bytes bytes;
        unsigned chunks;
    };

    void lay_out_video(const Bytes& file);
    void lay_out_raw(const Bytes& file);
    bool send(const Bytes& bytes);

    SimulatedCamera& camera_;
    const SimulatorOptions& options_;
    std::vector<Piece> pieces_;
    std::size_t next_ = 0;
    Clock::time_point due_;
    std::uint64_t bytes_ = 0;
    std::uint64_t chunks_ = 0;
};
