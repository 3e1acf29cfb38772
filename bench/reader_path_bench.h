// The reader thread's work for each transfer, against a plain copy of the same bytes.
#pragma once

// Prints the two rates and their ratio.
void compare_reader_path_with_copy();
