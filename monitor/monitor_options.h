// The command line of receiver-monitor. Reentrant.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "monitor/mqtt_options.h"

struct MonitorOptions {
    std::string listen_address = "127.0.0.1";
    std::uint16_t listen_port = 8080;  // 0: any free one
    std::string token;                 // empty: none is asked for
    std::string receiver_host;         // an IPv4 address; empty: the receiver of this machine
    std::uint16_t receiver_port = 0;   // 0: where the reports come from
    std::uint16_t telemetry_port = 5000;
    std::string page = RECEIVER_MONITOR_PAGE;
    std::string recordings;  // a directory; empty: nothing is recorded
    std::string run_directory = "/run/vantarel";
    MqttOptions mqtt;
};

// nullopt where there is nothing to run, after a message; *status is then the exit status.
std::optional<MonitorOptions> parse_monitor_options(int argc, char* argv[], int* status);
