// The camera as a device. Results and threads as in capture_commands.h.
#pragma once

int camera_reset();
int camera_set_histogram(const char* state);  // "1", "0"
int camera_power(const char* state);          // "sleep", "wakeup", "restart", "shutdown"
int camera_format(const char* medium);        // "sd", "ssd"
int camera_set_wifi_mode(const char* band);   // "5.8"; any other word is the 2.4 GHz band
