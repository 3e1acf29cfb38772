// The thread that takes the camera's byte stream off the bulk OUT endpoint.
#pragma once

// Thread body, from the enabling of the OUT endpoint until the link is finished or the thread is
// cancelled. However it ends, both bulk endpoints are closed and their fields cleared.
void* usb_reader_thread(void* unused);

// Starts the reader of the endpoints that were just opened. False where there is no thread to be
// had. Watchdog thread.
bool usb_reader_start();

// Cancels the reader, if one was started, and waits for its end, so that nobody but the caller
// touches the endpoints and the receive buffer from then on. Watchdog thread.
void usb_reader_stop();
