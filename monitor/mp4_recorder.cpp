#include "monitor/mp4_recorder.h"

#include <unistd.h>

#include <chrono>
#include <exception>

#include "monitor/mp4_file.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kSizeToldEvery = std::chrono::seconds(1);

bool operator==(const Mp4File::Video& a, const Mp4File::Video& b) {
    return a.parameter_sets == b.parameter_sets && a.width == b.width && a.height == b.height;
}

// The files of one recording: another format, which a file cannot change to, begins another one.
class Files {
  public:
    Files(TelemetryStore& store, std::string directory, std::string name)
        : store_(store), directory_(std::move(directory)), name_(std::move(name)) {}

    // Why it cannot go on; empty where it can.
    std::string add(const AccessUnit& unit) {
        if (unit.key) {
            Mp4File::Video video{unit.sets, unit.format->width, unit.format->height};
            if (!file_ || !(video == video_)) {
                video_ = std::move(video);
                if (std::string error = begin(); !error.empty()) {
                    return error;
                }
            }
        }
        if (file_ && !file_->add(unit.annex_b(), unit.key, unit.microseconds)) {
            return file_->reason();
        }
        if (const auto now = Clock::now(); now - told_ > kSizeToldEvery) {
            told_ = now;
            tell_size();
        }
        return "";
    }

    // As Mp4File's.
    std::string finish() {
        std::string error = file_ ? file_->finish() : "";
        tell_size();
        file_.reset();
        return error;
    }

  private:
    void tell_size() { store_.set_number("recording_bytes", file_ ? file_->bytes() : 0); }

    std::string begin() {
        if (file_) {
            if (std::string error = finish(); !error.empty()) {
                return error;
            }
            name_ = new_recording_name(directory_);
            store_.set_text("recording", name_);
        }
        std::string error;
        file_ = Mp4File::create(directory_ + "/" + name_, video_, &error);
        if (file_) {
            store_.add_line("recording " + name_);
        }
        return error;
    }

    TelemetryStore& store_;
    const std::string directory_;
    std::string name_;
    Mp4File::Video video_{};
    std::unique_ptr<Mp4File> file_;
    Clock::time_point told_;
};

}  // namespace

Mp4Recorder::Mp4Recorder(VideoFanout& fanout, TelemetryStore& store, std::string directory)
    : fanout_(fanout), store_(store), directory_(std::move(directory)) {
    store_.set_text("recording", "");
    store_.set_bool("recordings_possible", !directory_.empty());
}

Mp4Recorder::~Mp4Recorder() {
    const std::lock_guard lock(mutex_);
    stop();
    if (thread_.joinable()) {
        thread_.join();
    }
}

std::string Mp4Recorder::control(const std::string& word) {
    const std::lock_guard lock(mutex_);
    if (word == "start") {
        return start();
    }
    if (word != "stop") {
        return "record takes start or stop";
    }
    stop();
    return "";
}

std::string Mp4Recorder::start() {
    if (directory_.empty()) {
        return "recordings need the option --recordings";
    }
    if (access(directory_.c_str(), W_OK | X_OK) != 0) {
        return directory_ + " cannot be written to";
    }
    if (thread_.joinable() && !has_ended_) {
        return viewer_->closed() ? "the last recording is still being written"
                                 : "a recording is being made";
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    const std::string name = new_recording_name(directory_);
    store_.set_number("recording_bytes", 0);
    viewer_ = fanout_.join(VideoFanout::Begin::kNextKeyFrame);
    has_ended_ = false;
    try {
        store_.set_text("recording", name);
        thread_ = std::thread([this, name, viewer = viewer_] { record(viewer, name); });
    } catch (const std::exception&) {
        fanout_.leave(viewer_);
        store_.set_text("recording", "");
        return "there is no memory for a recording";
    }
    return "";
}

// The thread ends by itself: who asks does not wait for the disk.
void Mp4Recorder::stop() {
    if (viewer_) {
        fanout_.leave(viewer_);
    }
}

void Mp4Recorder::record(const std::shared_ptr<VideoViewer>& viewer, const std::string& name) {
    std::string error;
    try {
        error = write_files(*viewer, name);
    } catch (const std::exception&) {
        error = "no memory";
    }
    fanout_.leave(viewer);
    has_ended_ = true;  // ahead of the word of it: who reads that may start the next one
    try {
        store_.set_text("recording", "");
        if (viewer->dropped() != 0) {
            store_.add_line("recording too slow for " + std::to_string(viewer->dropped()) +
                            " pictures");
        }
        store_.add_line(error.empty() ? "recording ended" : "recording failed: " + error);
    } catch (const std::exception&) {
        // There is no memory for a line of it, either.
    }
}

std::string Mp4Recorder::write_files(VideoViewer& viewer, const std::string& name) {
    std::string error;
    Files files(store_, directory_, name);
    // What had come before it was closed is still taken.
    for (bool more = true; more && error.empty();) {
        const AccessUnitPtr unit = viewer.next(std::chrono::milliseconds(200));
        if (unit) {
            error = files.add(*unit);
        }
        more = unit || !viewer.closed();
    }
    const std::string end_error = files.finish();
    return error.empty() ? end_error : error;
}

std::vector<Recording> Mp4Recorder::finished() const {
    std::vector<Recording> recordings =
        directory_.empty() ? std::vector<Recording>() : list_recordings(directory_);
    const std::string current = store_.json("recording");
    std::erase_if(recordings,
                  [&](const Recording& recording) { return json_text(recording.name) == current; });
    return recordings;
}

int Mp4Recorder::open(const std::string& name, std::uint64_t* bytes) const {
    return open_recording(directory_, name, bytes);
}
