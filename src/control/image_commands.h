// Picture and video format. Results and threads as in capture_commands.h; each logs its argument
// before it looks at it.
#pragma once

// "auto", "sunny", "cloudy", "incandescent", "neon", "custom"; the temperature, in kelvin, is for
// "custom" alone.
int camera_set_wb(const char* mode, const char* temperature);
int camera_set_color(const char* color);  // an unknown one sends "none"
// An unknown size or rate is sent as 0.
int camera_set_video_resolution(int width, int height, int fps);
int camera_set_aspect_ratio(const char* ratio);       // "4:3", "16:9"
int camera_set_shot_mode(const char* mode);           // "raw", "jpg", "jpg+raw"
int camera_set_antiflicker(const char* frequency);    // "50", "60", any other: automatic
int camera_set_video_standard(const char* standard);  // "PAL", "NTSC"
