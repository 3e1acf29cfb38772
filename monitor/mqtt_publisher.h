// Telemetry for an MQTT broker, on a thread of its own:
//
//   TOPIC/state      the values, one JSON object as /api/state has it; retained
//   TOPIC/presence   "online" while the monitor is there, else "offline", by its last will if need
//                    be; retained
//
// A broker that is away is tried again, less and less often; one that is slow gets fewer states.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "monitor/mqtt_options.h"
#include "monitor/telemetry_store.h"

struct mosquitto;

class MqttPublisher {
  public:
    MqttPublisher(TelemetryStore& store, MqttOptions options);
    ~MqttPublisher();
    MqttPublisher(const MqttPublisher&) = delete;
    MqttPublisher& operator=(const MqttPublisher&) = delete;

    // Both by the thread that made it. Without a host nothing is started.
    void start();
    void stop();

  private:
    using Clock = std::chrono::steady_clock;

    void run();
    void publish_until_stopped();
    bool connect();
    std::vector<std::string> find_addresses() const;
    void stay_connected();
    void publish_state();
    void say_goodbye();
    void pause(Clock::duration time) const;
    void say(const char* joint, const char* what) noexcept;
    static void on_connect(mosquitto* client, void* self, int code);

    TelemetryStore& store_;
    const MqttOptions options_;
    const std::string state_topic_;
    const std::string presence_topic_;
    std::atomic<bool> stop_{false};
    mosquitto* client_ = nullptr;
    std::size_t next_address_ = 0;  // of the broker's, one after the other
    bool connected_ = false;
    bool refused_ = false;    // it was reached, and said no
    std::uint64_t seen_ = 0;  // of the store's changes
    Clock::time_point next_state_;
    std::string last_line_;
    std::thread thread_;
};
