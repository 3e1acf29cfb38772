#include "tests/faults/live_receiver.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "simulator/camera_stream.h"
#include "tests/e2e/udp_peer.h"
#include "tests/faults/end_lines.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr char kOldFocusFile[] = "# Osmo USB config file\r\n\r\nmf_min=100\r\nmf_max=200\r\n";
constexpr char kFocusPlace[] = "/boot/osmo-usb.conf";
constexpr std::uint16_t kBridgePort = 6000;

// A fault shows within ten seconds; a run without one is at work after six.
constexpr seconds kTimeToShow{10};
constexpr seconds kLongestRun{25};
// One run makes a few calls more than another before it is at work.
constexpr seconds kTimeForLastCalls{2};
constexpr milliseconds kAskPause{400};
constexpr milliseconds kLookPause{50};
constexpr milliseconds kPicturePause{40};
constexpr unsigned kPartsSeen = 5;
constexpr int kFirstLimit = 2000;
constexpr char kSupervisionLine[] = "delta ";
constexpr unsigned kNoPresses = ~0U;  // before the first one

// Many receivers share a processor: a host that leaves time for the first look at endpoint zero.
SimulatedBoardOptions patient_host() {
    SimulatedBoardOptions options;
    options.host_asks_after = milliseconds(750);
    return options;
}

FaultRecord* make_record(const std::string& path, const FaultPlan& plan) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* memory = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, sizeof(FaultRecord)) == 0) {
        memory = mmap(nullptr, sizeof(FaultRecord), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    close(fd);
    if (memory == MAP_FAILED) {
        throw std::runtime_error("cannot make " + path);
    }
    FaultRecord* const record = static_cast<FaultRecord*>(memory);
    record->plan = plan;
    return record;
}

std::string focus_text(int round) {
    return "# Osmo USB config file\r\n\r\nmf_min=500\r\nmf_max=" +
           std::to_string(kFirstLimit + round) + "\r\n";
}

}  // namespace

std::string Signs::missing() const {
    std::string text;
    const auto add = [&text](bool seen, const char* name) {
        if (!seen) {
            text += std::string(text.empty() ? "" : ", ") + "no " + name;
        }
    };
    add(video, "video");
    add(reports, "reports");
    add(commands, "commands");
    add(bridge, "bridge");
    add(saved, "saving");
    add(remote, "remote control");
    add(supervision, "supervision");
    return text;
}

LiveReceiver::LiveReceiver(const FaultPlan& plan) : board_(patient_host()) {
    record_ = make_record(board_.path("/fault-record"), plan);
    write_old_focus_file();
}

void LiveReceiver::write_old_focus_file() const {
    std::ofstream(board_.path(kFocusPlace), std::ios::binary) << kOldFocusFile;
}

LiveReceiver::~LiveReceiver() {
    stop_ = true;
    process_.reset();
    if (host_.joinable()) {
        host_.join();
    }
    camera_.reset();
    munmap(record_, sizeof(FaultRecord));
}

void LiveReceiver::start(const std::string& redirection) {
    std::vector<std::string> environment = board_.environment();
    for (std::string& variable : environment) {
        if (variable.starts_with("LD_PRELOAD=")) {
            variable.insert(variable.find('=') + 1, FAULT_INJECTOR_LIBRARY ":");
            // The shell itself is not on the board.
            variable.insert(0, redirection.empty() ? "" : "RECEIVER_");
        }
    }
    environment.push_back(std::string(kFaultRecordVariable) + "=" + board_.path("/fault-record"));
    std::vector<std::string> arguments = app_.arguments();
    arguments.emplace_back("--verbose");
    if (redirection.empty()) {
        process_.emplace(arguments, environment);
    } else {
        const std::string line = R"(exec env LD_PRELOAD="$RECEIVER_LD_PRELOAD" "$0" "$@" )";
        arguments.insert(arguments.begin(), {"-c", line + redirection, RECEIVER_PROGRAM});
        process_.emplace(arguments, environment, "/bin/sh");
    }
    host_ = std::thread([this] {
        play_host();
        stream();
    });
}

// As a host does it: it gives up where something is refused.
void LiveReceiver::play_host() {
    constexpr SetupPacket kSerialString = {0x80, 6, 0x0300 | 101, 0x0409, 255};
    constexpr SetupPacket kSetConfiguration = {0x00, 9, 2, 0, 0};
    constexpr SetupPacket kSetInterface = {0x01, 11, 0, 0, 0};
    while (!stop_ && !board_.wait_for_device(kLookPause)) {
    }
    board_.connect();
    board_.control(kSerialString);
    if (stop_ || board_.control(kSetConfiguration).status != ControlStatus::kAcknowledged) {
        return;
    }
    camera_.emplace(board_);
    streaming_ = true;
    board_.control(kSetInterface);
    camera_->link_begins();
}

void LiveReceiver::stream() {
    const Bytes picture(600, 0x5A);
    while (!stop_ && streaming_) {
        if (!silent_) {
            camera_->send(video_envelope(picture));
        }
        std::this_thread::sleep_for(kPicturePause);
    }
}

void LiveReceiver::silence_camera(bool silent) {
    silent_ = silent;
    if (silent) {
        camera_->link_ends();
    } else {
        camera_->link_begins();
    }
    // What is on its way arrives, and its time is noted.
    std::this_thread::sleep_for(4 * kPicturePause);
}

// Asks for what has not been seen yet. Each round has a focus limit of its own, so that what is in
// the file belongs to it.
void LiveReceiver::ask() {
    next_ask_ = Clock::now() + kAskPause;
    // The reports tell where commands go; a receiver without them is found all the same.
    if (!signs_.reports) {
        if (const auto socket = process_->app_socket()) {
            app_.send_to(socket->port);
        }
    }
    if (!signs_.commands) {
        commands_before_ = camera_->taken("iso");
        app_.command(R"({"cmd":"iso","param":"400"})");
    }
    if (!signs_.saved) {
        ++round_;
        app_.command(
            R"({"cmd":"updatecameraconfig","param":"focus_limits","value":"500","value2":")" +
            std::to_string(kFirstLimit + round_) + R"("})");
    }
    if (!signs_.bridge) {
        refused_before_ = camera_->refused();
        UdpPeer().send(kBridgePort, {1, 2, 3});  // no packet of the camera's: it counts as refused
    }
    if (!signs_.remote && find_channels()) {
        presses_before_ = camera_->taken("gimbal_selfie");
        app_.command(R"({"cmd":"set","name":"movement","value":"rel"})");
        press_ = -press_;
        channels_->set(kPosition, press_);  // either way is a press, but not the same twice
    }
}

// The block is there once the receiver has made it.
bool LiveReceiver::find_channels() {
    try {
        if (!channels_) {
            channels_.emplace();
        }
    } catch (const std::runtime_error&) {
        return false;
    }
    return true;
}

void LiveReceiver::look() {
    if (ring_open_ || (ring_open_ = ring_.open())) {
        ring_.take([this](std::uint16_t, std::span<const std::uint8_t>) { ++parts_; });
    }
    signs_.video = parts_ >= kPartsSeen;
    signs_.reports = app_.report(kLookPause).has_value() || signs_.reports;
    signs_.supervision = process_->count(kSupervisionLine) > supervisions_before_;
    if (!streaming_ || (!signs_.video && !signs_.reports)) {
        return;
    }
    if (next_ask_ != Clock::time_point()) {
        signs_.commands = signs_.commands || camera_->taken("iso") > commands_before_;
        signs_.bridge = signs_.bridge || camera_->refused() > refused_before_;
        signs_.saved = signs_.saved || file_text() == focus_text(round_);
        signs_.remote = signs_.remote || camera_->taken("gimbal_selfie") > presses_before_;
    }
    if (Clock::now() >= next_ask_) {
        ask();
    }
}

// What was seen until here does not count.
void LiveReceiver::look_anew() {
    signs_ = {};
    parts_ = 0;
    supervisions_before_ = process_->count(kSupervisionLine);
    presses_before_ = kNoPresses;
    next_ask_ = {};
}

std::string LiveReceiver::outcome(bool wait_for_fault) {
    constexpr Signs kAll{true, true, true, true, true, true, true};
    const bool fault_planned = record_->plan.action != FaultAction::kNone;
    bool fault_seen = !wait_for_fault;
    bool at_work = false;
    Clock::time_point end = Clock::now() + (wait_for_fault ? kLongestRun : kTimeToShow);
    look_anew();
    while (Clock::now() < end) {
        if (const auto status = process_->wait_exit(milliseconds(0))) {
            output_ = process_->output();
            return "ends " + std::to_string(*status) + ": " + end_line(output_, *status) +
                   focus_file_remark();
        }
        if (!fault_seen && record_->injected.load() > 0) {
            fault_seen = true;
            end = Clock::now() + kTimeToShow;
            look_anew();
        }
        look();
        if (signs_ == kAll && (fault_seen || !fault_planned)) {
            break;
        }
        if (signs_ == kAll && !at_work) {
            at_work = true;
            end = Clock::now() + kTimeForLastCalls;
        }
    }
    output_ = process_->output();
    if (!fault_seen && signs_ == kAll && fault_planned) {
        return "not reached";
    }
    const std::string missing = signs_.missing();
    return "carries on" + (missing.empty() ? "" : ", " + missing) + focus_file_remark();
}

bool LiveReceiver::wait_for(const std::string& line) const {
    return process_->wait_for(line, kTimeToShow);
}

std::optional<int> LiveReceiver::wait_exit() {
    return process_->wait_exit(kTimeToShow);
}

std::string LiveReceiver::file_text() const {
    std::ifstream in(board_.path(kFocusPlace), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string LiveReceiver::focus_file() const {
    const std::string text = file_text();
    if (text.empty()) {
        return "empty";
    }
    for (int round = 1; round <= round_; ++round) {
        if (text == focus_text(round)) {
            return "new";
        }
    }
    return text == kOldFocusFile ? "old" : "torn: " + text;
}

// Silent about a file that is as it should be.
std::string LiveReceiver::focus_file_remark() const {
    const std::string file = focus_file();
    return file == "old" || file == "new" ? "" : ", focus file " + file;
}
