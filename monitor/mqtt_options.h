// The broker that telemetry goes to, as options of receiver-monitor have it. Reentrant.
#pragma once

#include <cstdint>
#include <string>

struct MqttOptions {
    std::string host;  // empty: there is none
    std::uint16_t port = 1883;
    std::string topic = "camera";
    std::string user;
    std::string password;
};

// What getopt_long gives for these options, which have no letter.
enum MqttOption : int { kMqttHost = 256, kMqttPort, kMqttTopic, kMqttUser, kMqttPasswordFile };

// False where it is none of them, or the value is wrong.
bool take_mqtt_option(int option, const std::string& value, MqttOptions* options);
