#include "tests/wireshark/tshark.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

// A folder of its own: nobody's settings and plugins, and no capture left behind.
class Folder {
  public:
    Folder() {
        std::string name = testing::TempDir() + "dissector-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = name;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::size_t at = 0;
    for (std::size_t stop = text.find(separator); stop != std::string::npos;
         stop = text.find(separator, at)) {
        parts.push_back(text.substr(at, stop - at));
        at = stop + 1;
    }
    parts.push_back(text.substr(at));
    return parts;
}

std::string run(const std::string& home, const std::string& options) {
    const std::string errors = home + "/errors";
    // The sanitizers' options are for our programs.
    const std::string command =
        "env -i PATH=\"$PATH\" LC_ALL=C.UTF-8 HOME=" + home + " tshark " + options + " 2>" + errors;
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("no shell");
    }
    std::string output;
    std::array<char, 65536> buffer{};
    for (std::size_t count = 0; (count = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), count);
    }
    const int status = pclose(pipe);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::ifstream said(errors);
        throw std::runtime_error(command + "\n" +
                                 std::string(std::istreambuf_iterator<char>(said), {}));
    }
    return output;
}

constexpr char kWithPlugin[] = "-X lua_script:" WIRESHARK_PLUGIN " ";

}  // namespace

Frames dissect(const Capture& capture, const std::vector<std::string>& fields,
               const std::string& options) {
    const Folder folder;
    const std::string file = folder.path() + "/capture.pcap";
    capture.write(file);
    // The separators are no part of any value.
    std::string all =
        kWithPlugin + options + " -r " + file + " -T fields -E separator=/t -E aggregator='|'";
    for (const std::string& field : fields) {
        all += " -e " + field;
    }
    Frames frames;
    std::vector<std::string> lines = split(run(folder.path(), all), '\n');
    lines.pop_back();
    for (const std::string& line : lines) {
        const std::vector<std::string> columns = split(line, '\t');
        FrameFields frame;
        for (std::size_t i = 0; i < fields.size() && i < columns.size(); ++i) {
            if (!columns[i].empty()) {
                frame[fields[i]] = split(columns[i], '|');
            }
        }
        frames.push_back(frame);
    }
    return frames;
}

std::vector<std::string> all_values(const Frames& frames, const std::string& field) {
    std::vector<std::string> all;
    for (const FrameFields& frame : frames) {
        const auto found = frame.find(field);
        if (found != frame.end()) {
            all.insert(all.end(), found->second.begin(), found->second.end());
        }
    }
    return all;
}

std::vector<std::string> values_without_warning(const Capture& capture, const std::string& field) {
    const Frames frames = dissect(capture, {field, kWarnings});
    EXPECT_EQ(all_values(frames, kWarnings), std::vector<std::string>());
    return all_values(frames, field);
}
