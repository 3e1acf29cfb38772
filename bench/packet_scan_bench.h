// The packet scanner on what it likes least, against what it is made for.
#pragma once

// Prints how much longer a payload of start bytes takes than one of sound packets.
void compare_scans();
