// The thread that takes the camera's byte stream off the bulk OUT endpoint.
#pragma once

// Thread body, from the enabling of the OUT endpoint until the link is finished or the thread is
// cancelled. It closes both bulk endpoints and clears their fields at its end, unless a newer
// reader has taken them over.
void* usb_reader_thread(void* unused);

// Starts the reader of the endpoints that were just opened, after the end of one that an earlier
// configuration has left. False where there is no thread to be had. Watchdog thread.
bool usb_reader_start();

// Cancels the reader, if one was started, and waits for its end, so that nobody but the caller
// touches the endpoints and the receive buffer from then on. Watchdog thread.
void usb_reader_stop();
