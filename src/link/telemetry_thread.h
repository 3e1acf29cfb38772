// The thread that reports to the main application and watches for its presence.
#pragma once

// Thread body; never returns. Ticks every 100 ms and checks the presence every tenth tick.
void* telemetry_thread(void* unused);
