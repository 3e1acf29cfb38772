#include "tests/soak/application_run.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace {

// byte:  9 command set, 10 command, 11 the ISO's code
constexpr std::uint8_t kCameraSet = 0x02;
constexpr std::uint8_t kIso = 0x2A;
constexpr std::size_t kIsoPacketSize = 14;

struct IsoValue {
    const char* text;
    std::uint8_t code;
};
constexpr IsoValue kIsoValues[] = {
    {"100", 3}, {"200", 4}, {"400", 5}, {"800", 6}, {"1600", 7}, {"3200", 8}, {"6400", 9},
};

constexpr Bytes::value_type kTextReport = 0x07;
constexpr Bytes::value_type kBinaryReport = 0x06;
constexpr Bytes::value_type kStatusRecord = 0x00;

void note(Clock::time_point now, Clock::time_point& last, Latencies& pauses) {
    if (last != Clock::time_point{}) {
        pauses.add(milliseconds_between(last, now));
    }
    last = now;
}

}  // namespace

UsbPipes CommandWatch::watch(UsbPipes pipes, std::set<Bytes> strangers) {
    // A stranger's place among the packets is passed over for the camera behind the pipe.
    pipes.wait_for_bulk_in = [this, wait = pipes.wait_for_bulk_in, strangers = std::move(strangers),
                              passed = std::size_t{0}](std::size_t index,
                                                       Milliseconds timeout) mutable {
        auto packet = wait(index + passed, timeout);
        while (packet && strangers.contains(*packet)) {
            ++passed;
            ++strangers_;
            packet = wait(index + passed, timeout);
        }
        if (packet) {
            look(*packet);
        }
        return packet;
    };
    return pipes;
}

void CommandWatch::look(const Bytes& packet) {
    if (packet.size() != kIsoPacketSize || packet[9] != kCameraSet || packet[10] != kIso) {
        return;
    }
    const auto now = Clock::now();
    const std::lock_guard lock(mutex_);
    while (!pending_.empty()) {
        const Pending command = pending_.front();
        pending_.pop_front();
        if (command.code == packet[11]) {
            ++arrived_;
            latencies.add(milliseconds_between(command.sent, now));
            return;
        }
        ++lost_;
    }
}

std::string CommandWatch::next_command() {
    const std::lock_guard lock(mutex_);
    const IsoValue& value = kIsoValues[sent_ % std::size(kIsoValues)];
    ++sent_;
    pending_.push_back({value.code, Clock::now()});
    return std::string(R"({"cmd":"iso","param":")") + value.text + "\"}";
}

std::size_t CommandWatch::sent() const {
    const std::lock_guard lock(mutex_);
    return sent_;
}

std::size_t CommandWatch::arrived() const {
    const std::lock_guard lock(mutex_);
    return arrived_;
}

std::size_t CommandWatch::lost() const {
    const std::lock_guard lock(mutex_);
    return lost_;
}

std::size_t CommandWatch::lost_in_all() const {
    const std::lock_guard lock(mutex_);
    return lost_ + pending_.size();
}

ApplicationRun::ApplicationRun(MainApplication& application, CommandWatch& watch,
                               Milliseconds command_period)
    : application_(application), watch_(watch), period_(command_period) {
    if (!application_.report(Milliseconds(5000))) {
        throw std::runtime_error("the receiver reports nothing");
    }
    last_text_ = Clock::now();
    thread_ = std::thread([this] { run(); });
}

void ApplicationRun::stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ApplicationRun::run() {
    for (auto next = Clock::now() + period_; !stop_; next += period_) {
        receive_until(next);
        application_.command(watch_.next_command());
    }
    receive_until(Clock::now() + period_);
}

void ApplicationRun::receive_until(Clock::time_point end) {
    for (auto now = Clock::now(); now < end; now = Clock::now()) {
        const auto report = application_.receive(std::chrono::ceil<Milliseconds>(end - now));
        now = Clock::now();
        if (!report || report->empty()) {
            continue;
        }
        if (report->front() == kTextReport) {
            note(now, last_text_, texts_);
        } else if (report->front() == kBinaryReport && report->at(1) == kStatusRecord) {
            note(now, last_status_, statuses_);
        }
    }
}
