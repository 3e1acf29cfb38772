// One step through a setting's list, from the value that the camera last reported and round at the
// ends. From a value that is not in the list, next is the second entry and previous the last.
// Results and threads as in capture_commands.h.
#pragma once

// On a camera model without a list of its own these log their line and do no more.
int camera_next_image_mode();
int camera_prev_image_mode();
int camera_next_shutter();
int camera_prev_shutter();
int camera_next_aperture();
int camera_prev_aperture();
int camera_next_iso();
int camera_prev_iso();
int camera_next_ev();
int camera_prev_ev();
int camera_next_wb();
int camera_prev_wb();
int camera_next_color();
int camera_prev_color();
