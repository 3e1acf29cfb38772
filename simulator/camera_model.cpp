#include "simulator/camera_model.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kStep{10};
constexpr milliseconds kRecordStartTakes{300};
constexpr milliseconds kRecordStopTakes{400};
constexpr milliseconds kExposureTakes{300};
constexpr milliseconds kStoringTakes{500};
constexpr milliseconds kRestartTakes{2000};

constexpr double kLensWaySeconds = 1;  // from one end of the focus to the other
constexpr double kZoomPercentASecond = 25;
constexpr double kAutoFocusShare = 0.6;  // of the range: where the automatic finds its subject

constexpr double kBatteryCapacity = 980.0 * 3600;  // milliampere seconds
constexpr double kEmptyVoltage = 9600;
constexpr double kVoltagePerPercent = 30;

// What the camera's own exposure chooses.
constexpr int kAutoShutter = shutter_fraction(100, 0);
constexpr int kAutoAperture = 400;
constexpr int kAutoIso = 100;

// Megabytes: of a second of video by resolution, of a photo by format.
struct Megabytes {
    int code;
    double amount;
};
// clang-format off
constexpr Megabytes kVideoSecond[] = {
    { 4, 3.75},   // 1280x720
    {10, 5.00},   // 1920x1080
    {24, 6.25},   // 2704x1520
    {16, 7.50},   // 3840x2160
    {22, 7.50},   // 4096x2160
};
constexpr Megabytes kPhoto[] = {
    {0, 30},      // RAW
    {1, 8},       // JPG
    {2, 38},      // both
};
// clang-format on
constexpr double kRawVideoSecond = 200;  // to the drive, whatever the resolution
constexpr int kModelWithDrive = 5;

template <std::size_t N>
double megabytes(const Megabytes (&table)[N], int code) {
    const auto* const found = std::ranges::find(table, code, &Megabytes::code);
    return found == std::end(table) ? table[0].amount : found->amount;
}

void approach(double& value, double target, double step) {
    const double way = target - value;
    value += std::copysign(std::min(std::abs(way), step), way);
}

}  // namespace

void CameraModel::start_recording() {
    if (mode == 1 && record_phase_ == RecordPhase::kIdle && card_free > 0) {
        record_phase_ = RecordPhase::kStarting;
        record_phase_left_ = kRecordStartTakes;
        recorded_ = Time(0);
    }
}

void CameraModel::stop_recording() {
    if (record_phase_ == RecordPhase::kStarting || record_phase_ == RecordPhase::kRecording) {
        record_phase_ = RecordPhase::kStopping;
        record_phase_left_ = kRecordStopTakes;
    }
}

void CameraModel::take_photo() {
    if (mode != 1 && photo_phase_ == PhotoPhase::kNone && photos_left() > 0) {
        photo_phase_ = PhotoPhase::kExposing;
        photo_phase_left_ = kExposureTakes;
    }
}

void CameraModel::stop_shooting() {
    loop = 0;
    stuck = 0;
    photo_phase_ = PhotoPhase::kNone;
}

void CameraModel::reset() {
    static_cast<CameraSettings&>(*this) = CameraSettings{};
    ++resets;
}

void CameraModel::sleep() {
    if (power_ == Power::kOn) {
        stop_recording();
        power_ = Power::kAsleep;
    }
}

void CameraModel::wake_up() {
    if (power_ == Power::kAsleep) {
        power_ = Power::kOn;
    }
}

void CameraModel::restart() {
    if (power_ == Power::kOn || power_ == Power::kAsleep) {
        power_ = Power::kRestarting;
        restart_left_ = kRestartTakes;
        record_phase_ = RecordPhase::kIdle;
        stop_shooting();
    }
}

void CameraModel::shut_down() {
    power_ = Power::kOff;
    record_phase_ = RecordPhase::kIdle;
    stop_shooting();
}

void CameraModel::format_card() {
    card_free = card_capacity;
    ++card_formats;
}

void CameraModel::format_drive() {
    if (drive_format_prepared_) {
        drive_format_prepared_ = false;
        drive_free = drive_capacity;
        ++drive_formats;
    }
}

void CameraModel::focus_at(int position) {
    focus_target = std::clamp(position, 0, focus_range);
}

void CameraModel::advance(Time duration) {
    for (; duration > Time(0); duration -= kStep) {
        step(std::min(duration, kStep));
    }
}

void CameraModel::step(Time time) {
    if (power_ == Power::kOff) {
        return;
    }
    const double seconds = std::chrono::duration<double>(time).count();
    battery_percent += current() * seconds / kBatteryCapacity * 100;
    if (battery_percent <= 0) {
        battery_percent = 0;
        shut_down();
        return;
    }
    if (power_ == Power::kRestarting) {
        restart_left_ -= time;
        if (restart_left_ <= Time(0)) {
            power_ = Power::kOn;
            gimbal.fault = GimbalModel::kNoFault;
        }
        return;
    }
    advance_recording(time);
    advance_photo(time);
    advance_lens(seconds);
    gimbal.advance(time);
}

void CameraModel::advance_recording(Time time) {
    if (record_phase_ == RecordPhase::kRecording) {
        const double seconds = std::chrono::duration<double>(time).count();
        const bool to_drive = writes_drive();
        recorded_ += time;
        card_free -= megabytes(kVideoSecond, resolution) * seconds;
        if (to_drive) {
            drive_free = std::max(drive_free - kRawVideoSecond * seconds, 0.0);
        }
        if (card_free <= 0 || (to_drive && drive_free <= 0)) {
            card_free = std::max(card_free, 0.0);
            stop_recording();
        }
        return;
    }
    if (record_phase_ == RecordPhase::kIdle) {
        return;
    }
    record_phase_left_ -= time;
    if (record_phase_left_ <= Time(0)) {
        const bool starting = record_phase_ == RecordPhase::kStarting;
        record_phase_ = starting ? RecordPhase::kRecording : RecordPhase::kIdle;
        recorded_ = Time(0);
    }
}

void CameraModel::advance_photo(Time time) {
    if (photo_phase_ == PhotoPhase::kNone) {
        return;
    }
    photo_phase_left_ -= time;
    if (photo_phase_left_ > Time(0)) {
        return;
    }
    if (photo_phase_ == PhotoPhase::kExposing) {
        photo_phase_ = PhotoPhase::kStoring;
        photo_phase_left_ = kStoringTakes;
    } else {
        photo_phase_ = PhotoPhase::kNone;
        card_free = std::max(card_free - megabytes(kPhoto, photo_format), 0.0);
    }
}

void CameraModel::advance_lens(double seconds) {
    if (focus_auto != 0) {
        focus_target = kAutoFocusShare * focus_range;
    }
    approach(focus_position, focus_target, focus_range * seconds / kLensWaySeconds);
    optical_zoom =
        std::clamp(optical_zoom + zoom_direction * kZoomPercentASecond * seconds, 0.0, 100.0);
}

// The camera with a drive records there too, while there is space.
bool CameraModel::writes_drive() const {
    return model_code == kModelWithDrive && drive_free > 0;
}

// The receiver stops a camera that is busy and shows no photo at all; so each phase of a photo sets
// bit 5, and says so in photo_flags() too.
std::uint8_t CameraModel::record_state() const {
    const auto phase = static_cast<unsigned>(record_phase_) << 6;
    const unsigned photo = photo_phase_ == PhotoPhase::kNone ? 0 : 0x20;
    const unsigned exposing = photo_phase_ == PhotoPhase::kExposing ? 0x08 : 0;
    return static_cast<std::uint8_t>(phase | photo | exposing);
}

std::uint8_t CameraModel::status_flags() const {
    const bool busy = photo_phase_ == PhotoPhase::kStoring || stuck != 0;
    return static_cast<std::uint8_t>((busy ? 0x08 : 0) | (loop != 0 ? 0x10 : 0));
}

std::uint8_t CameraModel::photo_flags() const {
    return photo_phase_ == PhotoPhase::kNone ? 0 : 1;
}

int CameraModel::recorded_seconds() const {
    return static_cast<int>(recorded_.count() / 1000);
}

int CameraModel::recording_seconds_left() const {
    const double card = card_free / megabytes(kVideoSecond, resolution);
    const double drive = drive_free / kRawVideoSecond;
    return static_cast<int>(writes_drive() ? std::min(card, drive) : card);
}

int CameraModel::photos_left() const {
    return static_cast<int>(card_free / megabytes(kPhoto, photo_format));
}

int CameraModel::shutter() const {
    const bool set = image_mode == kShutterPriority || image_mode == kManualExposure;
    return set ? shutter_set : kAutoShutter;
}

int CameraModel::aperture() const {
    const bool set = image_mode == kAperturePriority || image_mode == kManualExposure;
    return set ? aperture_set : kAutoAperture;
}

int CameraModel::iso() const {
    return iso_code < 3 ? kAutoIso : 100 << (iso_code - 3);
}

int CameraModel::voltage() const {
    return static_cast<int>(kEmptyVoltage + kVoltagePerPercent * battery_percent);
}

int CameraModel::current() const {
    if (power_ == Power::kOff) {
        return 0;
    }
    if (power_ == Power::kAsleep) {
        return -100;
    }
    return record_phase_ == RecordPhase::kRecording ? -1600 : -1100;
}

// A hill whose top lies the brighter, the more the exposure is raised.
std::array<std::uint8_t, 64> CameraModel::histogram_bins() const {
    std::array<std::uint8_t, 64> bins{};
    const int top = 32 + 2 * (ev_code - 16);
    for (int i = 0; i < 64; ++i) {
        bins[static_cast<std::size_t>(i)] =
            static_cast<std::uint8_t>(std::max(200 - 10 * std::abs(i - top), 0));
    }
    return bins;
}
