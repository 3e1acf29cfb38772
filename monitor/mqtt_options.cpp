#include "monitor/mqtt_options.h"

#include <charconv>

#include "monitor/first_line.h"

bool take_mqtt_option(int option, const std::string& value, MqttOptions* options) {
    switch (option) {
        case kMqttHost:
            options->host = value;
            return !value.empty();
        case kMqttPort: {
            const char* end = value.data() + value.size();
            const auto [stop, error] = std::from_chars(value.data(), end, options->port);
            return error == std::errc() && stop == end && options->port != 0;
        }
        case kMqttTopic:
            // Of a topic with a wildcard the broker takes nothing.
            options->topic = value;
            return !value.empty() && value.find_first_of("+#") == std::string::npos &&
                   value.back() != '/';
        case kMqttUser:
            options->user = value;
            return !value.empty();
        case kMqttPasswordFile:
            options->password = first_line_of(value);
            return !options->password.empty();
        default:
            return false;
    }
}
