// What a handheld camera is and does, as far as its messages and its commands show it: settings,
// recording, photos, media, battery, focus, zoom, power, and its gimbal.
//
// Plain data and arithmetic, without a clock or a thread of its own: advance() moves its time, and
// the same calls give the same camera. Whoever owns it locks. Codes are those of the messages.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>

#include "simulator/gimbal_model.h"

// The phases are the codes of the status message.
enum class RecordPhase : std::uint8_t { kIdle = 0, kStarting = 1, kRecording = 2, kStopping = 3 };
enum class PhotoPhase : std::uint8_t { kNone, kExposing, kStoring };
enum class Power : std::uint8_t { kOn, kAsleep, kRestarting, kOff };

// Exposure programs in which the photographer's shutter or aperture counts.
enum ImageMode : int { kAutoExposure = 1, kShutterPriority, kAperturePriority, kManualExposure };

enum FocusAssistant : int { kManualFocusAssistant = 1, kAutoFocusAssistant = 2 };

// What a reset puts back.
struct CameraSettings {
    int mode = 1;  // 1 video, 0 photo
    // Not automatic: so a camera that nobody has touched shows each setting that is made.
    int image_mode = kManualExposure;
    int shutter_set = 0x8032;  // encoded in 24 bits, see below
    int aperture_set = 280;    // f-number x 100
    int iso_code = 3;          // 0 automatic, else 100 x 2^(code - 3)
    int ev_code = 16;          // 16 + thirds of a stop
    int ae_locked = 0;
    int exposure_point = 0;
    int white_balance = 0;
    int white_balance_hundreds = 68;  // kelvin / 100
    int color = 0;
    int resolution = 10;
    int frame_rate = 3;
    int ratio = 1;
    int photo_format = 1;
    int video_standard = 0;
    int antiflicker = 0;
    int histogram = 1;  // while it is on, the camera sends it
};

class CameraModel : public CameraSettings {
  public:
    int model_code = 5;
    GimbalModel gimbal;

    // Media, in megabytes.
    double card_capacity = 64000;
    double card_free = 60000;
    double drive_capacity = 512000;
    double drive_free = 480000;
    int card_formats = 0;
    int drive_formats = 0;

    double battery_percent = 100;

    // Focus and zoom.
    int focus_auto = 1;
    int focus_infinity = 0;
    int focus_range = 1000;
    double focus_position = 600;
    double focus_target = 600;  // where the lens is on its way to
    double focus_point_x = 0.5;
    double focus_point_y = 0.5;
    int focus_assistants = 0;  // of FocusAssistant
    int focus_byte32 = 1;
    int digital_zoom = 100;   // percent
    double optical_zoom = 0;  // percent of the lens's way
    int zoom_direction = 0;   // 1 in, -1 out, 0 stands

    // What the receiver passes on and nobody here changes.
    int camera_flag = 0;
    int settings_byte69 = 0;
    int settings_byte100 = 0;
    int wifi_band_wanted = 0;  // 1: 5.8 GHz
    int wifi_band = 0;
    int resets = 0;
    int loop = 0;   // the shutter is held: a series of photos
    int stuck = 0;  // busy without a photo under way, which a stop puts right

    // -- what is done to it. What it cannot do now, it leaves.
    void start_recording();  // in video mode, with space left
    void stop_recording();
    void take_photo();  // in photo mode, with space left
    void stop_shooting();
    void reset();
    void sleep();
    void wake_up();
    void restart();  // takes a moment; the gimbal's fault is gone after it
    void shut_down();
    void format_card();
    void prepare_drive_format() { drive_format_prepared_ = true; }
    void format_drive();  // only where it was prepared
    // A lens that focuses by itself goes on to where it wants.
    void focus_at(int position);

    void advance(std::chrono::milliseconds duration);

    // -- what it shows
    Power power() const { return power_; }
    bool awake() const { return power_ == Power::kOn; }
    RecordPhase record_phase() const { return record_phase_; }
    PhotoPhase photo_phase() const { return photo_phase_; }
    std::uint8_t record_state() const;  // byte 11 of the status message
    std::uint8_t status_flags() const;  // byte 13
    std::uint8_t photo_flags() const;   // byte 42
    int recorded_seconds() const;
    int recording_seconds_left() const;
    int photos_left() const;
    int shutter() const;  // what the exposure program makes of the settings
    int aperture() const;
    int iso() const;
    int voltage() const;  // millivolt
    int current() const;  // milliampere, negative: it discharges
    std::array<std::uint8_t, 64> histogram_bins() const;

  private:
    using Time = std::chrono::milliseconds;

    void step(Time time);
    void advance_recording(Time time);
    void advance_photo(Time time);
    void advance_lens(double seconds);
    bool writes_drive() const;

    Power power_ = Power::kOn;
    Time restart_left_{0};
    RecordPhase record_phase_ = RecordPhase::kIdle;
    Time record_phase_left_{0};
    Time recorded_{0};
    PhotoPhase photo_phase_ = PhotoPhase::kNone;
    Time photo_phase_left_{0};
    bool drive_format_prepared_ = false;
};

// A shutter time in 24 bits: whole seconds, or 0x8000 and the denominator of a fraction, and above
// it the digits behind the point. "2.5\"" is 0x050002, "1/500" is 0x0081F4.
constexpr int shutter_seconds(int seconds, int digits) {
    return digits << 16 | seconds;
}
constexpr int shutter_fraction(int denominator, int digits) {
    return digits << 16 | 0x8000 | denominator;
}
