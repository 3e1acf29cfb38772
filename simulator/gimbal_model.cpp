#include "simulator/gimbal_model.h"

#include <algorithm>
#include <cmath>

namespace {

using std::chrono::milliseconds;

constexpr double kTravelSpeed = 900;  // towards a position: 90 degrees a second
constexpr milliseconds kSpeedHolds{500};
constexpr milliseconds kCalibrationTakes{2000};

}  // namespace

void GimbalAxis::go_to(double wanted) {
    target = std::clamp(wanted, lowest, highest);
    speed = 0;
}

void GimbalAxis::turn(double wanted_speed) {
    target.reset();
    speed = wanted_speed;
}

void GimbalAxis::advance(double seconds) {
    if (target) {
        const double way = *target - angle;
        const double step = std::min(std::abs(way), kTravelSpeed * seconds);
        angle += std::copysign(step, way);
        if (angle == *target) {
            target.reset();
        }
        return;
    }
    angle = std::clamp(angle + speed * seconds, lowest, highest);
}

void GimbalModel::turn(double yaw_speed, double roll_speed, double pitch_speed) {
    if (calibrating()) {
        return;
    }
    yaw.turn(yaw_speed);
    roll.turn(roll_speed);
    pitch.turn(pitch_speed);
    speed_left_ = kSpeedHolds;
}

void GimbalModel::go_to(double yaw_angle, double roll_angle, double pitch_angle) {
    if (calibrating()) {
        return;
    }
    yaw.go_to(yaw_angle);
    roll.go_to(roll_angle);
    pitch.go_to(pitch_angle);
}

void GimbalModel::calibrate() {
    horizon_trim = 0;
    go_to(0, 0, 0);
    calibration_left_ = kCalibrationTakes;
    ++calibrations;
}

void GimbalModel::advance(milliseconds step) {
    const double seconds = std::chrono::duration<double>(step).count();
    for (GimbalAxis* const axis : {&yaw, &roll, &pitch}) {
        axis->advance(seconds);
    }
    calibration_left_ = std::max(calibration_left_ - step, milliseconds(0));
    speed_left_ = std::max(speed_left_ - step, milliseconds(0));
    if (speed_left_.count() == 0) {
        yaw.speed = roll.speed = pitch.speed = 0;
    }
}
