// The gimbal. Results and threads as in capture_commands.h.
#pragma once

// Speeds in -1.0 .. +1.0; s1 and s3 go first and second, s2 last, as the gimbal wants them.
int gimbal_set_speed(double s1, double s2, double s3);

// Pan, tilt and dutch (roll) of full scale 1.0 each, scaled to the gimbal's units; and in those.
int gimbal_set_abs_position(double pan, double tilt, double dutch);
int gimbal_set_abs_position_raw(int pan, int tilt, int dutch);

int gimbal_set_position(const char* position);   // "normal", "selfie"
int gimbal_orientation_lock(const char* state);  // "lock", "unlock"
int gimbal_pitch_lock(const char* state);        // "lock", "unlock"
int gimbal_horizon(const char* step);            // "cw", "ccw", "zero", "calibrate"

// Adapts the smooth-track speed to the zoom. The low 8 bits are sent.
int camera_set_zoom_adjusted_smoothtrack(int on);
