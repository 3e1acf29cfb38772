#include "simulator/camera_values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace {

struct Word {
    int code;
    const char* text;
};

// clang-format off
constexpr Word kModels[]       = {{0, "X3"}, {1, "X5"}, {5, "X5R"}, {11, "Z3"}};
constexpr Word kModes[]        = {{0, "photo"}, {1, "video"}};
constexpr Word kImageModes[]   = {{1, "auto"}, {2, "shutter"}, {3, "aperture"}, {4, "manual"}};
constexpr Word kIso[]          = {{0, "auto"}, {3, "100"}, {4, "200"}, {5, "400"}, {6, "800"},
                                  {7, "1600"}, {8, "3200"}, {9, "6400"}};
constexpr Word kEv[]           = {{7, "-3.0"}, {8, "-2.7"}, {9, "-2.3"}, {10, "-2.0"},
                                  {11, "-1.7"}, {12, "-1.3"}, {13, "-1.0"}, {14, "-0.7"},
                                  {15, "-0.3"}, {16, "0"}, {17, "+0.3"}, {18, "+0.7"},
                                  {19, "+1.0"}, {20, "+1.3"}, {21, "+1.7"}, {22, "+2.0"},
                                  {23, "+2.3"}, {24, "+2.7"}, {25, "+3.0"}};
constexpr Word kWhiteBalance[] = {{0, "auto"}, {1, "sunny"}, {2, "cloudy"}, {4, "incandescent"},
                                  {5, "neon"}, {6, "custom"}};
constexpr Word kColors[]       = {{0, "none"}, {1, "art"}, {4, "black white"}, {5, "vivid"},
                                  {6, "d-cinelike"}, {7, "portrait"}, {14, "beach"}, {16, "dream"},
                                  {18, "classic"}, {19, "nostalgia"}, {23, "d-log"},
                                  {52, "d-clike"}};
constexpr Word kResolutions[]  = {{4, "1280x720"}, {10, "1920x1080"}, {16, "3840x2160"},
                                  {22, "4096x2160"}, {24, "2704X1520"}};
constexpr Word kFrameRates[]   = {{1, "24"}, {2, "25"}, {3, "30"}, {4, "48"}, {5, "50"},
                                  {6, "60"}, {7, "120"}};
constexpr Word kRatios[]       = {{0, "4:3"}, {1, "16:9"}};
constexpr Word kPhotoFormats[] = {{0, "RAW"}, {1, "JPG"}, {2, "JPG+RAW"}};
constexpr Word kStandards[]    = {{0, "PAL"}, {1, "NTSC"}};
constexpr Word kAntiflicker[]  = {{0, "auto"}, {1, "50 Hz"}, {2, "60 Hz"}};
constexpr Word kFocusTypes[]   = {{0, "MF"}, {1, "AF"}};
constexpr Word kRecordings[]   = {{0, "idle"}, {1, "starting"}, {2, "recording"}, {3, "stopping"}};
constexpr Word kPhotos[]       = {{0, "none"}, {1, "exposing"}, {2, "storing"}};
constexpr Word kPowers[]       = {{0, "on"}, {1, "asleep"}, {2, "restarting"}, {3, "off"}};
constexpr Word kBands[]        = {{0, "2.4"}, {1, "5.8"}};
constexpr Word kLocks[]        = {{0, "unlocked"}, {1, "locked"}};
// clang-format on

const Word* word_of(std::span<const Word> words, const std::string& text) {
    const auto found =
        std::ranges::find_if(words, [&](const Word& word) { return text == word.text; });
    return found == words.end() ? nullptr : &*found;
}

std::string text_of(std::span<const Word> words, int code) {
    const auto found = std::ranges::find(words, code, &Word::code);
    return found == words.end() ? "code " + std::to_string(code) : found->text;
}

// The whole text is a number in that range.
bool read_number(const std::string& text, double least, double most, double* number) {
    char* end = nullptr;
    const double value = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value >= least && value <= most)) {
        return false;
    }
    *number = value;
    return true;
}

bool read_whole(const std::string& text, int least, int most, int* number) {
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || value < least || value > most) {
        return false;
    }
    *number = value;
    return true;
}

std::string shortest(double value) {
    char text[40];
    snprintf(text, sizeof text, "%g", value);
    return text;
}

// "8\"", "2.5\"", "1/500", "1/1.25"
std::string shutter_text(int code) {
    const int digits = code >> 16;
    const bool fraction = (code & 0x8000) != 0;
    const std::string number = std::to_string(code & 0x7FFF);
    const std::string rest = digits == 0 ? "" : "." + std::to_string(digits);
    return fraction ? "1/" + number + rest : number + rest + "\"";
}

bool read_shutter(const std::string& text, int* code) {
    const bool fraction = text.starts_with("1/");
    if (!fraction && !text.ends_with('"')) {
        return false;
    }
    const std::string number = fraction ? text.substr(2) : text.substr(0, text.size() - 1);
    const std::size_t point = number.find('.');
    int whole = 0;
    int digits = 0;
    if (!read_whole(number.substr(0, point), 1, fraction ? 0x7FFF : 255, &whole) ||
        (point != std::string::npos && !read_whole(number.substr(point + 1), 1, 255, &digits))) {
        return false;
    }
    *code = fraction ? shutter_fraction(whole, digits) : shutter_seconds(whole, digits);
    return true;
}

// A row has words, or a range, of an integer of the model; or one of its other numbers; or
// functions of its own.
struct Value {
    const char* name;
    int CameraModel::*integer = nullptr;
    std::span<const Word> words = {};
    int least = 0;
    int most = 1;
    double CameraModel::*number = nullptr;
    std::string (*get)(const CameraModel&) = nullptr;
    bool (*set)(CameraModel&, const std::string&) = nullptr;
};

constexpr Value words(const char* name, int CameraModel::*integer, std::span<const Word> list) {
    return {.name = name, .integer = integer, .words = list};
}
constexpr Value whole(const char* name, int CameraModel::*integer, int least, int most) {
    return {.name = name, .integer = integer, .least = least, .most = most};
}
constexpr Value number(const char* name, double CameraModel::*number, int least, int most) {
    return {.name = name, .least = least, .most = most, .number = number};
}
constexpr Value own(const char* name, std::string (*get)(const CameraModel&),
                    bool (*set)(CameraModel&, const std::string&) = nullptr) {
    return {.name = name, .get = get, .set = set};
}

template <int (CameraModel::*read)() const>
std::string shown(const CameraModel& model) {
    return std::to_string((model.*read)());
}

template <GimbalAxis GimbalModel::*axis>
std::string angle(const CameraModel& model) {
    return shortest((model.gimbal.*axis).angle);
}
template <GimbalAxis GimbalModel::*axis>
bool set_angle(CameraModel& model, const std::string& text) {
    GimbalAxis& turned = model.gimbal.*axis;
    if (!read_number(text, turned.lowest, turned.highest, &turned.angle)) {
        return false;
    }
    turned.turn(0);
    return true;
}

template <int GimbalModel::*integer, int least, int most>
std::string gimbal_whole(const CameraModel& model) {
    return std::to_string(model.gimbal.*integer);
}
template <int GimbalModel::*integer, int least, int most>
bool set_gimbal_whole(CameraModel& model, const std::string& text) {
    return read_whole(text, least, most, &(model.gimbal.*integer));
}
template <int GimbalModel::*integer, int least, int most>
constexpr Value gimbal(const char* name) {
    return own(name, gimbal_whole<integer, least, most>, set_gimbal_whole<integer, least, most>);
}

std::string aperture_text(int hundredths) {
    return shortest(hundredths / 100.0);
}

bool set_aperture(CameraModel& model, const std::string& text) {
    double stop = 0;
    if (!read_number(text, 1, 64, &stop)) {
        return false;
    }
    model.aperture_set = static_cast<int>(std::lround(stop * 100));
    return true;
}

bool set_kelvin(CameraModel& model, const std::string& text) {
    int kelvin = 0;
    if (!read_whole(text, 0, 25500, &kelvin)) {
        return false;
    }
    model.white_balance_hundreds = kelvin / 100;
    return true;
}

// What is begun goes on through its phases.
bool set_recording(CameraModel& model, const std::string& text) {
    if (text == "recording") {
        model.start_recording();
        return true;
    }
    model.stop_recording();
    return text == "idle";
}

bool set_power(CameraModel& model, const std::string& text) {
    const Word* const word = word_of(kPowers, text);
    if (word == nullptr) {
        return false;
    }
    switch (static_cast<Power>(word->code)) {
        case Power::kOn:
            model.wake_up();
            return true;
        case Power::kAsleep:
            model.sleep();
            return true;
        case Power::kRestarting:
            model.restart();
            return true;
        case Power::kOff:
            model.shut_down();
            return true;
    }
    return false;
}

bool set_gimbal_lock(CameraModel& model, const std::string& text) {
    const Word* const word = word_of(kLocks, text);
    if (word != nullptr) {
        model.gimbal.orientation_locked = word->code != 0;
    }
    return word != nullptr;
}

using Model = CameraModel;

// clang-format off
constexpr Value kValues[] = {
    // Camera and mode
    words ("camera_model",     &Model::model_code, kModels),
    whole ("camera_model_code", &Model::model_code, 0, 255),
    words ("camera_mode",      &Model::mode, kModes),
    own   ("power",            [](const Model& m) { return text_of(kPowers, static_cast<int>(m.power())); }, set_power),
    // Recording and photos
    own   ("record",           [](const Model& m) { return text_of(kRecordings, static_cast<int>(m.record_phase())); }, set_recording),
    own   ("photo",            [](const Model& m) { return text_of(kPhotos, static_cast<int>(m.photo_phase())); }),
    whole ("loop",             &Model::loop, 0, 1),
    whole ("stuck",            &Model::stuck, 0, 1),
    own   ("rec_time",         shown<&Model::recorded_seconds>),
    own   ("rec_time_left",    shown<&Model::recording_seconds_left>),
    own   ("shots_left",       shown<&Model::photos_left>),
    number("sd",               &Model::card_free, 0, 0x7FFFFFFF),
    number("sd_capacity",      &Model::card_capacity, 0, 0x7FFFFFFF),
    number("ssd",              &Model::drive_free, 0, 0xFFFFFF),
    number("ssd_capacity",     &Model::drive_capacity, 0, 0xFFFFFF),
    whole ("sd_formats",       &Model::card_formats, 0, 1000000),
    whole ("ssd_formats",      &Model::drive_formats, 0, 1000000),
    // Battery
    number("battery_level",    &Model::battery_percent, 0, 100),
    own   ("voltage",          shown<&Model::voltage>),
    own   ("current",          shown<&Model::current>),
    // Exposure
    words ("image_mode",       &Model::image_mode, kImageModes),
    own   ("shutter_set",      [](const Model& m) { return shutter_text(m.shutter_set); },
                               [](Model& m, const std::string& text) { return read_shutter(text, &m.shutter_set); }),
    own   ("shutter",          [](const Model& m) { return shutter_text(m.shutter()); }),
    own   ("aperture_set",     [](const Model& m) { return aperture_text(m.aperture_set); }, set_aperture),
    own   ("aperture",         [](const Model& m) { return aperture_text(m.aperture()); }),
    words ("iso_set",          &Model::iso_code, kIso),
    own   ("iso",              shown<&Model::iso>),
    words ("ev",               &Model::ev_code, kEv),
    whole ("ae",               &Model::ae_locked, 0, 1),
    whole ("exposure_point",   &Model::exposure_point, 0, 255),
    whole ("histogram",        &Model::histogram, 0, 1),
    // Picture
    words ("wb",               &Model::white_balance, kWhiteBalance),
    own   ("wb_temp",          [](const Model& m) { return std::to_string(m.white_balance_hundreds * 100); }, set_kelvin),
    words ("color_mode",       &Model::color, kColors),
    words ("resolution",       &Model::resolution, kResolutions),
    words ("framerate",        &Model::frame_rate, kFrameRates),
    words ("ratio",            &Model::ratio, kRatios),
    words ("shot_mode",        &Model::photo_format, kPhotoFormats),
    words ("video_std",        &Model::video_standard, kStandards),
    words ("antiflicker",      &Model::antiflicker, kAntiflicker),
    // Focus and zoom
    words ("focus_type",       &Model::focus_auto, kFocusTypes),
    whole ("focus_infinity",   &Model::focus_infinity, 0, 1),
    whole ("focus_range",      &Model::focus_range, 0, 65535),
    number("focus_position",   &Model::focus_position, 0, 65535),
    number("focus_target",     &Model::focus_target, 0, 65535),
    number("focus_point_x",    &Model::focus_point_x, -1000, 1000),
    number("focus_point_y",    &Model::focus_point_y, -1000, 1000),
    whole ("focus_assistants", &Model::focus_assistants, 0, 255),
    whole ("focus_byte32",     &Model::focus_byte32, 0, 255),
    whole ("digital_zoom",     &Model::digital_zoom, 100, 200),
    number("optical_zoom",     &Model::optical_zoom, 0, 100),
    whole ("zoom_direction",   &Model::zoom_direction, -1, 1),
    // Gimbal
    own   ("yaw",              angle<&GimbalModel::yaw>, set_angle<&GimbalModel::yaw>),
    own   ("pitch",            angle<&GimbalModel::pitch>, set_angle<&GimbalModel::pitch>),
    own   ("roll",             angle<&GimbalModel::roll>, set_angle<&GimbalModel::roll>),
    own   ("gimbal_lock",      [](const Model& m) { return text_of(kLocks, m.gimbal.orientation_locked ? 1 : 0); }, set_gimbal_lock),
    gimbal<&GimbalModel::pitch_locked,   0, 1>("pitch_lock"),
    gimbal<&GimbalModel::smooth_track,   0, 255>("smooth_track"),
    gimbal<&GimbalModel::realtime_focus, 0, 255>("realtime_af"),
    gimbal<&GimbalModel::horizon_trim,   -450, 450>("horizon_trim"),
    gimbal<&GimbalModel::calibrations,   0, 1000000>("calibrations"),
    gimbal<&GimbalModel::fault,          0, 255>("gimbal_fault"),
    // The rest
    own   ("wifi",             [](const Model& m) { return text_of(kBands, m.wifi_band); }),
    whole ("camera_flag",      &Model::camera_flag, 0, 1),
    whole ("settings_byte69",  &Model::settings_byte69, 0, 255),
    whole ("settings_byte100", &Model::settings_byte100, 0, 255),
    whole ("resets",           &Model::resets, 0, 1000000),
};
// clang-format on

const Value* value_of(const std::string& name) {
    const auto* const found =
        std::ranges::find_if(kValues, [&](const Value& value) { return name == value.name; });
    return found == std::end(kValues) ? nullptr : found;
}

}  // namespace

std::vector<std::string> camera_value_names() {
    std::vector<std::string> names;
    for (const Value& value : kValues) {
        names.emplace_back(value.name);
    }
    return names;
}

std::optional<std::string> camera_value(const CameraModel& model, const std::string& name) {
    const Value* const value = value_of(name);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->get != nullptr) {
        return value->get(model);
    }
    if (value->number != nullptr) {
        return shortest(model.*value->number);
    }
    const int code = model.*value->integer;
    return value->words.empty() ? std::to_string(code) : text_of(value->words, code);
}

bool set_camera_value(CameraModel& model, const std::string& name, const std::string& text) {
    const Value* const value = value_of(name);
    if (value == nullptr || (value->get != nullptr && value->set == nullptr)) {
        return false;
    }
    if (value->set != nullptr) {
        return value->set(model, text);
    }
    if (value->number != nullptr) {
        return read_number(text, value->least, value->most, &(model.*value->number));
    }
    int& code = model.*value->integer;
    if (value->words.empty()) {
        return read_whole(text, value->least, value->most, &code);
    }
    const Word* const word = word_of(value->words, text);
    if (word != nullptr) {
        code = word->code;
    }
    return word != nullptr;
}
