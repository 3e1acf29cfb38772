// camera-simulator: a camera without hardware, and a board too where there is none. It makes the
// board's directory, has the receiver started under it and enumerates its device; or, with --usb,
// it waits for the device of a real board on a port of this machine. Then it plays a file to it.

#include <signal.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>

#include "simulator/camera_player.h"
#include "simulator/camera_script.h"
#include "simulator/camera_session.h"
#include "simulator/packet_record.h"
#include "simulator/receiver_child.h"
#include "simulator/simulated_camera.h"
#include "simulator/simulator_options.h"
#include "simulator/usb_host.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kBoardWait = 60;  // seconds

volatile sig_atomic_t signal_seen = 0;

void note_signal(int number) {
    signal_seen = number;
}

Milliseconds milliseconds(double seconds) {
    return Milliseconds(static_cast<Milliseconds::rep>(seconds * 1000));
}

void print_how_to_start(const SimulatedBoard& board) {
    printf("start the receiver with:\n  env");
    for (const std::string& variable : board.environment()) {
        printf(" '%s'", variable.c_str());
    }
    printf(" camera-usb-receiver [options]\n");
    fflush(stdout);
}

bool enumerate(SimulatedBoard& board, const SimulatorOptions& options) {
    const bool configured =
        options.full_enumeration.value_or(true) ? board.enumerate() : board.configure();
    if (!configured || !board.wait_for_endpoints(Milliseconds(5000))) {
        fputs("camera-simulator: the device was not configured\n", stderr);
        return false;
    }
    return true;
}

bool wait_for_device(SimulatedBoard& board, const SimulatorOptions& options,
                     ReceiverChild& receiver) {
    const auto deadline = Clock::now() + milliseconds(options.wait_seconds.value_or(kBoardWait));
    while (!board.wait_for_device(Milliseconds(100))) {
        if (signal_seen != 0) {
            return false;
        }
        if (Clock::now() > deadline || (receiver.started() && !receiver.running())) {
            fputs("camera-simulator: no device was opened\n", stderr);
            return false;
        }
    }
    return true;
}

bool load_script(const std::string& path, std::vector<ScriptLine>* script) {
    if (path.empty()) {
        return true;
    }
    std::ifstream file(path);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::string error = "cannot be read";
    const auto lines = file ? parse_camera_script(text, &error) : std::nullopt;
    if (!lines) {
        fprintf(stderr, "camera-simulator: %s: %s\n", path.c_str(), error.c_str());
        return false;
    }
    *script = *lines;
    return true;
}

void print_counts(const CommandCounts& counts) {
    printf("commands taken:");
    for (const auto& [name, count] : counts.taken) {
        printf(" %s %u", name.c_str(), count);
    }
    printf("%s\ncommands refused: %u", counts.taken.empty() ? " none" : "",
           counts.refused_in_all());
    for (std::size_t i = 0; i < kRefusalCount; ++i) {
        if (counts.refused[i] != 0) {
            printf(", %u for its %s", counts.refused[i], refusal_name(static_cast<Refusal>(i)));
        }
    }
    printf("\n");
    fflush(stdout);
}

// The camera at an end of the link, whichever it is.
struct Rig {
    Rig(const UsbPipes& pipes, const SimulatorOptions& the_options)
        : options(the_options),
          record(pipes),
          camera(pipes, {.transfer = options.transfer, .messages = options.sends_status()}),
          player(camera, options) {}

    bool load() {
        return load_script(options.script, &script) && record.open(options.record) && player.load();
    }
    bool play(const SessionLink& link) {
        return play_session(link, {options, camera, player, script, record});
    }
    // The exit status; what was refused is a failure in any case.
    int end(bool well) const {
        print_counts(camera.counts());
        return (well || signal_seen != 0) && camera.refused() == 0 ? 0 : 1;
    }

    const SimulatorOptions& options;
    PacketRecord record;
    SimulatedCamera camera;
    CameraPlayer player;
    std::vector<ScriptLine> script;
};

bool act_on_board(SimulatedBoard& board, const SimulatorOptions& options, Action action) {
    switch (action) {
        case Action::kDisconnect:
            board.disconnect();
            return true;
        case Action::kReset:
            board.reset();
            return true;
        case Action::kReconnect:
            return enumerate(board, options);
        default:
            return false;
    }
}

int simulate_on_board(const SimulatorOptions& options) {
    SimulatedBoardOptions board_options;
    board_options.root = options.root;
    SimulatedBoard board(board_options);
    Rig rig(usb_pipes(board), options);
    if (!rig.load()) {
        return 1;
    }
    ReceiverChild receiver;
    if (options.program.empty()) {
        print_how_to_start(board);
    } else if (!receiver.start(options.program, board.environment())) {
        return 1;
    }
    const SessionLink link{
        .wait_for_end = [&](Milliseconds) { return receiver.started() && !receiver.running(); },
        .receiver_is_ours = receiver.started(),
        .wait_for_bulk_out_taken =
            [&](Milliseconds timeout) { return board.wait_for_bulk_out_taken(timeout); },
        .act_on_port = [&](Action action) { return act_on_board(board, options, action); },
        .interrupted = [] { return signal_seen != 0; },
    };
    const bool well =
        wait_for_device(board, options, receiver) && enumerate(board, options) && rig.play(link);
    const int seen = signal_seen;
    receiver.end(seen != 0 ? seen : SIGTERM);
    return rig.end(well);
}

// Looks at the port now and then: each look asks the kernel.
class PortWatch {
  public:
    explicit PortWatch(const UsbHost& host) : host_(host) {}
    // Waits at most so long; tells the end once.
    bool device_left(Milliseconds timeout) {
        const auto now = Clock::now();
        if (!left_ && (timeout > Milliseconds(0) || now >= next_look_)) {
            next_look_ = now + kBetweenLooks;
            left_ = host_.wait_until_gone(timeout);
            if (left_) {
                printf("the device has left its port\n");
                fflush(stdout);
            }
        }
        return left_;
    }

  private:
    static constexpr Milliseconds kBetweenLooks{100};
    const UsbHost& host_;
    Clock::time_point next_look_;
    bool left_ = false;
};

bool claim_device(UsbHost& host, const SimulatorOptions& options) {
    std::optional<Milliseconds> timeout;
    if (options.wait_seconds) {
        timeout = milliseconds(*options.wait_seconds);
    }
    printf("waiting for the receiver's device on a USB port\n");
    fflush(stdout);
    for (;;) {
        if (!host.wait_for_device(timeout, [] { return signal_seen != 0; })) {
            if (signal_seen == 0) {
                fputs("camera-simulator: no device has come\n", stderr);
            }
            return false;
        }
        printf("device %s found: bus %u, address %u, %s Mbit/s, \"%s\" \"%s\", serial \"%s\"\n",
               host.sysfs_name().c_str(), host.bus(), host.address(),
               host.sysfs_text("speed").c_str(), host.sysfs_text("manufacturer").c_str(),
               host.sysfs_text("product").c_str(), host.sysfs_text("serial").c_str());
        fflush(stdout);
        if (host.open() && host.claim()) {
            break;
        }
        if (!host.gone()) {
            return false;
        }
    }
    printf("interface claimed, configuration %u\n", host.configuration_value());
    fflush(stdout);
    return true;
}

int simulate_over_usb(const SimulatorOptions& options) {
    UsbHost host;
    Rig rig(usb_pipes(host), options);
    if (!rig.load()) {
        return 1;
    }
    PortWatch watch(host);
    const SessionLink link{
        .wait_for_end = [&](Milliseconds timeout) { return watch.device_left(timeout); },
        .receiver_is_ours = false,
        .wait_for_bulk_out_taken =
            [&](Milliseconds timeout) { return host.wait_for_bulk_out_taken(timeout); },
        .act_on_port = [&](Action action) { return action == Action::kReset && host.reset(); },
        .interrupted = [] { return signal_seen != 0; },
    };
    const bool well = claim_device(host, options) && rig.play(link);
    return rig.end(well);
}

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    const auto options = parse_simulator_options(argc, argv, &status);
    if (!options) {
        return status;
    }
    struct sigaction action {};
    action.sa_handler = note_signal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    try {
        return options->usb ? simulate_over_usb(*options) : simulate_on_board(*options);
    } catch (const std::exception& failure) {
        fprintf(stderr, "camera-simulator: %s\n", failure.what());
        return 1;
    }
}
