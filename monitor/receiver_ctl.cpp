// receiver-ctl: the camera from a terminal, through receiver-monitor.

#include <cJSON.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <thread>

#include "monitor/receiver_ctl_client.h"
#include "monitor/receiver_ctl_commands.h"
#include "monitor/receiver_ctl_options.h"
#include "monitor/receiver_ctl_sniff.h"
#include "monitor/receiver_ctl_text.h"
#include "monitor/receiver_ctl_view.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kWaitStep{100};
constexpr milliseconds kWatchStep{200};

int failed(const std::string& why) {
    fprintf(stderr, "receiver-ctl: %s\n", why.c_str());
    return 1;
}

int wrong_use(const std::string& why) {
    failed(why);
    return 2;
}

// nullopt after *why is told.
std::optional<CtlState> ask_state(CtlClient& client, std::string* why) {
    const CtlAnswer answer = client.get("/api/state");
    *why = ctl_refusal(answer);
    if (!why->empty()) {
        return std::nullopt;
    }
    auto state = parse_ctl_state(answer.body);
    if (!state) {
        *why = "the answer is no state of a receiver-monitor";
    }
    return state;
}

int show_status(CtlClient& client, bool as_json) {
    const CtlAnswer answer = client.get("/api/state");
    const std::string why = ctl_refusal(answer);
    if (!why.empty()) {
        return failed(why);
    }
    const auto state = parse_ctl_state(answer.body);
    if (!state) {
        return failed("the answer is no state of a receiver-monitor");
    }
    fputs((as_json ? answer.body : ctl_table(*state)).c_str(), stdout);
    return 0;
}

std::string time_of_day() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[16];
    return {text, std::strftime(text, sizeof text, "%H:%M:%S", &local)};
}

// The table in its place again, line by line, so that it does not flicker.
void redraw(const std::string& text) {
    std::string screen = "\033[H";
    for (const char c : text) {
        screen += c == '\n' ? "\033[K\n" : std::string(1, c);
    }
    fputs((screen + "\033[J").c_str(), stdout);
}

void print_changes(const std::string& changes) {
    const std::string time = time_of_day();
    for (std::size_t at = 0; at < changes.size();) {
        const std::size_t end = changes.find('\n', at);
        printf("%s %s\n", time.c_str(), changes.substr(at, end - at).c_str());
        at = end + 1;
    }
}

// Until it is ended, or nobody reads. A monitor that is away is waited for.
int watch(CtlClient& client) {
    const bool on_terminal = isatty(STDOUT_FILENO) != 0;
    CtlState last;
    std::string last_why;
    if (on_terminal) {
        fputs("\033[2J", stdout);
    }
    while (ferror(stdout) == 0) {
        std::string why;
        const auto state = ask_state(client, &why);
        if (on_terminal) {
            redraw(time_of_day() + "  " + why + "\n" + (state ? ctl_table(*state) : ""));
        } else if (state) {
            print_changes(ctl_changes(last, *state));
            last = *state;
        } else if (why != last_why) {
            print_changes(why + "\n");
        }
        last_why = why;
        fflush(stdout);
        std::this_thread::sleep_for(kWatchStep);
    }
    return 1;
}

milliseconds time_until(Clock::time_point end) {
    return std::chrono::duration_cast<milliseconds>(end - Clock::now());
}

int wait_until_shown(CtlClient& client, const std::string& shows, Clock::time_point end) {
    const std::string unseen = "sent, but telemetry does not show " + shows;
    std::string failure = unseen;
    bool has_answered = false;
    for (milliseconds left = time_until(end); left > milliseconds(0); left = time_until(end)) {
        client.set_patience(left);
        std::string why;
        const auto state = ask_state(client, &why);
        const CtlValues value = [&](const std::string& key) {
            const auto found = state->find(key);
            return found == state->end() ? std::string() : found->second;
        };
        if (state && ctl_shown(shows, value)) {
            return 0;
        }
        has_answered |= state.has_value();
        // The last question may just have been cut short.
        if (state || !has_answered || Clock::now() < end) {
            failure = state ? unseen : why;
        }
        std::this_thread::sleep_for(std::clamp(time_until(end), milliseconds(0), kWaitStep));
    }
    return failed(failure);
}

int send_command(CtlClient& client, const CtlOptions& options) {
    std::string why;
    const auto request = parse_ctl_command(options.words, &why);
    if (!request) {
        return wrong_use(why);
    }
    if (request->command->is_final && !options.yes) {
        return wrong_use(std::string(request->command->help) + ": say --yes");
    }
    if (options.wait && request->shows.empty()) {
        return wrong_use("telemetry does not tell of it: there is nothing to wait for");
    }
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(options.wait_seconds));
    if (options.wait) {
        client.set_patience(time_until(end));
    }
    why = ctl_refusal(client.post("/api/command", request->json));
    if (!why.empty()) {
        return failed(why);
    }
    return options.wait ? wait_until_shown(client, request->shows, end) : 0;
}

int record_file(CtlClient& client, const std::vector<std::string>& words) {
    if (words.size() != 2 || (words[1] != "start" && words[1] != "stop")) {
        return wrong_use("that would be\n  record-file start|stop");
    }
    const std::string why =
        ctl_refusal(client.post("/api/record", "{\"record\":\"" + words[1] + "\"}"));
    return why.empty() ? 0 : failed(why);
}

int list_recordings(CtlClient& client) {
    const CtlAnswer answer = client.get("/api/recordings");
    const std::string why = ctl_refusal(answer);
    if (!why.empty()) {
        return failed(why);
    }
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(
        cJSON_ParseWithLength(answer.body.data(), answer.body.size()), &cJSON_Delete);
    const cJSON* list = json.get();
    const cJSON* each = nullptr;
    cJSON_ArrayForEach(each, list) {
        const char* name = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(each, "name"));
        const cJSON* bytes = cJSON_GetObjectItemCaseSensitive(each, "bytes");
        printf("%12.0f  %s\n", cJSON_GetNumberValue(bytes),
               name == nullptr ? "?" : ctl_printable(name).c_str());
    }
    return cJSON_IsArray(list) ? 0 : failed("the answer is no list of recordings");
}

constexpr const char* kOwnWords[] = {"status", "watch", "record-file", "recordings", "sniff"};

void complete(const std::vector<std::string>& words) {
    if (words.empty()) {
        for (const char* word : kOwnWords) {
            puts(word);
        }
    } else if (words.size() == 1 && words[0] == "record-file") {
        puts("start\nstop");
    }
    for (const std::string& word : ctl_completions(words)) {
        puts(word.c_str());
    }
}

int sniff_capture(const CtlOptions& options) {
    const bool has_file = options.words.size() == 2;
    if (options.words.size() > 2 || has_file == !options.interface.empty()) {
        return wrong_use("that would be\n  sniff FILE, or sniff -i INTERFACE");
    }
    return sniff({has_file ? options.words[1] : "", options.interface, options.plugin});
}

int run(int argc, char* argv[]) {
    int status = 0;
    const auto options = parse_ctl_options(argc, argv, &status);
    if (!options) {
        return status;
    }
    if (options->complete) {
        complete(options->words);
        return 0;
    }
    const std::string& word = options->words[0];
    if (word == "sniff") {
        return sniff_capture(*options);
    }
    CtlClient client(options->monitor, options->token);
    if (word == "record-file") {
        return record_file(client, options->words);
    }
    const bool alone = options->words.size() == 1;
    if (word == "status" && alone) {
        return show_status(client, options->json);
    }
    if (word == "watch" && alone) {
        return watch(client);
    }
    if (word == "recordings" && alone) {
        return list_recordings(client);
    }
    return send_command(client, *options);
}

}  // namespace

int main(int argc, char* argv[]) {
    const int status = run(argc, argv);
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        return failed(std::string("cannot write: ") + strerror(errno));
    }
    return status;
}
