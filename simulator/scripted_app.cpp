// scripted-main-application: receives the receiver's reports, prints what changes in them, and
// sends commands by a script. For demonstrations, and by hand.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "client/telemetry_view.h"
#include "simulator/app_script.h"
#include "simulator/scripted_app_options.h"

namespace {

volatile sig_atomic_t interrupted = 0;

// The port that the reports come to; what goes out goes to where the last one came from.
class ReportSocket {
  public:
    ReportSocket() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    ~ReportSocket() { close(fd_); }
    ReportSocket(const ReportSocket&) = delete;
    ReportSocket& operator=(const ReportSocket&) = delete;

    bool bind_to(std::uint16_t port) const {
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(port);
        local.sin_addr.s_addr = htonl(INADDR_ANY);
        return bind(fd_, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0;
    }

    // Empty when none comes within the time.
    std::span<const std::uint8_t> receive(int timeout_ms) {
        pollfd readable = {fd_, POLLIN, 0};
        if (poll(&readable, 1, timeout_ms) != 1) {
            return {};
        }
        socklen_t length = sizeof(receiver_);
        const ssize_t count = recvfrom(fd_, buffer_.data(), buffer_.size(), 0,
                                       reinterpret_cast<sockaddr*>(&receiver_), &length);
        return {buffer_.data(), static_cast<std::size_t>(count > 0 ? count : 0)};
    }

    void send(std::span<const std::uint8_t> datagram) const {
        if (sendto(fd_, datagram.data(), datagram.size(), 0,
                   reinterpret_cast<const sockaddr*>(&receiver_), sizeof(receiver_)) < 0) {
            perror("scripted-main-application: send");
        }
    }

  private:
    int fd_;
    sockaddr_in receiver_{};
    std::array<std::uint8_t, 2048> buffer_{};
};

class Application {
  public:
    Application(const ScriptedAppOptions& options, ReportSocket& socket, std::vector<AppStep> steps)
        : options_(options), socket_(socket), has_script_(!steps.empty()), run_(std::move(steps)) {}

    int run() {
        while (interrupted == 0 && !finished()) {
            if (const auto datagram = socket_.receive(10); !datagram.empty()) {
                take(datagram);
            }
            if (first_report_) {
                stay_present();
                follow_script();
                print_attitude();
            }
        }
        return summarise();
    }

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr double kPresencePause = 0.5;
    static constexpr double kAttitudePause = 0.5;
    static constexpr std::size_t kLineWidth = 90;

    static double seconds_since(Clock::time_point then) {
        return std::chrono::duration<double>(Clock::now() - then).count();
    }

    double now() const { return first_report_ ? seconds_since(*first_report_) : 0; }

    [[gnu::format(printf, 2, 3)]] void say(const char* format, ...) const {
        printf("app      | %6.2f s  ", now());
        va_list arguments;
        va_start(arguments, format);
        vprintf(format, arguments);
        va_end(arguments);
        putchar('\n');
        fflush(stdout);
    }

    bool finished() const {
        if (!first_report_) {
            return seconds_since(start_) > options_.wait;
        }
        if (options_.seconds > 0) {
            return missed_ || now() > options_.seconds;
        }
        return has_script_ && run_.done();
    }

    void take(std::span<const std::uint8_t> datagram) {
        if (!first_report_) {
            first_report_ = Clock::now();
        }
        const ReportKind kind = view_.take(datagram);
        if (kind == ReportKind::kWrong) {
            say("malformed: %s", view_.error().c_str());
        } else if (view_.count(kind) == 1) {
            print_whole(kind);
        }
        for (const TelemetryChange& change : view_.changes()) {
            if (change.key != "yaw" && change.key != "pitch" && change.key != "roll" &&
                change.key != "parameters") {
                say("%s %s -> %s", change.key.c_str(), shown(change.before), shown(change.after));
            }
        }
    }

    static const char* shown(const std::string& value) {
        return value.empty() ? "\"\"" : value.c_str();
    }

    void print_whole(ReportKind kind) {
        std::string line;
        for (const std::string& item : view_.items(kind)) {
            if (!line.empty() && line.size() + item.size() > kLineWidth) {
                say("%s", line.c_str());
                line.clear();
            }
            line += (line.empty() ? "" : "  ") + item;
        }
        if (!line.empty()) {
            say("%s", line.c_str());
        }
        if (kind == ReportKind::kStatus) {
            attitude_ = attitude();
        }
    }

    std::string attitude() const {
        return "yaw " + view_.value("yaw").value_or("") + " pitch " +
               view_.value("pitch").value_or("") + " roll " + view_.value("roll").value_or("");
    }

    // A moving gimbal is told of five times a second.
    void print_attitude() {
        if (!attitude_.empty() && now() - attitude_printed_ >= kAttitudePause &&
            attitude() != attitude_) {
            attitude_ = attitude();
            attitude_printed_ = now();
            say("%s", attitude_.c_str());
        }
    }

    // The receiver takes a second without a datagram for an application that is gone. It ignores
    // this one.
    void stay_present() {
        if (now() >= next_presence_) {
            static constexpr std::uint8_t kNothing[] = {0x00};
            socket_.send(kNothing);
            next_presence_ = now() + kPresencePause;
        }
    }

    void follow_script() {
        using Outcome = AppScriptRun::Outcome;
        const auto value = [this](const std::string& key) { return view_.value(key); };
        const AppScriptRun::Event event = run_.next(now(), value);
        if (event.outcome == Outcome::kSend) {
            say("sends %s", event.step->text.c_str());
            socket_.send(event.step->datagram);
        } else if (event.outcome == Outcome::kMet) {
            say("%s is %s, as expected, after %.1f s", event.step->key.c_str(),
                shown(view_.value(event.step->key).value_or("")), event.waited);
        } else if (event.outcome == Outcome::kMissed) {
            missed_ = true;
            fflush(stdout);
            fprintf(stderr, "script line %d: %s is '%s', not '%s', after %.1f s\n",
                    event.step->line, event.step->key.c_str(),
                    view_.value(event.step->key).value_or("untold").c_str(),
                    event.step->value.c_str(), event.waited);
        }
    }

    int summarise() const {
        if (!first_report_) {
            fprintf(stderr, "scripted-main-application: no report on port %d\n", options_.port);
        } else if (!run_.done()) {
            fprintf(stderr, "scripted-main-application: the script was not finished\n");
        }
        const unsigned malformed = view_.count(ReportKind::kWrong);
        say("%u text reports, %u status records, %u parameter blocks, %u malformed, "
            "%u expectations met",
            view_.count(ReportKind::kText), view_.count(ReportKind::kStatus),
            view_.count(ReportKind::kParameters), malformed, run_.met());
        return first_report_ && run_.done() && !missed_ && malformed == 0 ? 0 : 1;
    }

    const ScriptedAppOptions& options_;
    ReportSocket& socket_;
    const bool has_script_;
    AppScriptRun run_;
    TelemetryView view_;
    const Clock::time_point start_ = Clock::now();
    std::optional<Clock::time_point> first_report_;
    double next_presence_ = 0;
    std::string attitude_;  // as printed last
    double attitude_printed_ = 0;
    bool missed_ = false;
};

}  // namespace

int main(int argc, char* argv[]) {
    int status = 0;
    const std::optional<ScriptedAppOptions> options =
        parse_scripted_app_options(argc, argv, &status);
    if (!options) {
        return status;
    }
    auto steps = load_app_script(options->script);
    if (!steps) {
        return 2;
    }
    ReportSocket socket;
    if (!socket.bind_to(options->port)) {
        perror("scripted-main-application: port");
        return 1;
    }
    const auto interrupt = [](int) { interrupted = 1; };
    signal(SIGINT, interrupt);
    signal(SIGTERM, interrupt);
    return Application(*options, socket, std::move(*steps)).run();
}
