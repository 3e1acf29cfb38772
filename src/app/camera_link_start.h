// The side of the camera.
#pragma once

// Mounts gadgetfs, opens the USB device and starts the watchdog over it. 0, or 1 when the device
// cannot be had. Start-up thread.
int camera_link_start();
