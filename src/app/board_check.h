// Whether this board is one that the receiver supports.
#pragma once

// Reads the board's model, prints it and the verdict, and leaves the verdict for the main
// application. Start-up thread.
bool board_check();
