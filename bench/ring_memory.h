// Memory that the process holds after an hour of live video.
#pragma once

// Publishes an hour's parts and prints the process's resident memory.
void measure_ring_memory();
