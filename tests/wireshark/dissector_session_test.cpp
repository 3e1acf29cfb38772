// A session of the real receiver with the simulated camera, captured at the camera's end of the
// cable and at the main application: nothing in it is unknown to the plugin, and nothing wrong.
#include <gmock/gmock.h>

#include <algorithm>
#include <mutex>
#include <set>

#include "simulator/simulated_camera.h"
#include "tests/e2e/e2e_support.h"
#include "tests/e2e/main_application.h"
#include "tests/protocol_page.h"
#include "tests/wireshark/tshark.h"
#include "video/priming_frame.h"

using testing::Contains;
using testing::IsEmpty;

namespace {

// Everything that passes the pipes. The camera asks for each packet by its number, perhaps twice.
class Tap {
  public:
    UsbPipes on(const UsbPipes& pipes) {
        return {
            .bulk_out =
                [this, pipes](std::span<const std::uint8_t> bytes, std::size_t transfer,
                              Milliseconds timeout) {
                    add(pieces(bytes, transfer));
                    return pipes.bulk_out(bytes, transfer, timeout);
                },
            .wait_for_bulk_in = [this, pipes](std::size_t index,
                                              Milliseconds timeout) -> std::optional<Bytes> {
                auto packet = pipes.wait_for_bulk_in(index, timeout);
                const std::lock_guard lock(mutex_);
                if (packet && index == packets_) {
                    capture_.add_transfer(kToCamera, *packet);
                    ++packets_;
                }
                return packet;
            },
        };
    }
    Capture capture() const {
        const std::lock_guard lock(mutex_);
        return capture_;
    }
    std::size_t packets() const {
        const std::lock_guard lock(mutex_);
        return packets_;
    }

  private:
    void add(const std::vector<Bytes>& transfers) {
        const std::lock_guard lock(mutex_);
        for (const Bytes& each : transfers) {
            capture_.add_transfer(kFromCamera, each);
        }
    }

    mutable std::mutex mutex_;
    Capture capture_;
    std::size_t packets_ = 0;
};

std::set<std::string> distinct(const Frames& frames, const std::string& field) {
    const auto values = all_values(frames, field);
    return {values.begin(), values.end()};
}

class DissectorSession : public ReceiverTest {
  protected:
    void SetUp() override {
        start_configured(app.arguments());
        ASSERT_TRUE(board->wait_for_endpoints(5s));
        camera.emplace(tap.on(usb_pipes(*board)));
        camera->link_begins();
        ASSERT_TRUE(app.report(5s)) << receiver->output();
    }
    void TearDown() override { camera.reset(); }

    // All of the page's but those that end the session.
    void send_commands() {
        for (const auto& row : page_table("<!-- commands -->")) {
            const std::string command = unquoted(row.at(0));
            if (command.find("\"power\"") == std::string::npos) {
                ASSERT_TRUE(app.command(command));
            }
        }
        // The last one that shows in the camera.
        ASSERT_TRUE(app.command(R"({"cmd":"iso","param":"1600"})"));
        ASSERT_EQ(app.wait_for_item("iso_set", "1600", 5s), "1600");
    }

    Tap tap;
    MainApplication app;
    std::optional<SimulatedCamera> camera;
};

TEST_F(DissectorSession, NothingOnTheCableIsUnknown) {
    const std::vector<Bytes> pictures(20, Bytes(kPrimingFrame.begin(), kPrimingFrame.end()));
    ASSERT_TRUE(camera->send(camera_stream(pictures, 0)));
    send_commands();
    const std::size_t sent = tap.packets();
    const Frames frames = dissect(
        tap.capture(),
        {"vantarel.packet.name", "vantarel.packet.direction", "vantarel.envelope.nal", kWarnings});
    EXPECT_THAT(distinct(frames, kWarnings), IsEmpty());
    const auto names = distinct(frames, "vantarel.packet.name");
    EXPECT_THAT(names, testing::IsSupersetOf({"camera status", "gimbal attitude", "camera settings",
                                              "focus", "battery", "drive space", "auxiliary words",
                                              "camera flag", "record", "iso", "gimbal_position",
                                              "format_drive"}));
    EXPECT_THAT(names, testing::Not(Contains("unknown")));
    EXPECT_THAT(distinct(frames, "vantarel.envelope.nal"),
                testing::IsSupersetOf({"SPS", "PPS", "IDR slice"}));
    const auto directions = all_values(frames, "vantarel.packet.direction");
    EXPECT_GE(std::ranges::count(directions, "to the camera"), static_cast<std::ptrdiff_t>(sent));
}

TEST_F(DissectorSession, NothingBetweenReceiverAndApplicationIsUnknown) {
    Capture capture;
    ASSERT_TRUE(app.command(R"({"cmd":"histogram","param":"1"})"));
    for (int i = 0; i < 30; ++i) {
        const auto report = app.receive(2s);
        ASSERT_TRUE(report);
        capture.add_datagram(40000, 5000, *report);
    }
    const Frames frames = dissect(capture, {"vantarel.link.kind", kWarnings});
    EXPECT_THAT(distinct(frames, kWarnings), IsEmpty());
    EXPECT_THAT(distinct(frames, "vantarel.link.kind"),
                testing::ElementsAre("parameter block", "status record", "text report"));
}

}  // namespace
