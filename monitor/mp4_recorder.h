// Records the live video into MP4 files of a directory, from the next key frame on, on a thread of
// its own: one recording at a time, whoever asks. All functions are thread-safe.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "monitor/recordings.h"
#include "monitor/telemetry_store.h"
#include "monitor/video_fanout.h"

class Mp4Recorder {
  public:
    // An empty directory: nothing is recorded.
    Mp4Recorder(VideoFanout& fanout, TelemetryStore& store, std::string directory);
    ~Mp4Recorder();
    Mp4Recorder(const Mp4Recorder&) = delete;
    Mp4Recorder& operator=(const Mp4Recorder&) = delete;

    // "start" or "stop". Empty, or why not. A file that is stopped is whole when the state's
    // "recording" is empty.
    std::string control(const std::string& word);
    // Those that are finished.
    std::vector<Recording> finished() const;
    // As open_recording does.
    int open(const std::string& name, std::uint64_t* bytes) const;

  private:
    std::string start();
    void stop();
    void record(const std::shared_ptr<VideoViewer>& viewer, const std::string& name);
    // Why it could not go on; empty where it was told to stop.
    std::string write_files(VideoViewer& viewer, const std::string& name);

    VideoFanout& fanout_;
    TelemetryStore& store_;
    const std::string directory_;
    std::mutex mutex_;
    std::shared_ptr<VideoViewer> viewer_;  // of the last recording
    std::atomic<bool> has_ended_{false};   // that one
    std::thread thread_;
};
