#include "simulator/board_root.h"

#include <errno.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <system_error>

namespace {

namespace fs = std::filesystem;

struct StandIn {
    const char* name;
    const char* script;
};

// Each finds the log from its own place, so that no path needs quoting.
constexpr char kLogCall[] =
    "#!/bin/sh\n"
    "printf '%s\\n' \"${0##*/} $*\" >> \"${0%/*}/../commands.log\"\n";
constexpr char kLogGadgetDirectory[] =
    "#!/bin/sh\n"
    "case \"$*\" in\n"
    "/dev/gadget) printf '%s\\n' \"mkdir $*\" >> \"${0%/*}/../commands.log\" ;;\n"
    "*) exec /bin/mkdir \"$@\" ;;\n"
    "esac\n";

constexpr StandIn kStandIns[] = {
    {"modprobe", kLogCall},
    {"mount", kLogCall},
    {"umount", kLogCall},
    {"mkdir", kLogGadgetDirectory},
};

std::string new_directory() {
    std::string name = "/tmp/camera-board-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    return name;
}

}  // namespace

BoardRoot::BoardRoot(const std::string& directory) : directory_(directory) {
    if (directory_.empty()) {
        directory_ = new_directory();
        made_.push_back(directory_);
        return;
    }
    directory_ = fs::absolute(directory_).lexically_normal().string();
    while (directory_.size() > 1 && directory_.back() == '/') {
        directory_.pop_back();
    }
    make_directory("");
}

BoardRoot::~BoardRoot() {
    for (auto each = made_.rbegin(); each != made_.rend(); ++each) {
        std::error_code ignored;
        fs::remove_all(*each, ignored);
    }
}

void BoardRoot::make_directory(const std::string& place) {
    const fs::path path = directory_ + place;
    if (fs::exists(path)) {
        return;
    }
    // Only the topmost that is missing is noted: the rest goes with it.
    fs::path topmost = path;
    while (!topmost.parent_path().empty() && !fs::exists(topmost.parent_path())) {
        topmost = topmost.parent_path();
    }
    fs::create_directories(path);
    made_.push_back(topmost.string());
}

void BoardRoot::write_file(const std::string& place, const std::string& text) {
    const std::string path = directory_ + place;
    if (!fs::exists(path)) {
        made_.push_back(path);
    }
    std::ofstream(path, std::ios::binary) << text;
}

void BoardRoot::write_stand_ins() {
    make_directory("/bin");
    for (const StandIn& stand_in : kStandIns) {
        const std::string place = std::string("/bin/") + stand_in.name;
        write_file(place, stand_in.script);
        fs::permissions(directory_ + place, fs::perms(0755));
    }
    write_file("/commands.log", "");
}

std::vector<std::string> BoardRoot::command_lines() const {
    std::ifstream log(directory_ + "/commands.log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);) {
        lines.push_back(line);
    }
    return lines;
}
