// receiver-monitor as a child process beside the release receiver, on a simulated board with a
// camera that behaves and sends a clip without end.
#pragma once

#include <atomic>
#include <optional>
#include <thread>

#include "simulator/simulated_camera.h"
#include "tests/e2e/e2e_support.h"
#include "tests/monitor/web_client.h"

class MonitorTest : public ReceiverTest {
  protected:
    MonitorTest();
    ~MonitorTest() override;

    // Starts the monitor; its port is known then.
    void start_monitor(std::vector<std::string> arguments = {});
    // Receiver and camera; the camera sends messages from then on.
    void start_camera();
    void end_camera();
    // The clip, again and again, at so many pictures a second.
    void play(int pictures_per_second);
    void stop_playing();

    // Until /api/state contains this text.
    bool state_says(const std::string& text, std::chrono::milliseconds timeout) const;
    std::uint64_t metric(const std::string& name) const;
    // Whether a picture's bytes continue the clip where those of the calls before it ended.
    bool continues_clip(const std::string& bytes, std::size_t* at) const;

    std::string directory;  // of the page, the token and the like
    std::string board_directory;
    std::unique_ptr<ReceiverProcess> monitor;
    std::uint16_t port = 0;
    std::optional<SimulatedCamera> camera;
    const std::string video;

  private:
    std::atomic<bool> plays_{false};
    std::thread player_;
};
