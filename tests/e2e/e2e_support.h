// What the end-to-end tests share: a board, the receiver on it, and the ring it leaves.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client/ring_reader.h"
#include "simulator/camera_stream.h"
#include "simulator/simulated_board.h"
#include "tests/e2e/receiver_process.h"
#include "tests/e2e/udp_peer.h"

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

// What the receiver prints from its start until the camera's handle may come.
inline constexpr char kLinesBeforeOptions[] =
    "DJI Osmo Pro/RAW Wired USB receiver\n"
    "Board model: Raspberry Pi 4 Model B Rev 1.4\n"
    "Board supported\n"
    "Loading camera config file... failed\n";
inline constexpr char kLinesOfTheBuffers[] =
    "Init telemetry buffer\n"
    "Init frame buffer 60003624 bytes\n"
    "Init frame buffer for transcoding 13003624 bytes\n";
inline constexpr char kLineOfTheRemoteControl[] = "Creating new shared raw RC\n";
inline constexpr char kLinesOfTheDevice[] =
    "Mounting gadgetfs\n"
    "USB device opened\n"
    "Gadget init done\n";
inline const std::string kStartLines = std::string(kLinesBeforeOptions) + kLinesOfTheBuffers +
                                       kLineOfTheRemoteControl + kLinesOfTheDevice;

// Every test starts without the shared-memory objects and leaves none.
class ReceiverTest : public testing::Test {
  protected:
    ReceiverTest();
    ~ReceiverTest() override;

    // Makes the board, and starts the receiver on it.
    void start(const std::vector<std::string>& arguments = {}, SimulatedBoardOptions options = {});
    // The same for tests that put something into the board's directory before the start.
    SimulatedBoard& make_board(SimulatedBoardOptions options = {});
    void start_on_board(const std::vector<std::string>& arguments = {});
    // Waits until the device is there and the receiver has looked for events, which it does before
    // it says that it is ready: from then on the kernel leaves control requests to it. A host that
    // asks earlier, which takes a receiver that is kept from the processor, is not heard.
    bool wait_for_device();
    // Starts it and takes it to where the reader thread takes bulk data.
    void start_configured(const std::vector<std::string>& arguments = {});

    // Takes the link to where data flows, and the time-out of silence begins anew.
    void start_receiving();
    // Waits for the end of a finished link: the start's lines, these, then the end's.
    void expect_link_end(const std::string& lines);

    // How many of the packets that the receiver has sent a camera would refuse.
    unsigned refused_packets() const;

    std::string file(const std::string& place) const;
    void write_file(const std::string& place, const std::string& text) const;

    std::unique_ptr<SimulatedBoard> board;
    std::unique_ptr<ReceiverProcess> receiver;
};

// A camera that has nothing to say: its fillers keep the link in use, so that the receiver's
// time-out does not measure how fast the test is.
class IdleCamera {
  public:
    // The first filler is on its way when it is made.
    explicit IdleCamera(SimulatedBoard& board);
    ~IdleCamera();
    IdleCamera(const IdleCamera&) = delete;
    IdleCamera& operator=(const IdleCamera&) = delete;

  private:
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// One of the clips that the encoder made when the tests started.
Bytes clip(const std::string& name);

// Collects parts from the ring until there are this many, or the time is up.
std::vector<Bytes> parts_from_ring(std::size_t count, std::chrono::milliseconds timeout);
