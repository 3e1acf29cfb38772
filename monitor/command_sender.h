// Commands on their way: whose is sent, logged, and kept in mind where no report tells of it.
// Thread-safe.
#pragma once

#include <mutex>
#include <string>

#include "monitor/command_check.h"
#include "monitor/held_zoom.h"
#include "monitor/telemetry_store.h"

class CommandSender {
  public:
    CommandSender(TelemetryStore& store, HeldZoom& zoom) : store_(store), zoom_(zoom) {}

    // Sends this hand's command where it is one and a receiver is there, and logs it. Empty, or why
    // not.
    std::string send(const CheckedCommand& command, const void* hand);

  private:
    TelemetryStore& store_;
    HeldZoom& zoom_;
    std::mutex mutex_;  // the last to be sent is the last that is kept in mind
};
