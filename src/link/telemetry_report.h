// The reports to the main application. Formats: docs/protocol.md, "Reports". Little-endian.
// All reentrant; a record that is being written meanwhile gives a report of old and new values.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

struct CameraState;
struct FocusLimits;

inline constexpr std::size_t kTextReportCapacity = 1300;
inline constexpr std::size_t kStatusRecordSize = 37;
inline constexpr std::size_t kParameterBlockSize = 66;

// Type byte 7 and "key=value," items; the length is returned, without the NUL behind it.
std::size_t build_text_report(const CameraState& state, const FocusLimits& limits,
                              std::array<char, kTextReportCapacity>& report);
std::array<std::uint8_t, kStatusRecordSize> build_status_record(const CameraState& state);
std::array<std::uint8_t, kParameterBlockSize> build_parameter_block(const CameraState& state);
