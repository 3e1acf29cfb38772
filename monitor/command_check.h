// Whether a browser's text is a command that the receiver knows, by its shape: an object of texts,
// a known command and word, and as many values as that takes. Whether the camera takes the values
// is the camera's to say. Reentrant.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct cJSON;

struct CheckedCommand {
    std::vector<std::uint8_t> datagram;  // as it goes to the receiver
    std::string json;                    // the same without its mark, for whoever asked
    std::string refusal;                 // why it is none; the others are then empty
    std::string movement = {};           // the mode of the sticks that it chooses: rel, abs
};

CheckedCommand check_command(std::string_view json);
CheckedCommand check_command(const cJSON* object);
