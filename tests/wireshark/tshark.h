// What tshark with our plugin says of a capture.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/wireshark/capture.h"

// Of each frame, in order: the values of each field, of which a frame may have several.
using FrameFields = std::map<std::string, std::vector<std::string>>;
using Frames = std::vector<FrameFields>;

// The warnings of a frame; what the plugin itself fails at is among them.
inline constexpr char kWarnings[] = "_ws.expert.message";
inline constexpr char kInfo[] = "_ws.col.Info";

// Fields are named as in a filter. Throws where tshark fails.
Frames dissect(const Capture& capture, const std::vector<std::string>& fields,
               const std::string& options = "");

// The values of one field, frame after frame.
std::vector<std::string> all_values(const Frames& frames, const std::string& field);

// The same of the capture, and that there is no warning.
std::vector<std::string> values_without_warning(const Capture& capture, const std::string& field);
