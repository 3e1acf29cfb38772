// The two watches over the camera link. Either may end the process.
#pragma once

// Prints the camera's silence every second, and ends the process when it exceeds five seconds.
// Main thread; never returns.
[[noreturn]] void supervise();

// Thread body, every 500 ms: services endpoint zero while no bulk data flows, and watches the
// camera's silence. Ends the process when the link is finished.
void* usb_watchdog_thread(void* unused);

// Whether the camera sends, as of the watchdog's last pass. Thread-safe.
bool link_is_active();
