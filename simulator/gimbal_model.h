// The simulated camera's gimbal: three axes that are driven by speed or to a position. Plain data
// and arithmetic; whoever owns it locks. Angles are tenths of a degree, as the messages send them.
#pragma once

#include <chrono>
#include <optional>

struct GimbalAxis {
    double lowest;
    double highest;
    double angle = 0;
    double speed = 0;              // a second; stands while there is a target
    std::optional<double> target;  // where it is on its way to

    void go_to(double wanted);  // not beyond the limits
    void turn(double wanted_speed);
    void advance(double seconds);
};

class GimbalModel {
  public:
    // Beyond +-320, +30 / -124 and +-45 degrees it does not turn.
    GimbalAxis yaw = {.lowest = -3200, .highest = 3200, .target = {}};
    GimbalAxis roll = {.lowest = -450, .highest = 450, .target = {}};
    GimbalAxis pitch = {.lowest = -1240, .highest = 300, .target = {}};

    bool orientation_locked = false;
    int pitch_locked = 0;
    int smooth_track = 0;
    int realtime_focus = 0;
    int horizon_trim = 0;  // on top of the roll
    int calibrations = 0;
    int fault = kNoFault;

    static constexpr int kNoFault = 0x80;

    // A speed holds for half a second: who wants more repeats it, as a hand on the stick does.
    void turn(double yaw_speed, double roll_speed, double pitch_speed);
    void go_to(double yaw_angle, double roll_angle, double pitch_angle);
    // Back to the middle, and a level horizon; the gimbal heeds nothing else meanwhile.
    void calibrate();
    bool calibrating() const { return calibration_left_.count() > 0; }
    double shown_roll() const { return roll.angle + horizon_trim; }

    void advance(std::chrono::milliseconds step);

  private:
    std::chrono::milliseconds speed_left_{0};
    std::chrono::milliseconds calibration_left_{0};
};
