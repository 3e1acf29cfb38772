#include "app/camera_link_start.h"

#include <pthread.h>

#include "app/supervision.h"
#include "usb/gadget.h"

int camera_link_start() {
    if (gadget_start() != 0) {
        return 1;
    }
    // Without a watchdog the camera never gets an answer on endpoint zero, and the main thread
    // ends the process for its silence: the result needs no look.
    pthread_t watchdog;
    pthread_create(&watchdog, nullptr, usb_watchdog_thread, nullptr);
    return 0;
}
