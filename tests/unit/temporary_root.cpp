#include "temporary_root.h"

#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr char kMappingVariable[] = "GADGETFS_SIM_ROOT";
constexpr char kCommandsFile[] = "/commands";
constexpr char kAfterCommandFile[] = "/after-command";
constexpr const char* kStandIns[] = {"modprobe", "mkdir", "mount", "umount"};
constexpr const char* kDirectories[] = {
    "/sys/firmware/devicetree/base", "/run/vantarel", "/boot", "/dev/gadget", "/bin",
};

std::string read_file(const std::string& name) {
    std::ostringstream text;
    text << std::ifstream(name, std::ios::binary).rdbuf();
    return text.str();
}

void write_file(const std::string& name, const std::string& text) {
    std::ofstream(name, std::ios::binary) << text;
}

}  // namespace

TemporaryRoot::TemporaryRoot() {
    char name[] = "/tmp/receiver-test-XXXXXX";
    root_ = mkdtemp(name);
    for (const char* directory : kDirectories) {
        fs::create_directories(root_ + directory);
    }
    write_file(root_ + kAfterCommandFile, "");
    for (const char* stand_in : kStandIns) {
        write_stand_in(stand_in);
    }
    path_before_ = getenv("PATH");
    setenv("PATH", (root_ + "/bin:" + path_before_).c_str(), 1);
    setenv(kMappingVariable, root_.c_str(), 1);
}

TemporaryRoot::~TemporaryRoot() {
    unsetenv(kMappingVariable);
    setenv("PATH", path_before_.c_str(), 1);
    fs::remove_all(root_);
}

std::string TemporaryRoot::path(const std::string& place) const {
    return root_ + place;
}

void TemporaryRoot::write(const std::string& place, const std::string& text) const {
    write_file(path(place), text);
}

std::string TemporaryRoot::read(const std::string& place) const {
    return read_file(path(place));
}

bool TemporaryRoot::exists(const std::string& place) const {
    return fs::exists(path(place));
}

void TemporaryRoot::remove(const std::string& place) const {
    fs::remove_all(path(place));
}

std::vector<std::string> TemporaryRoot::shell_commands() const {
    std::vector<std::string> commands;
    std::istringstream lines(read_file(root_ + kCommandsFile));
    for (std::string line; std::getline(lines, line);) {
        commands.push_back(line);
    }
    return commands;
}

void TemporaryRoot::after_each_command(const std::string& shell_line) const {
    write_file(root_ + kAfterCommandFile, shell_line + "\n");
}

bool TemporaryRoot::maps_places() {
    const char* root = getenv(kMappingVariable);
    if (root == nullptr) {
        return false;
    }
    // A file that only the temporary root has, by a name that no board has.
    const std::string place = "/boot/mapped-" + fs::path(root).filename().string();
    write_file(root + place, "");
    FILE* file = fopen(place.c_str(), "r");
    fs::remove(root + place);
    if (file == nullptr) {
        return false;
    }
    fclose(file);
    return true;
}

// The stand-ins use only what the shell itself offers: mkdir is one of them. They know their root
// by their own place, so that they need no variable.
void TemporaryRoot::write_stand_in(const std::string& name) const {
    const std::string file = root_ + "/bin/" + name;
    const std::string note_command = "echo \"" + name + " $*\" >>" + root_ + kCommandsFile;
    const std::string do_more = ". " + root_ + kAfterCommandFile;
    write_file(file, "#!/bin/sh\n" + note_command + "\n" + do_more + "\n");
    fs::permissions(file, fs::perms::owner_all);
}
