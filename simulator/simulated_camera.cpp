#include "simulator/simulated_camera.h"

#include <utility>

#include "simulator/camera_values.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr Milliseconds kTick{5};

void append(Bytes& to, const Bytes& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

}  // namespace

SimulatedCamera::SimulatedCamera(UsbPipes pipes, SimulatedCameraOptions options)
    : pipes_(std::move(pipes)), options_(options), thread_([this] { live(); }) {}

SimulatedCamera::SimulatedCamera(SimulatedBoard& board, SimulatedCameraOptions options)
    : SimulatedCamera(usb_pipes(board), options) {}

SimulatedCamera::~SimulatedCamera() {
    {
        const std::lock_guard lock(model_mutex_);
        stop_ = true;
    }
    thread_.join();
}

void SimulatedCamera::live() {
    auto last = Clock::now();
    for (;;) {
        take_packets();
        const auto passed = std::chrono::duration_cast<Milliseconds>(Clock::now() - last);
        last += passed;
        {
            const std::lock_guard lock(model_mutex_);
            if (stop_) {
                return;
            }
            now_ += passed;
            model_.advance(passed);
        }
        send_messages();
        changed_.notify_all();
    }
}

// Waits a tick for the first.
void SimulatedCamera::take_packets() {
    Milliseconds timeout = kTick;
    while (const auto packet = pipes_.wait_for_bulk_in(packets_seen_, timeout)) {
        ++packets_seen_;
        timeout = Milliseconds(0);
        const std::lock_guard lock(model_mutex_);
        commands_.take(*packet);
    }
}

void SimulatedCamera::send_messages() {
    {
        const std::lock_guard lock(model_mutex_);
        const Bytes packets = sends_ ? schedule_.due(model_, now_) : Bytes{};
        if (!packets.empty()) {
            append(messages_, control_envelope(packets));
            // The receiver takes an envelope when a byte behind it has come: a filler, so that no
            // message waits for the next one.
            append(messages_, video_envelope(filler_chunk()));
        }
        if (messages_.empty()) {
            return;
        }
    }
    // While somebody else is sending, they leave with him: this thread must not wait for a video.
    if (wire_mutex_.try_lock()) {
        flush_messages();
        wire_mutex_.unlock();
    }
}

// With the wire held.
bool SimulatedCamera::flush_messages() {
    Bytes messages;
    {
        const std::lock_guard lock(model_mutex_);
        messages.swap(messages_);
    }
    if (messages.empty() || pipes_.bulk_out(messages, options_.transfer, options_.send_timeout)) {
        return true;
    }
    link_ends();  // what was cut off midway cannot be mended
    return false;
}

bool SimulatedCamera::send(std::span<const std::uint8_t> envelopes) {
    const std::lock_guard wire(wire_mutex_);
    return pipes_.bulk_out(envelopes, options_.transfer, options_.send_timeout) && flush_messages();
}

void SimulatedCamera::link_begins() {
    const std::lock_guard lock(model_mutex_);
    schedule_.restart();
    commands_.link_begins();
    messages_.clear();
    now_ = Milliseconds(0);
    sends_ = options_.messages;
}

void SimulatedCamera::link_ends() {
    const std::lock_guard lock(model_mutex_);
    sends_ = false;
    messages_.clear();
}

bool SimulatedCamera::set(const std::string& name, const std::string& text) {
    const std::lock_guard lock(model_mutex_);
    return set_camera_value(model_, name, text);
}

std::optional<std::string> SimulatedCamera::get(const std::string& name) const {
    const std::lock_guard lock(model_mutex_);
    return camera_value(model_, name);
}

CameraModel SimulatedCamera::model() const {
    const std::lock_guard lock(model_mutex_);
    return model_;
}

bool SimulatedCamera::is_off() const {
    const std::lock_guard lock(model_mutex_);
    return model_.power() == Power::kOff;
}

CommandCounts SimulatedCamera::counts() const {
    const std::lock_guard lock(model_mutex_);
    return commands_.counts();
}

unsigned SimulatedCamera::taken(const std::string& command) const {
    const auto taken = counts().taken;
    const auto found = taken.find(command);
    return found == taken.end() ? 0 : found->second;
}

unsigned SimulatedCamera::refused() const {
    return counts().refused_in_all();
}

// The condition is asked with the model held, after each tick.
template <typename Condition>
bool SimulatedCamera::wait_until(Milliseconds timeout, Condition condition) const {
    std::unique_lock lock(model_mutex_);
    return changed_.wait_for(lock, timeout, condition);
}

bool SimulatedCamera::wait_for(const std::string& name, const std::string& text,
                               Milliseconds timeout) const {
    return wait_until(timeout, [&] { return camera_value(model_, name) == text; });
}

bool SimulatedCamera::wait_for_taken(const std::string& command, unsigned count,
                                     Milliseconds timeout) const {
    return wait_until(timeout, [&] {
        const auto& taken = commands_.counts().taken;
        const auto found = taken.find(command);
        return found != taken.end() && found->second >= count;
    });
}
