// Plays to a receiver whose device is configured: the file, the timed actions and the script, until
// the work is done or the link ends. One thread.
#pragma once

#include <functional>
#include <vector>

#include "simulator/camera_player.h"
#include "simulator/camera_script.h"
#include "simulator/packet_record.h"
#include "simulator/simulated_camera.h"
#include "simulator/simulator_options.h"

// The receiver and its port, simulated or real.
struct SessionLink {
    // Whether the receiver has gone; where its end is near, waits for it as long as this.
    std::function<bool(Milliseconds timeout)> wait_for_end;
    // Whether it was started by this program: then its end, of the silence, is waited for.
    bool receiver_is_ours;
    std::function<bool(Milliseconds timeout)> wait_for_bulk_out_taken;
    // Disconnect, reconnect or reset. False when the device did not come back.
    std::function<bool(Action action)> act_on_port;
    std::function<bool()> interrupted;
};

struct SessionParts {
    const SimulatorOptions& options;
    SimulatedCamera& camera;
    CameraPlayer& player;
    const std::vector<ScriptLine>& script;
    PacketRecord& record;
};

// Until everything is done, the time is up, a signal comes or the link fails. Whether all went
// well.
bool play_session(const SessionLink& link, const SessionParts& parts);
