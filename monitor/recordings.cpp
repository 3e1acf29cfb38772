#include "monitor/recordings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <string_view>

namespace {

namespace fs = std::filesystem;

// A digit for each 0; behind it "-2" and so on, and ".mp4".
constexpr std::string_view kPattern = "camera-00000000-000000";
constexpr std::string_view kEnd = ".mp4";

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

std::string new_recording_name(const std::string& directory) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), "camera-%Y%m%d-%H%M%S", &local);
    const std::string base = text.data();
    std::string name = base + std::string(kEnd);
    std::error_code ignored;
    for (int i = 2; fs::exists(fs::symlink_status(fs::path(directory) / name, ignored)); ++i) {
        name = base + "-" + std::to_string(i) + std::string(kEnd);
    }
    return name;
}

bool is_recording_name(const std::string& name) {
    if (name.size() < kPattern.size() + kEnd.size() || name.size() > 60 || !name.ends_with(kEnd)) {
        return false;
    }
    for (std::size_t i = 0; i < kPattern.size(); ++i) {
        if (kPattern[i] == '0' ? !is_digit(name[i]) : name[i] != kPattern[i]) {
            return false;
        }
    }
    const std::string_view more =
        std::string_view(name).substr(kPattern.size(), name.size() - kPattern.size() - kEnd.size());
    return more.empty() || (more.size() > 1 && more.front() == '-' &&
                            std::all_of(more.begin() + 1, more.end(), is_digit));
}

std::vector<Recording> list_recordings(const std::string& directory) {
    std::vector<Recording> recordings;
    std::error_code error;
    fs::directory_iterator entries(directory, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const std::string name = entries->path().filename();
        std::error_code gone;
        if (is_recording_name(name) &&
            entries->symlink_status(gone).type() == fs::file_type::regular) {
            const std::uintmax_t bytes = entries->file_size(gone);
            if (!gone) {
                recordings.push_back({name, bytes});
            }
        }
    }
    std::ranges::sort(recordings, {}, [](const Recording& recording) {
        return recording.name.substr(0, recording.name.size() - kEnd.size());
    });
    return recordings;
}

int open_recording(const std::string& directory, const std::string& name, std::uint64_t* bytes) {
    if (directory.empty() || !is_recording_name(name)) {
        return -1;
    }
    const int fd =
        open((directory + "/" + name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat status {};
    if (fd >= 0 && (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))) {
        close(fd);
        return -1;
    }
    *bytes = static_cast<std::uint64_t>(status.st_size);
    return fd;
}
