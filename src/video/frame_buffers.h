// Ring of the live video's parts in POSIX shared memory, for the main application.
//
// Writer: the USB reader thread, alone. Readers: other processes, without a lock; they may rely on
// the order part bytes -> slot header -> ring header.
#pragma once

#include <cstddef>
#include <cstdint>

// Creates (or takes over and clears) both shared objects. 0, or -1 where shared memory cannot be
// had. Start-up thread.
int frame_buffers_init();

// Publishes one chunk of video as the ring's next part; a chunk that begins with an SPS also
// updates the published resolution. USB reader thread.
void frame_queue_part(const std::uint8_t* bytes, std::size_t length);
