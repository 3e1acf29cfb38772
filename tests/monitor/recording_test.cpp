// Recordings: what the files hold, read back with the library that players use.

#include <sys/mount.h>
#include <unistd.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>

#include "monitor/access_units.h"
#include "monitor/mp4_file.h"
#include "monitor/mp4_recorder.h"
#include "tests/monitor/monitor_fixture.h"
#include "tests/monitor/own_directory.h"

namespace {

struct Picture {
    std::int64_t time_us;
    bool key;
    std::string nals;  // the units, with their lengths as the file has them
};

std::vector<Picture> pictures_of(const std::string& file) {
    std::vector<Picture> pictures;
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, file.c_str(), nullptr, nullptr) < 0) {
        return pictures;
    }
    AVPacket* packet = av_packet_alloc();
    const AVRational micro = {1, 1000000};
    while (av_read_frame(context, packet) >= 0) {
        const AVRational base = context->streams[0]->time_base;
        pictures.push_back({av_rescale_q(packet->dts, base, micro),
                            (packet->flags & AV_PKT_FLAG_KEY) != 0,
                            {packet->data, packet->data + packet->size}});
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&context);
    return pictures;
}

// 00 00 01 and 00 00 00 01 become a length of four bytes.
std::string with_lengths(std::span<const std::uint8_t> annex_b) {
    std::string result;
    std::string unit;
    const auto end_unit = [&] {
        for (int shift = 24; !unit.empty() && shift >= 0; shift -= 8) {
            result += static_cast<char>(unit.size() >> shift & 0xFF);
        }
        result += unit;
        unit.clear();
    };
    for (std::size_t i = 0; i < annex_b.size(); ++i) {
        const bool starts =
            i + 2 < annex_b.size() && annex_b[i] == 0 && annex_b[i + 1] == 0 && annex_b[i + 2] == 1;
        if (starts) {
            while (!unit.empty() && unit.back() == '\0') {
                unit.pop_back();
            }
            end_unit();
            i += 2;
        } else {
            unit += static_cast<char>(annex_b[i]);
        }
    }
    end_unit();
    return result;
}

class RecorderTest : public testing::Test {
  protected:
    ~RecorderTest() override { std::filesystem::remove_all(directory); }

    // A clip's pictures, each 40 ms behind the one before.
    void put_clip(const std::string& name, int width, int height) {
        const auto format =
            std::make_shared<VideoFormat>(VideoFormat{"avc1.640028", width, height});
        AccessUnits units(
            [&](const AccessUnits::Unit& unit) { put(unit.bytes, unit.key, format); });
        for (const Bytes& unit : access_units(clip(name))) {
            units.take(unit);
        }
        units.long_pause();
    }
    void put(std::span<const std::uint8_t> bytes, bool key,
             const std::shared_ptr<const VideoFormat>& format) {
        sent.emplace_back(bytes.begin(), bytes.end());
        fanout.put(std::make_shared<AccessUnit>(bytes, key, now_us, format));
        now_us += step_us;
        usleep(1000);  // for the recorder: its queue is bounded
    }
    // And waits for its last byte.
    void stop(Mp4Recorder& which) const {
        EXPECT_EQ(which.control("stop"), "");
        EXPECT_TRUE(becomes([&] { return store.json("recording") == "\"\""; }));
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const Recording& recording : list_recordings(directory)) {
            names.push_back(recording.name);
        }
        return names;
    }
    std::string log() const {
        std::uint64_t all = 0;
        return store.lines(&all);
    }
    bool becomes(const std::function<bool()>& condition) const {
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (!condition() && std::chrono::steady_clock::now() < end) {
            usleep(10000);
        }
        return condition();
    }

    const std::string directory = own_directory("recorder");
    VideoFanout fanout;
    TelemetryStore store;
    Mp4Recorder recorder{fanout, store, directory};
    std::uint64_t now_us = 1234567890123;
    std::uint64_t step_us = 40000;
    std::vector<Bytes> sent;
};

TEST_F(RecorderTest, FileHoldsEachPictureAsItCameAndWhenItCame) {
    ASSERT_EQ(recorder.control("start"), "");
    put_clip("1280x720-1.h264", 1280, 720);
    stop(recorder);
    ASSERT_EQ(files().size(), 1U);
    const std::vector<Picture> pictures = pictures_of(directory + "/" + files()[0]);
    ASSERT_EQ(pictures.size(), sent.size());
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        EXPECT_EQ(pictures[i].nals, with_lengths(sent[i])) << i;
        EXPECT_EQ(pictures[i].time_us, static_cast<std::int64_t>(40000 * i)) << i;
    }
    EXPECT_TRUE(pictures[0].key);
}

TEST_F(RecorderTest, PicturesThatComeAtOneTimeFollowEachOtherInTheFile) {
    step_us = 0;
    ASSERT_EQ(recorder.control("start"), "");
    put_clip("1280x720-1.h264", 1280, 720);
    stop(recorder);
    const std::vector<Picture> pictures = pictures_of(directory + "/" + files().at(0));
    ASSERT_EQ(pictures.size(), sent.size());
    for (std::size_t i = 1; i < pictures.size(); ++i) {
        EXPECT_GT(pictures[i].time_us, pictures[i - 1].time_us) << i;
    }
}

TEST_F(RecorderTest, AnotherFormatBeginsAnotherFile) {
    ASSERT_EQ(recorder.control("start"), "");
    put_clip("1280x720-1.h264", 1280, 720);
    const std::size_t first = sent.size();
    put_clip("1920x1080-1.h264", 1920, 1080);
    stop(recorder);
    ASSERT_EQ(files().size(), 2U);
    EXPECT_EQ(pictures_of(directory + "/" + files()[0]).size(), first);
    EXPECT_EQ(pictures_of(directory + "/" + files()[1]).size(), sent.size() - first);
}

TEST_F(RecorderTest, OtherParameterSetsBeginAnotherFile) {
    ASSERT_EQ(recorder.control("start"), "");
    put_clip("1280x720-1.h264", 1280, 720);
    put_clip("1920x1080-1.h264", 1280, 720);
    stop(recorder);
    EXPECT_EQ(files().size(), 2U);
}

TEST_F(RecorderTest, KeyFrameThatGoesAheadOfTheCamerasIsInNoFile) {
    const auto format = std::make_shared<VideoFormat>(VideoFormat{"avc1.640028", 1280, 720});
    const Bytes stored = access_units(clip("1920x1080-1.h264")).at(0);
    ASSERT_EQ(recorder.control("start"), "");
    put(stored, true, format);
    sent.clear();
    put_clip("1280x720-1.h264", 1280, 720);
    const std::size_t before = sent.size();
    put(stored, true, format);  // the receiver was started again
    put_clip("1280x720-1.h264", 1280, 720);
    sent.erase(sent.begin() + static_cast<std::ptrdiff_t>(before));
    stop(recorder);
    ASSERT_EQ(files().size(), 1U);
    const std::vector<Picture> pictures = pictures_of(directory + "/" + files()[0]);
    ASSERT_EQ(pictures.size(), sent.size());
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        EXPECT_EQ(pictures[i].nals, with_lengths(sent[i])) << i;
    }
}

TEST_F(RecorderTest, SizeIsToldFromZeroToTheLastByte) {
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(recorder.control("start"), "");
        EXPECT_EQ(store.json("recording_bytes"), "0");
        put_clip("1280x720-1.h264", 1280, 720);
        stop(recorder);
        EXPECT_EQ(store.json("recording_bytes"),
                  std::to_string(std::filesystem::file_size(directory + "/" + files().back())));
    }
}

TEST_F(RecorderTest, PictureOfUnknownSizeEndsTheRecordingWithALine) {
    ASSERT_EQ(recorder.control("start"), "");
    put_clip("1280x720-1.h264", 0, 0);
    const auto says = [&](const char* text) { return log().find(text) != std::string::npos; };
    EXPECT_TRUE(becomes([&] { return says("failed: the picture's size is not known"); }));
    EXPECT_FALSE(says("recording camera-"));
    EXPECT_TRUE(becomes([&] { return store.json("recording") == "\"\""; }));
    EXPECT_TRUE(files().empty());
}

TEST_F(RecorderTest, BeginsAtAKeyFrame) {
    const auto format = std::make_shared<VideoFormat>(VideoFormat{"avc1.640028", 1280, 720});
    ASSERT_EQ(recorder.control("start"), "");
    const Bytes between = access_units(clip("1280x720-1.h264")).at(1);
    put(between, false, format);
    sent.clear();
    put_clip("1280x720-1.h264", 1280, 720);
    stop(recorder);
    EXPECT_EQ(pictures_of(directory + "/" + files().at(0)).size(), sent.size());
}

TEST_F(RecorderTest, OneRecordingAtATimeWhoeverAsks) {
    EXPECT_EQ(recorder.control("start"), "");
    EXPECT_EQ(recorder.control("start"), "a recording is being made");
    stop(recorder);
    stop(recorder);
    EXPECT_EQ(recorder.control("start"), "");
    EXPECT_EQ(recorder.control("pause"), "record takes start or stop");
    EXPECT_EQ(fanout.viewers(), 1U);
}

TEST_F(RecorderTest, ItsNameIsToldWhileItIsMadeAndItIsListedAfterwards) {
    EXPECT_EQ(store.json("recording"), "\"\"");
    ASSERT_EQ(recorder.control("start"), "");
    const std::string name = store.json("recording");
    EXPECT_TRUE(name.starts_with("\"camera-20")) << name;
    put_clip("1280x720-1.h264", 1280, 720);
    EXPECT_TRUE(becomes([&] { return files().size() == 1; }));
    EXPECT_TRUE(recorder.finished().empty());
    stop(recorder);
    ASSERT_EQ(recorder.finished().size(), 1U);
    EXPECT_EQ(recorder.finished()[0].name, name.substr(1, name.size() - 2));
    EXPECT_EQ(recorder.finished()[0].bytes,
              std::filesystem::file_size(directory + "/" + recorder.finished()[0].name));
}

TEST_F(RecorderTest, TwoOfOneSecondHaveTheirOwnFiles) {
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(recorder.control("start"), "");
        put(access_units(clip("1280x720-1.h264")).at(0), true,
            std::make_shared<VideoFormat>(VideoFormat{"avc1.640028", 1280, 720}));
        stop(recorder);
    }
    EXPECT_EQ(files().size(), 3U);
}

TEST_F(RecorderTest, LinkOfTheFilesNameIsNotFollowed) {
    const std::string path = directory + "/camera-20260101-000000.mp4";
    std::filesystem::create_symlink(directory + "/elsewhere", path);
    std::string error;
    const Bytes key = access_units(clip("1280x720-1.h264")).at(0);
    EXPECT_EQ(Mp4File::create(path, {parameter_sets(key), 1280, 720}, &error), nullptr);
    EXPECT_EQ(error, "File exists");
    EXPECT_FALSE(std::filesystem::exists(directory + "/elsewhere"));
    std::uint64_t bytes = 0;
    EXPECT_EQ(open_recording(directory, "camera-20260101-000000.mp4", &bytes), -1);
}

// Where recordings go there is room for a megabyte.
class SmallDiskTest : public RecorderTest {
  protected:
    void SetUp() override {
        RecorderTest::SetUp();
        std::filesystem::create_directory(small);
        is_mounted_ = mount("tmpfs", small.c_str(), "tmpfs", 0, "size=1m") == 0;
        if (!is_mounted_) {
            GTEST_SKIP() << "no file system of its own: " << strerror(errno);
        }
    }
    void TearDown() override {
        if (is_mounted_) {
            umount(small.c_str());
        }
        RecorderTest::TearDown();
    }

    const std::string small = directory + "/small";

  private:
    bool is_mounted_ = false;
};

TEST_F(SmallDiskTest, FullDiskEndsTheRecordingAndWhatThereIsPlays) {
    Mp4Recorder other(fanout, store, small);
    ASSERT_EQ(other.control("start"), "");
    for (int i = 0; i < 200 && log().find("failed") == std::string::npos; ++i) {
        put_clip("1280x720-1.h264", 1280, 720);
    }
    EXPECT_NE(log().find("recording failed: No space left on device"), std::string::npos);
    EXPECT_TRUE(becomes([&] { return store.json("recording") == "\"\""; }));
    EXPECT_EQ(fanout.viewers(), 0U);
    ASSERT_EQ(other.finished().size(), 1U);
    const std::vector<Picture> pictures = pictures_of(small + "/" + other.finished()[0].name);
    EXPECT_GT(pictures.size(), 10U);
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        ASSERT_EQ(pictures[i].nals, with_lengths(sent[i])) << i;
    }
}

TEST_F(SmallDiskTest, LastFragmentThatFindsNoRoomIsTold) {
    Mp4Recorder other(fanout, store, small);
    ASSERT_EQ(other.control("start"), "");
    Bytes large = access_units(clip("1280x720-1.h264")).at(0);
    large.resize(large.size() + 1500000, 0xAB);
    put(large, true, std::make_shared<VideoFormat>(VideoFormat{"avc1.640028", 1280, 720}));
    stop(other);
    EXPECT_TRUE(becomes([&] { return log().find("failed: No space") != std::string::npos; }))
        << log();
    ASSERT_EQ(other.finished().size(), 1U);
    EXPECT_EQ(store.json("recording_bytes"), std::to_string(other.finished()[0].bytes));
    EXPECT_LT(other.finished()[0].bytes, 10000U) << "ends with what was whole";
}

class RecordingMonitor : public MonitorTest {
  protected:
    void start_recording() {
        std::filesystem::create_directory(directory + "/recordings");
        start_monitor({"--recordings", directory + "/recordings"});
        start_camera();
        play(30);
        ASSERT_TRUE(state_says("\"video_width\":1280", 20s));
        ASSERT_EQ(web_post(port, "/api/record", R"({"record":"start"})").status, 200);
        ASSERT_TRUE(state_says("\"recording\":\"camera-", 5s));
    }
    // A piece of the clip, from its first picture on.
    void expect_clip(const std::vector<Picture>& pictures, std::size_t at_least) const {
        const auto units = access_units(Bytes(video.begin(), video.end()));
        EXPECT_GE(pictures.size(), at_least);
        for (std::size_t i = 0; i < pictures.size(); ++i) {
            ASSERT_EQ(pictures[i].nals, with_lengths(units[i % units.size()])) << i;
        }
    }
};

TEST_F(RecordingMonitor, FileIsListedAndFetchedAndHoldsTheClip) {
    start_recording();
    LiveClient live(port);
    live.send_text(R"({"record":"start"})");
    EXPECT_TRUE(live.says("{\"refused\":\"a recording is being made\",\"of\":\"record\"}", 10s));
    usleep(2000000);
    EXPECT_EQ(web_get(port, "/api/recordings").body, "[]\n");
    live.send_text(R"({"record":"stop"})");
    EXPECT_TRUE(live.says(R"({"sent":{"record":"stop"}})", 10s));
    EXPECT_TRUE(state_says("\"recording\":\"\"", 10s));

    const std::string list = web_get(port, "/api/recordings").body;
    ASSERT_TRUE(list.starts_with(R"([{"name":"camera-)")) << list;
    const std::string name = list.substr(10, list.find('"', 10) - 10);
    const WebAnswer file = web_get(port, "/recordings/" + name);
    EXPECT_EQ(file.status, 200);
    EXPECT_NE(file.headers.find("Content-Disposition: attachment; filename=\"" + name + "\"\r\n"),
              std::string::npos)
        << file.headers;
    EXPECT_NE(list.find("\"bytes\":" + std::to_string(file.body.size()) + "}"), std::string::npos);
    std::ofstream(directory + "/fetched.mp4") << file.body;
    expect_clip(pictures_of(directory + "/fetched.mp4"), 30);
    EXPECT_EQ(web_request(port, "HEAD /recordings/" + name).body, "");
}

// The receiver's own key frame, which goes ahead of the camera's first, is in neither.
TEST_F(RecordingMonitor, RecordingAndStreamBegunBeforeTheCameraHoldTheClip) {
    std::filesystem::create_directory(directory + "/recordings");
    start_monitor({"--recordings", directory + "/recordings"});
    ASSERT_EQ(web_post(port, "/api/record", R"({"record":"start"})").status, 200);
    WebConnection stream(port);
    ASSERT_TRUE(stream.send("GET /video.h264 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
    ASSERT_TRUE(state_says("\"viewers\":2", 20s));
    start_camera();
    play(30);
    ASSERT_TRUE(state_says("\"video_width\":1280", 20s));
    std::string received;
    const auto bytes_at = [&] {
        const std::size_t end_of_headers = received.find("\r\n\r\n");
        return end_of_headers == std::string::npos
                   ? received.size()
                   : received.find_first_not_of('\0', end_of_headers + 4);
    };
    const auto end = std::chrono::steady_clock::now() + 20s;
    while ((bytes_at() == std::string::npos || received.size() < bytes_at() + 100) &&
           std::chrono::steady_clock::now() < end) {
        received += stream.receive(1s);
    }
    ASSERT_GE(received.size(), bytes_at() + 100);
    // Behind the zeros of its first start code.
    EXPECT_EQ(received.substr(bytes_at(), 90), video.substr(video.find_first_not_of('\0'), 90));
    usleep(1000000);
    web_post(port, "/api/record", R"({"record":"stop"})");
    ASSERT_TRUE(state_says("\"recording\":\"\"", 10s));
    const auto files = list_recordings(directory + "/recordings");
    ASSERT_EQ(files.size(), 1U);
    expect_clip(pictures_of(directory + "/recordings/" + files[0].name), 10);
}

TEST_F(RecordingMonitor, WhatThereIsPlaysAfterAKill) {
    start_recording();
    const auto bytes_told = [&] {
        const std::string state = web_get(port, "/api/state").body;
        const std::size_t at = state.find("\"recording_bytes\":");
        return at == std::string::npos ? 0 : std::stoul(state.substr(at + 18));
    };
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (bytes_told() < 3 * video.size() && std::chrono::steady_clock::now() < end) {
        usleep(50000);
    }
    monitor->signal(SIGKILL);
    monitor->wait_exit(10s);
    monitor.reset();
    const auto files = list_recordings(directory + "/recordings");
    ASSERT_EQ(files.size(), 1U);
    expect_clip(pictures_of(directory + "/recordings/" + files[0].name), 24);
}

TEST_F(RecordingMonitor, OnlyRecordingsAreFetched) {
    std::filesystem::create_directory(directory + "/recordings");
    std::ofstream(directory + "/recordings/notes.mp4") << "secret";
    std::ofstream(directory + "/secret") << "secret";
    std::filesystem::create_symlink(directory + "/secret",
                                    directory + "/recordings/camera-20260101-000000.mp4");
    std::filesystem::create_directory(directory + "/recordings/camera-20260101-000001.mp4");
    start_monitor({"--recordings", directory + "/recordings"});
    EXPECT_TRUE(state_says("\"recordings_possible\":true", 0s));
    EXPECT_EQ(web_get(port, "/api/recordings").body, "[]\n");
    for (const char* path :
         {"/recordings/", "/recordings/notes.mp4", "/recordings/../secret",
          "/recordings/..%2fsecret", "/recordings/%2e%2e%2fsecret",
          "/recordings/camera-20260101-000000.mp4", "/recordings/camera-20260101-000001.mp4",
          "/recordings/x/camera-20260101-000000.mp4"}) {
        const WebAnswer answer = web_get(port, path);
        EXPECT_EQ(answer.status, 404) << path;
        EXPECT_EQ(answer.body.find("secret"), std::string::npos) << path;
    }
}

TEST_F(RecordingMonitor, NothingIsRecordedWithoutADirectoryThatCanBeWrittenTo) {
    start_monitor();
    EXPECT_TRUE(state_says("\"recordings_possible\":false", 0s));
    EXPECT_EQ(web_post(port, "/api/record", R"({"record":"start"})").body,
              "{\"refused\":\"recordings need the option --recordings\"}\n");
    EXPECT_EQ(web_post(port, "/api/record", "{").status, 400);
    EXPECT_EQ(web_get(port, "/api/recordings").body, "[]\n");
}

TEST(Recordings, NamesAreTheMonitorsOwn) {
    for (const char* name : {"camera-20260102-030405.mp4", "camera-20260102-030405-2.mp4"}) {
        EXPECT_TRUE(is_recording_name(name)) << name;
    }
    for (const char* name :
         {"", ".mp4", "camera-20260102-030405", "camera-20260102-030405-.mp4",
          "camera-20260102-030405x.mp4", "camera-2026010a-030405.mp4",
          "../camera-20260102-030405.mp4", "camera-20260102-030405/../x.mp4",
          "camera-20260102-030405-2\n.mp4",
          "camera-20260102-030405-22222222222222222222222222222222222222222.mp4"}) {
        EXPECT_FALSE(is_recording_name(name)) << name;
    }
}

}  // namespace
