// How long a command of the main application takes to the camera.
#pragma once

// Prints median and 99th percentile from a JSON datagram sent to its packet on bulk IN, for the
// receiver and for bare-link, which gets the packet itself as its datagram. False when a packet
// does not arrive.
bool compare_command_latency();
