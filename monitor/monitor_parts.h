// What the web side works with.
#pragma once

#include <chrono>

#include "monitor/command_sender.h"
#include "monitor/held_zoom.h"
#include "monitor/mp4_recorder.h"
#include "monitor/sticks.h"
#include "monitor/telemetry_store.h"
#include "monitor/video_hub.h"

struct MonitorParts {
    VideoHub& video;
    TelemetryStore& store;
    HeldZoom& zoom;
    CommandSender& commands;
    Sticks& sticks;
    Mp4Recorder& recorder;
    // Of who acknowledges nothing that was sent.
    std::chrono::milliseconds longest_silence{20000};
};
