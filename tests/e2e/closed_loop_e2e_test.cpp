// A camera that behaves: what is commanded shows in what is reported.

#include <map>
#include <thread>

#include "simulator/simulated_camera.h"
#include "tests/e2e/e2e_support.h"
#include "tests/e2e/main_application.h"
#include "tests/e2e/remote_control.h"

namespace {

class ClosedLoop : public ReceiverTest {
  protected:
    void SetUp() override {
        start_configured(app.arguments());
        ASSERT_TRUE(board->wait_for_endpoints(5s));
        camera.emplace(*board);
        camera->link_begins();
        ASSERT_TRUE(app.report(5s)) << receiver->output();
    }
    void TearDown() override {
        if (camera) {
            EXPECT_EQ(camera->refused(), 0U);
            EXPECT_EQ(camera->counts().numbers_skipped, 0U);
        }
        camera.reset();  // before its board
    }
    // Waits for the status record in which the byte at that offset has the value.
    bool wait_for_status(std::size_t offset, std::uint8_t value) {
        const auto end = std::chrono::steady_clock::now() + 5s;
        while (std::chrono::steady_clock::now() < end) {
            const auto record = app.receive({0x06, 0x00}, 1s);
            if (record && record->at(offset) == value) {
                return true;
            }
        }
        return false;
    }

    MainApplication app;
    std::optional<SimulatedCamera> camera;
};

TEST_F(ClosedLoop, EverySettingShowsInTheReport) {
    struct Setting {
        const char* json;
        const char* key;
        const char* value;
    };
    constexpr Setting kSettings[] = {
        {R"({"cmd":"shutter","param":"1/100"})", "shutter", "1/100"},
        {R"({"cmd":"aperture","param":"4"})", "aperture", "4"},
        {R"({"cmd":"iso","param":"800"})", "iso_set", "800"},
        {R"({"cmd":"ev","param":"-0.7"})", "ev", "-0.7"},
        {R"({"cmd":"exposure","param":"auto","value":"lock"})", "ae", "1"},
        {R"({"cmd":"wb","param":"custom","value":"4200"})", "wb_temp", "4200"},
        {R"({"cmd":"color","param":"d-log"})", "color_mode", "d-log"},
        {R"({"cmd":"video_resolution","param":"2704x1520@25"})", "format", "2704X1520@25"},
        {R"({"cmd":"video_aspect","param":"4:3"})", "ratio", "4:3"},
        {R"({"cmd":"shotmode","param":"jpg+raw"})", "shot_mode", "JPG+RAW"},
        {R"({"cmd":"antiflicker","param":"60"})", "antiflicker", "60 Hz"},
        {R"({"cmd":"video_std","param":"NTSC"})", "video_std", "NTSC"},
        {R"({"cmd":"camera","param":"mode","value":"photo"})", "camera_mode", "photo"},
    };
    const auto before = report_items(app.report(5s).value_or(""));
    for (const Setting& setting : kSettings) {
        EXPECT_NE(before.at(setting.key), setting.value) << "changes nothing";
        ASSERT_TRUE(app.command(setting.json));
    }
    // Commands are taken in order: where the last one shows, the next report but one has them all.
    EXPECT_EQ(app.wait_for_item("camera_mode", "photo", 5s), "photo");
    ASSERT_TRUE(app.report(5s));
    const auto after = report_items(app.report(5s).value_or(""));
    for (const Setting& setting : kSettings) {
        EXPECT_EQ(after.at(setting.key), setting.value);
    }
}

TEST_F(ClosedLoop, RecordingRunsAndStops) {
    ASSERT_TRUE(app.command(R"({"cmd":"record","param":"start"})"));
    EXPECT_TRUE(camera->wait_for("record", "recording", 5s));
    EXPECT_EQ(app.wait_for_item("rec_time", "00:00:02", 10s), "00:00:02");
    ASSERT_TRUE(app.command(R"({"cmd":"record","param":"stop"})"));
    EXPECT_TRUE(camera->wait_for("record", "idle", 5s));
    EXPECT_TRUE(wait_for_status(9, 0x00));
}

TEST_F(ClosedLoop, PhotoIsTaken) {
    ASSERT_TRUE(app.command(R"({"cmd":"camera","param":"mode","value":"photo"})"));
    ASSERT_TRUE(camera->wait_for("camera_mode", "photo", 5s));
    const int left = std::stoi(*camera->get("shots_left"));
    ASSERT_TRUE(app.command(R"({"cmd":"shot"})"));
    EXPECT_EQ(app.wait_for_item("shots_left", std::to_string(left - 1), 5s),
              std::to_string(left - 1));
    // A camera that takes a photo is busy, which is no reason to stop it.
    EXPECT_EQ(camera->taken("camera_stop_shooting"), 0U);
}

TEST_F(ClosedLoop, FocusByHandGoesBetweenTheLimits) {
    ASSERT_TRUE(app.command(R"({"cmd":"focus","param":"type","value":"mf"})"));
    ASSERT_TRUE(camera->wait_for("focus_type", "MF", 5s));
    ASSERT_TRUE(wait_for_status(13, 0));
    ASSERT_TRUE(app.command(R"({"cmd":"focus","param":"manual","value":"50"})"));
    EXPECT_TRUE(camera->wait_for("focus_position", "500", 5s));
    ASSERT_TRUE(app.command(
        R"({"cmd":"updatecameraconfig","param":"focus_limits","value":"20","value2":"40"})"));
    ASSERT_TRUE(app.command(R"({"cmd":"focus","param":"manual","value":"50"})"));
    EXPECT_TRUE(camera->wait_for("focus_position", "300", 5s));
    EXPECT_TRUE(receiver->wait_for("Set manual focus 30% (300)\n", 5s));
}

TEST_F(ClosedLoop, GimbalFaultEndsWithTheCamerasRestart) {
    ASSERT_TRUE(camera->set("gimbal_fault", "133"));
    EXPECT_TRUE(camera->wait_for_taken("power", 1, 5s));
    EXPECT_TRUE(wait_for_status(26, 1));
    EXPECT_TRUE(wait_for_status(26, 0));
    EXPECT_GE(receiver->count("gimbal error\n"), 1);
}

TEST_F(ClosedLoop, CameraThatIsStuckIsStopped) {
    ASSERT_TRUE(camera->set("stuck", "1"));
    EXPECT_TRUE(camera->wait_for("stuck", "0", 5s));
    EXPECT_TRUE(receiver->wait_for("Camera shoting stop\n", 5s));
}

TEST_F(ClosedLoop, RemoteControlActsOnWhatTheCameraShows) {
    RemoteControl remote;
    ASSERT_TRUE(app.command(R"({"cmd":"set","name":"movement","value":"rel"})"));
    // The mode button leads to and fro, as the camera shows its mode.
    remote.set(kMode, 1.0);
    EXPECT_TRUE(camera->wait_for("camera_mode", "photo", 5s));
    EXPECT_EQ(app.wait_for_item("camera_mode", "photo", 5s), "photo");
    remote.set(kMode, -1.0);
    EXPECT_TRUE(camera->wait_for("camera_mode", "video", 5s));
    EXPECT_EQ(app.wait_for_item("camera_mode", "video", 5s), "video");
    // Recording for as long as the button is held.
    remote.set(kRecord, 1.0);
    EXPECT_TRUE(camera->wait_for("record", "recording", 5s));
    remote.set(kRecord, 0.0);
    EXPECT_TRUE(camera->wait_for("record", "idle", 5s));
    // The rocker takes the next ISO, from the one that is reported.
    EXPECT_EQ(app.wait_for_item("iso_set", "100", 5s), "100");
    remote.set(kIso, 1.0);
    EXPECT_TRUE(camera->wait_for("iso_set", "200", 5s));
    EXPECT_EQ(app.wait_for_item("iso_set", "200", 5s), "200");
    remote.set(kIso, -1.0);
    EXPECT_TRUE(camera->wait_for("iso_set", "100", 5s));
    // So does that of the compensation; its level says which one it shall be.
    remote.set(kEv, 1.0);
    EXPECT_TRUE(camera->wait_for("ev", "+0.3", 5s));
    EXPECT_EQ(app.wait_for_item("ev", "+0.3", 5s), "+0.3");
    remote.set(kEv, -1.0);
    EXPECT_TRUE(camera->wait_for("ev", "0", 5s));
    remote.set(kEvAbs, 1.0);
    remote.set_byte(kEvAbsEnable, 1);
    EXPECT_TRUE(camera->wait_for("ev", "+3.0", 5s));
    EXPECT_EQ(app.wait_for_item("ev", "+3.0", 5s), "+3.0");
    // The stick turns the gimbal.
    const std::string yaw = *camera->get("yaw");
    remote.set(kPan, 1.0);
    const auto end = std::chrono::steady_clock::now() + 5s;
    while (camera->get("yaw") == yaw && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_NE(camera->get("yaw"), yaw);
}

// Video and status share the one stream.
TEST_F(ClosedLoop, VideoKeepsItsBytesAmongTheMessages) {
    const std::vector<Bytes> chunks = video_chunks(clip("1920x1080-5.h264"), 48000);
    std::thread video([&] {
        for (const Bytes& chunk : chunks) {
            EXPECT_TRUE(camera->send(video_envelope(chunk)));
            std::this_thread::sleep_for(5ms);
        }
        EXPECT_TRUE(camera->send(video_envelope(filler_chunk())));
    });
    const std::vector<Bytes> parts = parts_from_ring(chunks.size() + 1, 60s);
    video.join();
    ASSERT_EQ(parts.size(), chunks.size() + 1);
    EXPECT_TRUE(std::equal(chunks.begin(), chunks.end(), parts.begin() + 1));
    EXPECT_EQ(app.wait_for_item("camera_detected", "1", 5s), "1");
}

}  // namespace
