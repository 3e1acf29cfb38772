// The decoder on the messages of a second of live video.
#pragma once

// Prints the messages that one core decodes in a second, and the allocations that this takes.
void measure_decoder();
