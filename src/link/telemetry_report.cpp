#include "link/telemetry_report.h"

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>

#include "app/focus_config.h"
#include "protocol/camera_state.h"
#include "protocol/little_endian.h"
#include "protocol/number_conversion.h"

namespace {

constexpr std::uint8_t kTextReport = 7;
constexpr std::uint8_t kBinaryReport = 6;  // the status record; with a 1 behind it the block
constexpr std::uint8_t kParameterSubtype = 1;
constexpr std::size_t kParameterHeaderSize = 2;
constexpr std::size_t kFirstReportedParameter = 11;

// A text that grows to the buffer's end and no further.
class ReportText {
  public:
    explicit ReportText(std::array<char, kTextReportCapacity>& text) : text_(text) {}

    [[gnu::format(printf, 2, 3)]] void append(const char* format, ...) {
        const std::size_t room = text_.size() - length_;
        va_list arguments;
        va_start(arguments, format);
        const int wanted = vsnprintf(text_.data() + length_, room, format, arguments);
        va_end(arguments);
        length_ += std::min(static_cast<std::size_t>(std::max(wanted, 0)), room - 1);
    }

    std::size_t length() const { return length_; }

  private:
    std::array<char, kTextReportCapacity>& text_;
    std::size_t length_ = 0;
};

using ItemValue = void (*)(ReportText&, const CameraState&, const FocusLimits&);

template <auto Field>
void text(ReportText& report, const CameraState& state, const FocusLimits& /*limits*/) {
    report.append("%s", read_shared_text(state.*Field).data());
}

// Signed, also where the field is a 32-bit unsigned one: the main application reads it so.
template <auto Field>
void number(ReportText& report, const CameraState& state, const FocusLimits& /*limits*/) {
    report.append("%d", static_cast<std::int32_t>((state.*Field).load()));
}

template <auto Field>
void whole(ReportText& report, const CameraState& state, const FocusLimits& /*limits*/) {
    report.append("%1.0f", static_cast<double>((state.*Field).load()));
}

template <auto Field>
void limit(ReportText& report, const CameraState& /*state*/, const FocusLimits& limits) {
    report.append("%d", (limits.*Field).load(std::memory_order_relaxed));
}

void video_format(ReportText& report, const CameraState& state, const FocusLimits& /*limits*/) {
    report.append("%s@%s", read_shared_text(state.resolution).data(),
                  read_shared_text(state.framerate).data());
}

using S = CameraState;

// The main application relies on the order, "format" after the two that it repeats included.
// clang-format off
constexpr struct { const char* key; ItemValue value; } kItems[] = {
    {"camera_detected", number<&S::camera_detected>},
    {"camera_model",    text<&S::camera_model>},
    {"camera_mode",     text<&S::camera_mode>},
    {"sd",              text<&S::sd>},
    {"ssd",             text<&S::ssd>},
    {"shots_left",      number<&S::shots_left>},
    {"rec_time_left",   text<&S::rec_time_left>},
    {"rec_time",        text<&S::rec_time>},
    {"voltage",         number<&S::voltage>},
    {"current",         number<&S::current>},
    {"battery_level",   number<&S::battery_level>},
    {"shot_mode",       text<&S::shot_mode>},
    {"resolution",      text<&S::resolution>},
    {"framerate",       text<&S::framerate>},
    {"format",          video_format},
    {"ae",              number<&S::ae>},
    {"aperture",        text<&S::aperture>},
    {"shutter",         text<&S::shutter>},
    {"shutter_set",     text<&S::shutter_set>},
    {"iso",             number<&S::iso>},
    {"iso_set",         text<&S::iso_set>},
    {"ev",              text<&S::ev>},
    {"image_mode",      text<&S::image_mode>},
    {"color_mode",      text<&S::color_mode>},
    {"wb",              text<&S::wb>},
    {"wb_temp",         whole<&S::wb_temp>},
    {"ratio",           text<&S::ratio>},
    {"video_std",       text<&S::video_std>},
    {"antiflicker",     text<&S::antiflicker>},
    {"mf_min",          limit<&FocusLimits::mf_min>},
    {"mf_max",          limit<&FocusLimits::mf_max>},
};
// clang-format on

template <auto Field>
std::uint16_t word(const CameraState& state) {
    return static_cast<std::uint16_t>((state.*Field).load());
}

// The low 16 bits: a product beyond them starts over.
template <auto Field>
std::uint16_t thousandths(const CameraState& state) {
    const double product = static_cast<double>((state.*Field).load()) * 1000.0;
    return static_cast<std::uint16_t>(saturate_to_uint32(product));
}

template <std::size_t Index>
std::uint16_t gimbal_limit(const CameraState& state) {
    return static_cast<std::uint16_t>(state.attitude_consts[Index].load());
}

struct StatusField {
    std::size_t offset;
    std::size_t size;
    std::uint16_t (*value)(const CameraState&);
};

// Each pair of limits is swapped, kept so: the main application relies on it.
// clang-format off
constexpr StatusField kStatusFields[] = {
    { 2, 1, word<&S::gimbal_unlocked>},
    { 3, 2, word<&S::yaw>},
    { 5, 2, word<&S::pitch>},
    { 7, 2, word<&S::roll>},
    { 9, 1, word<&S::record_state>},
    {10, 1, word<&S::status_byte42>},
    {11, 1, word<&S::status_flags>},
    {12, 1, word<&S::focus_valid>},
    {13, 1, word<&S::focus_auto>},
    {14, 1, word<&S::reserved_status_byte>},
    {15, 2, word<&S::focus_range>},
    {17, 2, word<&S::focus_position>},
    {19, 2, thousandths<&S::focus_point_x>},
    {21, 2, thousandths<&S::focus_point_y>},
    {23, 1, word<&S::focus_byte32>},
    {24, 1, word<&S::focus_byte42>},
    {25, 1, word<&S::settings_byte69>},
    {26, 1, word<&S::gimbal_error>},
    {27, 1, word<&S::camera_flag>},
    {28, 1, word<&S::settings_byte100>},
    {29, 2, gimbal_limit<1>},
    {31, 2, gimbal_limit<0>},
    {33, 2, gimbal_limit<3>},
    {35, 2, gimbal_limit<2>},
};
// clang-format on

// Every byte behind the two of the type belongs to one field.
consteval bool status_fields_fill_the_record() {
    std::size_t end = 2;
    for (const StatusField& field : kStatusFields) {
        if (field.offset != end || field.size < 1 || field.size > 2) {
            return false;
        }
        end += field.size;
    }
    return end == kStatusRecordSize;
}
static_assert(status_fields_fill_the_record());
static_assert(offsetof(CameraState, focus_byte42) < offsetof(CameraState, reserved_status_byte) &&
              offsetof(CameraState, reserved_status_byte) < offsetof(CameraState, record_state));

// The block is cut out of the record 11 bytes late, so that its end lies in what follows the array.
static_assert(offsetof(CameraState, params_block_tail) ==
              offsetof(CameraState, params_block) + sizeof(CameraState::params_block));
static_assert(kParameterHeaderSize + sizeof(CameraState::params_block) == kParameterBlockSize);
static_assert(sizeof(CameraState::params_block_tail) == kFirstReportedParameter);

}  // namespace

std::size_t build_text_report(const CameraState& state, const FocusLimits& limits,
                              std::array<char, kTextReportCapacity>& report) {
    report.fill('\0');
    ReportText out(report);
    out.append("%c", kTextReport);
    for (const auto& item : kItems) {
        out.append("%s=", item.key);
        item.value(out, state, limits);
        out.append(",");
    }
    return out.length();
}

std::array<std::uint8_t, kStatusRecordSize> build_status_record(const CameraState& state) {
    std::array<std::uint8_t, kStatusRecordSize> record{kBinaryReport};
    for (const StatusField& field : kStatusFields) {
        const std::uint16_t value = field.value(state);
        if (field.size == 2) {
            write_le16(record.data() + field.offset, value);
        } else {
            record[field.offset] = static_cast<std::uint8_t>(value);
        }
    }
    return record;
}

std::array<std::uint8_t, kParameterBlockSize> build_parameter_block(const CameraState& state) {
    std::array<std::uint8_t, kParameterBlockSize> block{kBinaryReport, kParameterSubtype};
    const auto* record = reinterpret_cast<const std::uint8_t*>(&state);
    read_shared_bytes(block.data() + kParameterHeaderSize,
                      record + offsetof(CameraState, params_block) + kFirstReportedParameter,
                      sizeof(CameraState::params_block));
    return block;
}
