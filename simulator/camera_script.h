// What a person does to the simulated camera, and sees on it, by the second:
//
//   # seconds  what
//   1.5        set battery_level 20
//   2          expect iso_set 400
//   3          print                 (or a single NAME)
//   4          fault                 (of the gimbal; a code may follow)
//   6          clear
//
// Names and values are those of camera_values.h; a value goes on to the end of its line. Reentrant.
#pragma once

#include <optional>
#include <string>
#include <vector>

enum class ScriptVerb { kSet, kExpect, kPrint };

struct ScriptLine {
    double seconds;
    ScriptVerb verb;
    std::string name;  // empty: all
    std::string value;
    int number;  // of the line, from 1
};

// In the order of their seconds. nullopt, with the reason in *error: a line is none of the above,
// or names a value that there is not.
std::optional<std::vector<ScriptLine>> parse_camera_script(const std::string& text,
                                                           std::string* error);

class SimulatedCamera;

// Does what the line says; what is printed goes to standard output. False after a message on
// standard error, where a value is not the expected one or cannot be set so.
bool perform_script_line(SimulatedCamera& camera, const ScriptLine& line);
