#include "tests/soak/soak_session.h"

#include <signal.h>

#include <cmath>
#include <stdexcept>
#include <utility>

#include "tests/soak/process_figures.h"

using namespace std::chrono_literals;

namespace {

constexpr Milliseconds kChunkPeriod{33};
constexpr Milliseconds kCommandPeriod{100};
constexpr Milliseconds kStickPeriod{20};
constexpr double kStickStep = 0.05;

enum class Ending { kUnplugged, kTerminated, kSilence, kKilled, kReset };

// A link that ends while the low half of the clock is positive may be taken for a time-out.
struct EndingRule {
    Ending ending;
    const char* name;
    int status;
    int other_status;
};
// clang-format off
constexpr EndingRule kEndingRules[SoakSession::kEndings] = {
    {Ending::kUnplugged,  "unplugged while streaming",  1,        2},
    {Ending::kTerminated, "SIGTERM",                    1,        1},
    {Ending::kSilence,    "the camera falls silent",    2,        2},
    {Ending::kReset,      "bus reset while streaming",  1,        2},
    {Ending::kKilled,     "SIGKILL",                    -SIGKILL, -SIGKILL},
};
// clang-format on

void demand(bool condition, const std::string& what, const ReceiverProcess& receiver) {
    if (!condition) {
        const std::string output = receiver.lines_without_delta();
        throw std::runtime_error(
            what + "; it printed last:\n" +
            output.substr(output.size() - std::min<std::size_t>(output.size(), 2000)));
    }
}

std::size_t since(std::size_t& last, std::size_t now) {
    return now - std::exchange(last, now);
}

}  // namespace

StickRun::StickRun()
    : thread_([this] {
          for (double angle = 0; !stop_; angle += kStickStep) {
              remote_.set(kPan, std::sin(angle));
              std::this_thread::sleep_for(kStickPeriod);
          }
      }) {}

StickRun::~StickRun() {
    stop_ = true;
    thread_.join();
}

SoakSession::SoakSession(const std::vector<Bytes>& chunks, bool replugged)
    : receiver_(application_.arguments(), board_.environment()),
      camera_(commands_.watch(usb_pipes(board_))) {
    start(replugged);
    camera_.link_begins();
    demand(application_.report(5s).has_value(), "no report", receiver_);
    demand(application_.command(R"({"cmd":"set","name":"movement","value":"rel"})"), "no socket",
           receiver_);
    sticks_ = std::make_unique<StickRun>();
    begin_commands();
    video_ = std::make_unique<VideoRun>(camera_, chunks, kChunkPeriod);
}

void SoakSession::start(bool replugged) {
    demand(board_.wait_for_device(10s), "no device", receiver_);
    demand(board_.configure(), "not configured", receiver_);
    if (replugged) {
        board_.disconnect();
        demand(receiver_.wait_for("USB disconnected\n", 3s), "no disconnection", receiver_);
        demand(board_.configure(), "not configured again", receiver_);
    }
    demand(board_.wait_for_endpoints(5s), "no endpoints", receiver_);
}

void SoakSession::begin_commands() {
    application_run_ = std::make_unique<ApplicationRun>(application_, commands_, kCommandPeriod);
}

void SoakSession::interrupt_application() {
    application_run_.reset();
    const int losses = receiver_.count("Main application lost\n");
    demand(receiver_.wait_for("Main application lost\n", 5s, losses + 1),
           "the application is not lost", receiver_);
    while (application_.receive(0ms)) {
    }
    begin_commands();
}

Sample SoakSession::sample() {
    const ProcessFigures process = process_figures(receiver_.pid());
    camera_.set("battery_level", "100");
    Sample sample;
    sample[Column::kResident] = static_cast<double>(process.resident);
    sample[Column::kAnonymous] = static_cast<double>(process.anonymous);
    sample[Column::kProportional] = static_cast<double>(process.proportional);
    sample[Column::kData] = static_cast<double>(process.data);
    sample[Column::kDescriptors] = static_cast<double>(process.descriptors);
    sample[Column::kThreads] = static_cast<double>(process.threads);
    const std::vector<double> commands = commands_.latencies.take();
    sample[Column::kCommandMedian] = percentile(commands, 50);
    sample[Column::kCommandLongest] = percentile(commands, 100);
    const std::vector<double> parts = video_->latencies.take();
    sample[Column::kRingMedian] = percentile(parts, 50);
    sample[Column::kRingLongest] = percentile(parts, 100);
    const ReportPauses pauses = application_run_->take_pauses();
    sample[Column::kTextPause] = percentile(pauses.texts, 100);
    sample[Column::kStatusPause] = percentile(pauses.statuses, 100);
    sample[Column::kParts] = static_cast<double>(since(parts_, video_->arrived()));
    sample[Column::kPartsLost] = static_cast<double>(since(parts_lost_, video_->lost()));
    sample[Column::kCommands] = static_cast<double>(since(commands_sent_, commands_.sent()));
    sample[Column::kCommandsLost] = static_cast<double>(since(commands_lost_, commands_.lost()));
    const unsigned stick_packets = camera_.taken("gimbal_speed");
    sample[Column::kStickPackets] = stick_packets - std::exchange(stick_packets_, stick_packets);
    return sample;
}

const char* SoakSession::end(unsigned number) {
    const EndingRule& rule = kEndingRules[number % kEndings];
    // The last command has arrived before the end comes.
    application_run_->stop();
    std::this_thread::sleep_for(200ms);
    switch (rule.ending) {
        case Ending::kUnplugged:
            board_.disconnect();
            break;
        case Ending::kTerminated:
            receiver_.signal(SIGTERM);
            break;
        case Ending::kSilence:
            video_->finish();
            camera_.link_ends();
            break;
        case Ending::kKilled:
            receiver_.signal(SIGKILL);
            break;
        case Ending::kReset:
            board_.reset();
            break;
    }
    const std::optional<int> status = receiver_.wait_exit(15s);
    demand(status == rule.status || status == rule.other_status,
           std::string(rule.name) + " ended it with status " +
               (status ? std::to_string(*status) : "none"),
           receiver_);
    sticks_.reset();
    video_->abandon();
    return rule.name;
}
