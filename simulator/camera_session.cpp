#include "simulator/camera_session.h"

#include <cstdio>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr Milliseconds kLastTransfers{5000};
constexpr Milliseconds kLeaving{1000};  // from the first failed transfer to the end

// The link while it lasts. What has been done to it decides whether its end is a failure.
struct Session : SessionParts {
    Session(const SessionLink& the_link, const SessionParts& parts)
        : SessionParts(parts), link(the_link) {}

    const SessionLink& link;
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
    void begin() const {
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
        case Action::kReset:
            session.link.act_on_port(action);
            session.end_link();
            return true;
        case Action::kReconnect:
            session.sending = session.link.act_on_port(action);
            session.link_was_ended = !session.sending;
            session.begin();
            return session.sending;
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

// False when the device does not take what is due.
bool play_due(const Session& session) {
    if (!session.sending || session.player.play()) {
        return true;
    }
    if (!session.link.wait_for_end(kLeaving)) {
        fputs("camera-simulator: the receiver takes no more data\n", stderr);
    }
    return false;
}

}  // namespace

bool play_session(const SessionLink& link, const SessionParts& parts) {
    Session session(link, parts);
    const SimulatorOptions& options = parts.options;
    const auto start = Clock::now();
    auto next_status = start + std::chrono::seconds(1);
    session.begin();
    while (!link.interrupted()) {
        const auto now = Clock::now();
        const double elapsed = std::chrono::duration<double>(now - start).count();
        parts.record.take();
        if (now >= next_status) {
            next_status += std::chrono::seconds(1);
            print_progress(session, elapsed, parts.record.count());
        }
        if (link.wait_for_end(Milliseconds(0))) {
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
        if (session.sending && session.camera.is_off()) {
            session.end_link();
        }
        if (session.work_done() && !session.without_work() && options.seconds <= 0) {
            // A receiver of this program's ends by itself, of the silence; another's is left alone.
            session.camera.link_ends();
            if (!link.receiver_is_ours) {
                return !session.sending || link.wait_for_bulk_out_taken(kLastTransfers);
            }
        }
        if (!play_due(session)) {
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
