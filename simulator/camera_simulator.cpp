// camera-simulator: a board and a camera without hardware. It makes the board's directory, has the
// receiver started under it, enumerates its device and plays a file to it.

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <thread>

#include "simulator/camera_player.h"
#include "simulator/simulated_board.h"
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

// The receiver where this program has started it. Killed at the end if it is still there.
class Receiver {
  public:
    Receiver() = default;
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver() {
        if (running()) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    bool start(std::vector<std::string> program, std::vector<std::string> variables);
    bool started() const { return pid_ > 0; }
    bool running() {
        if (pid_ > 0 && !ended_ && waitpid(pid_, &status_, WNOHANG) == pid_) {
            ended_ = true;
            if (WIFEXITED(status_)) {
                printf("the receiver has ended with status %d\n", WEXITSTATUS(status_));
            } else {
                printf("the receiver was ended by signal %d\n", WTERMSIG(status_));
            }
        }
        return pid_ > 0 && !ended_;
    }
    void end(int signal_number) {
        if (running()) {
            kill(pid_, signal_number);
            for (int i = 0; i < 200 && running(); ++i) {
                std::this_thread::sleep_for(Milliseconds(10));
            }
        }
    }

  private:
    pid_t pid_ = 0;
    int status_ = 0;
    bool ended_ = false;
};

bool Receiver::start(std::vector<std::string> program, std::vector<std::string> variables) {
    std::vector<char*> arguments;
    for (std::string& each : program) {
        arguments.push_back(each.data());
    }
    arguments.push_back(nullptr);
    std::vector<char*> environment;
    for (std::string& each : variables) {
        environment.push_back(each.data());
    }
    for (char** each = environ; *each != nullptr; ++each) {
        const std::size_t name_length = strcspn(*each, "=") + 1;
        const bool replaced = std::ranges::any_of(variables, [&](const std::string& variable) {
            return variable.compare(0, name_length, *each, name_length) == 0;
        });
        if (!replaced) {
            environment.push_back(*each);
        }
    }
    environment.push_back(nullptr);
    const int error =
        posix_spawnp(&pid_, arguments[0], nullptr, nullptr, arguments.data(), environment.data());
    if (error != 0) {
        pid_ = 0;
        fprintf(stderr, "camera-simulator: %s: %s\n", arguments[0], strerror(error));
    }
    return error == 0;
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

bool wait_for_device(SimulatedBoard& board, const SimulatorOptions& options, Receiver& receiver) {
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
    CameraPlayer& player;
    bool sending = true;
    bool link_was_ended = false;  // by an action: then the receiver may go
};

bool perform(Session& session, Action action) {
    switch (action) {
        case Action::kDisconnect:
            session.board.disconnect();
            session.sending = false;
            session.link_was_ended = true;
            return true;
        case Action::kReconnect:
            session.sending = enumerate(session.board, session.options);
            session.link_was_ended = !session.sending;
            session.player.start();
            return session.sending;
        case Action::kReset:
            session.board.reset();
            session.sending = false;
            session.link_was_ended = true;
            return true;
        case Action::kSilence:
            session.sending = false;
            session.link_was_ended = true;
            return true;
        case Action::kGarbage:
            return session.player.send_garbage();
    }
    return false;
}

// Until everything is done, the time is up, a signal comes or the link fails. Whether all went
// well.
bool play(Session& session, Receiver& receiver, PacketRecord& record) {
    const auto start = Clock::now();
    auto next_status = start + std::chrono::seconds(1);
    const SimulatorOptions& options = session.options;
    auto action = options.actions.begin();
    session.player.start();
    while (signal_seen == 0) {
        const auto now = Clock::now();
        const double elapsed = std::chrono::duration<double>(now - start).count();
        record.take();
        if (now >= next_status) {
            next_status += std::chrono::seconds(1);
            printf("%.0f s: %llu bytes, %llu chunks, %zu packets in\n", elapsed,
                   static_cast<unsigned long long>(session.player.bytes()),
                   static_cast<unsigned long long>(session.player.chunks()), record.count());
            fflush(stdout);
        }
        if (receiver.started() && !receiver.running()) {
            return session.link_was_ended ||
                   (session.player.finished() && action == options.actions.end());
        }
        if (options.seconds > 0 && elapsed >= options.seconds) {
            return true;
        }
        if (action != options.actions.end() && elapsed >= action->seconds) {
            if (!perform(session, (action++)->action)) {
                return false;
            }
            continue;
        }
        const bool nothing_left =
            (session.player.finished() || !session.sending) && action == options.actions.end();
        // A receiver of this program's ends by itself, of the silence; another's is left alone.
        if (nothing_left && options.seconds <= 0 && !receiver.started()) {
            return !session.sending || session.board.wait_for_bulk_out_taken(Milliseconds(5000));
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

int simulate(const SimulatorOptions& options) {
    SimulatedBoardOptions board_options;
    board_options.root = options.root;
    SimulatedBoard board(board_options);
    PacketRecord record(board);
    CameraPlayer player(board, options);
    if (!record.open(options.record) || !player.load()) {
        return 1;
    }
    Receiver receiver;
    if (options.program.empty()) {
        print_how_to_start(board);
    } else if (!receiver.start(options.program, board.environment())) {
        return 1;
    }
    Session session = {board, options, player};
    const bool done = wait_for_device(board, options, receiver) && enumerate(board, options) &&
                      play(session, receiver, record);
    const int seen = signal_seen;
    receiver.end(seen != 0 ? seen : SIGTERM);
    return done || seen != 0 ? 0 : 1;
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
