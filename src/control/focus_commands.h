// Focus and zoom. Results and threads as in capture_commands.h.
#pragma once

// "mf", "af", "inf". Logged whatever the word. "inf" takes 40 ms.
int camera_set_focus_type(const char* type);
int camera_set_focus_point(float x, float y);
// Between the focus limits where there are any. Sends nothing while the camera focuses by itself,
// or when the position is the one sent last; the result is then 0.
int camera_set_manual_focus(int percent);
int camera_set_focus_assistant(const char* assistant, int on);  // "afa", "mfa"
int camera_set_realtime_af(int on);                             // the low 8 bits are sent

int camera_set_digital_zoom(int level);      // 100 .. 200, limited to that
int camera_set_optical_zoom(int direction);  // above 0 in, below 0 out, 0 stop
