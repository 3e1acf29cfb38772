// camera-simulator: a board and a camera without hardware. It makes the board's directory, has the
// receiver started under it, enumerates its device and plays a file to it.

#include <signal.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <thread>

#include "simulator/camera_player.h"
#include "simulator/camera_script.h"
#include "simulator/receiver_child.h"
#include "simulator/simulated_camera.h"
#include "simulator/simulator_options.h"

namespace {

using Clock = std::chrono::steady_clock;

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

// What the receiver sends: counted, and written as hex lines where that is asked.
class PacketRecord {
  public:
    explicit PacketRecord(SimulatedBoard& board) : board_(board) {}
    PacketRecord(const PacketRecord&) = delete;
    PacketRecord& operator=(const PacketRecord&) = delete;
    ~PacketRecord() {
        if (file_ != nullptr) {
            take();
            fclose(file_);
        }
    }

    bool open(const std::string& path) {
        file_ = path.empty() ? nullptr : fopen(path.c_str(), "w");
        if (file_ == nullptr && !path.empty()) {
            perror(path.c_str());
        }
        return path.empty() || file_ != nullptr;
    }
    void take() {
        while (const auto packet = board_.wait_for_bulk_in(count_, Milliseconds(0))) {
            ++count_;
            if (file_ != nullptr) {
                for (const std::uint8_t byte : *packet) {
                    fprintf(file_, "%02X", byte);
                }
                fputc('\n', file_);
                fflush(file_);
            }
        }
    }
    std::size_t count() const { return count_; }

  private:
    SimulatedBoard& board_;
    FILE* file_ = nullptr;
    std::size_t count_ = 0;
};

bool enumerate(SimulatedBoard& board, const SimulatorOptions& options) {
    const bool configured = options.full_enumeration ? board.enumerate() : board.configure();
    if (!configured || !board.wait_for_endpoints(Milliseconds(5000))) {
        fputs("camera-simulator: the device was not configured\n", stderr);
        return false;
    }
    return true;
}

bool wait_for_device(SimulatedBoard& board, const SimulatorOptions& options,
                     ReceiverChild& receiver) {
    const auto deadline = Clock::now() + milliseconds(options.wait_seconds);
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

// The link while it lasts. What has been done to it decides whether its end is a failure.
struct Session {
    SimulatedBoard& board;
    const SimulatorOptions& options;
    SimulatedCamera& camera;
    CameraPlayer& player;
    const std::vector<ScriptLine>& script;
    std::size_t actions_done = 0;
    std::size_t script_done = 0;
    bool sending = true;
    bool link_was_ended = false;  // by an action: then the receiver may go

    bool work_done() const {
        return (player.finished() || !sending) && actions_done == options.actions.size() &&
               script_done == script.size();
    }
    // A camera that was given nothing to do is simply there.
    bool without_work() const {
        return options.sends_status() && options.h264.empty() && options.raw.empty() &&
               options.actions.empty() && script.empty();
    }
    void begin() {
        player.start();
        camera.link_begins();
    }
    void end_link() {
        camera.link_ends();
        sending = false;
        link_was_ended = true;
    }
};

bool perform(Session& session, Action action) {
    switch (action) {
        case Action::kDisconnect:
            session.board.disconnect();
            session.end_link();
            return true;
        case Action::kReconnect:
            session.sending = enumerate(session.board, session.options);
            session.link_was_ended = !session.sending;
            session.begin();
            return session.sending;
        case Action::kReset:
            session.board.reset();
            session.end_link();
            return true;
        case Action::kSilence:
            session.end_link();
            return true;
        case Action::kGarbage:
            return session.player.send_garbage();
    }
    return false;
}

// Does the next thing whose time has come. False when it failed; *done tells whether there was one.
bool perform_next(Session& session, double elapsed, bool* done) {
    const std::vector<TimedAction>& actions = session.options.actions;
    *done = true;
    if (session.actions_done < actions.size() && elapsed >= actions[session.actions_done].seconds) {
        return perform(session, actions[session.actions_done++].action);
    }
    if (session.script_done < session.script.size() &&
        elapsed >= session.script[session.script_done].seconds) {
        return perform_script_line(session.camera, session.script[session.script_done++]);
    }
    *done = false;
    return true;
}

void print_progress(const Session& session, double elapsed, std::size_t packets) {
    printf("%.0f s: %llu bytes, %llu chunks, %zu packets in\n", elapsed,
           static_cast<unsigned long long>(session.player.bytes()),
           static_cast<unsigned long long>(session.player.chunks()), packets);
    fflush(stdout);
}

// Until everything is done, the time is up, a signal comes or the link fails. Whether all went
// well.
bool play(Session& session, ReceiverChild& receiver, PacketRecord& record) {
    const auto start = Clock::now();
    auto next_status = start + std::chrono::seconds(1);
    const SimulatorOptions& options = session.options;
    session.begin();
    while (signal_seen == 0) {
        const auto now = Clock::now();
        const double elapsed = std::chrono::duration<double>(now - start).count();
        record.take();
        if (now >= next_status) {
            next_status += std::chrono::seconds(1);
            print_progress(session, elapsed, record.count());
        }
        if (receiver.started() && !receiver.running()) {
            return session.link_was_ended || session.work_done();
        }
        if (options.seconds > 0 && elapsed >= options.seconds) {
            return true;
        }
        bool performed = false;
        if (!perform_next(session, elapsed, &performed)) {
            return false;
        }
        if (performed) {
            continue;
        }
        if (session.work_done() && !session.without_work() && options.seconds <= 0) {
            // A receiver of this program's ends by itself, of the silence; another's is left alone.
            session.camera.link_ends();
            if (!receiver.started()) {
                return !session.sending ||
                       session.board.wait_for_bulk_out_taken(Milliseconds(5000));
            }
        }
        if (session.sending && !session.player.play()) {
            fputs("camera-simulator: the receiver takes no more data\n", stderr);
            return false;
        }
        const bool due =
            session.sending && !session.player.finished() && session.player.next_due() <= now;
        if (!due) {
            std::this_thread::sleep_for(Milliseconds(1));
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

int simulate(const SimulatorOptions& options) {
    SimulatedBoardOptions board_options;
    board_options.root = options.root;
    SimulatedBoard board(board_options);
    PacketRecord record(board);
    SimulatedCamera camera(board,
                           {.transfer = options.transfer, .messages = options.sends_status()});
    CameraPlayer player(camera, options);
    std::vector<ScriptLine> script;
    if (!load_script(options.script, &script) || !record.open(options.record) || !player.load()) {
        return 1;
    }
    ReceiverChild receiver;
    if (options.program.empty()) {
        print_how_to_start(board);
    } else if (!receiver.start(options.program, board.environment())) {
        return 1;
    }
    Session session{board, options, camera, player, script};
    const bool done = wait_for_device(board, options, receiver) && enumerate(board, options) &&
                      play(session, receiver, record);
    const int seen = signal_seen;
    receiver.end(seen != 0 ? seen : SIGTERM);
    print_counts(camera.counts());
    return (done || seen != 0) && camera.refused() == 0 ? 0 : 1;
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
        return simulate(*options);
    } catch (const std::exception& failure) {
        fprintf(stderr, "camera-simulator: %s\n", failure.what());
        return 1;
    }
}
