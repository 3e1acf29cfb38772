#include "monitor/receiver_ctl_sniff.h"

#include <cJSON.h>
#include <fcntl.h>
#include <glob.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "monitor/receiver_ctl_text.h"

extern char** environ;  // NOLINT: POSIX declares it nowhere

namespace {

// What stands ahead of a field's own name: of these the values are shown. A command's are part of
// its summary.
constexpr std::string_view kShownFields[] = {"_vantarel_camera_", "_vantarel_report_"};
constexpr std::string_view kFromApplication[] = {"JSON command", "zoom", "sign of life"};
constexpr char kPacket[] = "vantarel_packet";
constexpr char kLink[] = "vantarel_link";

struct Sniffed {
    std::string direction, name, kind, command, values, warnings;
};

std::string text_of(const cJSON* value) {
    const char* text = cJSON_GetStringValue(value);
    return text != nullptr ? text : cJSON_IsTrue(value) ? "1" : cJSON_IsFalse(value) ? "0" : "";
}

void add_value(const std::string& key, const std::string& value, Sniffed* line) {
    if (key.ends_with("_packet_direction")) {
        line->direction = value;
    } else if (key.ends_with("_packet_summary")) {
        line->name = value;
    } else if (key.ends_with("_link_kind")) {
        line->kind = value;
    } else if (key.ends_with("_app_command") || key.ends_with("_app_zoom")) {
        line->command = value;
    } else if (key.ends_with("expert_message")) {
        line->warnings += "  ! " + value;
    } else if (!value.empty() && !key.ends_with("_text")) {
        for (const std::string_view prefix : kShownFields) {
            if (const std::size_t at = key.find(prefix); at != std::string::npos) {
                line->values += "  " + key.substr(at + prefix.size()) + " " + value;
            }
        }
    }
}

// A field with fields of its own below it is an object, one that occurs more than once a list.
void collect(const cJSON* object, Sniffed* line) {
    for (const cJSON* member = object->child; member != nullptr; member = member->next) {
        const char* name = member->string != nullptr ? member->string : object->string;
        if (cJSON_IsObject(member) || cJSON_IsArray(member)) {
            collect(member, line);
        } else if (name != nullptr) {
            add_value(name, text_of(member), line);
        }
    }
}

std::string line_of(const cJSON* packet, const std::string& time) {
    Sniffed line;
    collect(packet, &line);
    std::string direction = line.direction;
    if (direction.empty()) {
        direction = std::ranges::find(kFromApplication, line.kind) != std::end(kFromApplication)
                        ? "from the application"
                        : "to the application";
    }
    char begin[64];
    snprintf(begin, sizeof begin, "%12s  %-20s  ", time.c_str(), direction.c_str());
    const std::string name = line.name.empty() ? line.kind : line.name;
    return ctl_printable(begin + name + (line.command.empty() ? "" : " " + line.command) +
                         line.values + line.warnings) +
           "\n";
}

void find_packets(const cJSON* object, const std::string& time, std::string* lines) {
    for (const cJSON* member = object->child; member != nullptr; member = member->next) {
        const char* name = member->string == nullptr ? "" : member->string;
        if (strcmp(name, kPacket) == 0 || strcmp(name, kLink) == 0) {
            if (cJSON_IsArray(member)) {
                for (const cJSON* each = member->child; each != nullptr; each = each->next) {
                    *lines += line_of(each, time);
                }
            } else if (cJSON_IsObject(member)) {
                *lines += line_of(member, time);
            }
        } else if (cJSON_IsObject(member) || cJSON_IsArray(member)) {
            find_packets(member, time, lines);
        }
    }
}

// One that Wireshark loads by itself must not be loaded a second time.
bool is_loaded_anyway() {
    const char* home = getenv("HOME");
    const std::string own =
        std::string(home == nullptr ? "" : home) + "/.local/lib/wireshark/plugins/vantarel.lua";
    glob_t found{};
    const bool system_wide =
        glob("/usr/lib/*/wireshark/plugins/vantarel.lua", 0, nullptr, &found) == 0;
    globfree(&found);
    return system_wide || access(own.c_str(), R_OK) == 0;
}

std::vector<std::string> tshark_words(const SniffOptions& options) {
    std::vector<std::string> words = {
        "tshark", "-l", "-n", "-Q",
        "-T",     "ek", "-J", "frame vantarel_usb vantarel_packet vantarel_link"};
    if (!options.plugin.empty() || !is_loaded_anyway()) {
        words.insert(
            words.end(),
            {"-X", "lua_script:" + (options.plugin.empty() ? std::string(RECEIVER_WIRESHARK_PLUGIN)
                                                           : options.plugin)});
    }
    if (options.interface.empty()) {
        words.insert(words.end(), {"-r", options.file});
    } else {
        words.insert(words.end(), {"-i", options.interface});
    }
    return words;
}

// tshark with its standard output as a stream; null where there is no tshark.
FILE* start_tshark(const SniffOptions& options, pid_t* pid) {
    std::vector<std::string> words = tshark_words(options);
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return nullptr;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    const int error = posix_spawnp(pid, "tshark", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) {
        close(ends[0]);
        return nullptr;
    }
    return fdopen(ends[0], "r");
}

}  // namespace

std::string sniffed_lines(const std::string& json) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> frame(
        cJSON_ParseWithLength(json.data(), json.size()), &cJSON_Delete);
    const cJSON* layers = cJSON_GetObjectItemCaseSensitive(frame.get(), "layers");
    std::string lines;
    if (cJSON_IsObject(layers)) {
        const cJSON* head = cJSON_GetObjectItemCaseSensitive(layers, "frame");
        find_packets(layers,
                     text_of(cJSON_GetObjectItemCaseSensitive(head, "frame_frame_time_relative")),
                     &lines);
    }
    return lines;
}

int sniff(const SniffOptions& options) {
    pid_t pid = -1;
    FILE* const output = start_tshark(options, &pid);
    if (output == nullptr) {
        fputs("receiver-ctl: sniff needs tshark: apt-get install tshark\n", stderr);
        return 1;
    }
    char* line = nullptr;
    std::size_t size = 0;
    while (ferror(stdout) == 0 && getline(&line, &size, output) > 0) {
        fputs(sniffed_lines(line).c_str(), stdout);
        fflush(stdout);
    }
    free(line);
    fclose(output);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}
