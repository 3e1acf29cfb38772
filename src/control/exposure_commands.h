// Exposure: metering, mode, shutter, aperture, ISO, compensation. Results and threads as in
// capture_commands.h; the settings that take a text log it before they look at it.
#pragma once

// "lock", "unlock"; any other word sends the unlocking packet without a log line.
int camera_set_ae_lock(const char* state);
int camera_set_exposure_point(int point);  // the low 8 bits are sent
int camera_set_exposure_center();

int camera_set_image_mode(const char* mode);    // "auto", "shutter", "aperture", "manual"
int camera_set_shutter(const char* shutter);    // as reported: 2.5" or 1/50; else zeros are sent
int camera_set_aperture(const char* aperture);  // f-number
int camera_set_iso(const char* iso);            // 100 .. 6400; anything else is automatic
int camera_set_ev(const char* ev);              // one of the 19 third-stops; else nothing is sent
