// The camera model's values by name, as text: for scripts, tests and what is printed. Names and
// words are those of the receiver's text report where it has them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/camera_model.h"

// All names, in the table's order.
std::vector<std::string> camera_value_names();

// nullopt: no such name.
std::optional<std::string> camera_value(const CameraModel& model, const std::string& name);

// False where there is no such name, it can only be read, or the text is none of its values.
bool set_camera_value(CameraModel& model, const std::string& name, const std::string& text);
