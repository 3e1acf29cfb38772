// From the camera's status to the main application, and to what the receiver does by itself.

#include <algorithm>

#include "tests/e2e/e2e_support.h"
#include "tests/e2e/main_application.h"

namespace {

// Recording in video mode for 12 s; 29,300 MB, 3,120 shots and 4,325 s left; an X5R.
const Bytes kStatus = {
    0x55, 0x32, 0x04, 0x06, 0x01, 0x02, 0x02, 0x01, 0x00, 0x02, 0x80, 0x80, 0x00,
    0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x74, 0x72, 0x00, 0x00, 0x30, 0x0C,
    0x00, 0x00, 0xE5, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x0C, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x8A, 0xB8,
};
// Busy (byte 13, bit 3), but neither recording (byte 11) nor taking a photo (byte 42).
const Bytes kBusyForNothing = {
    0x55, 0x32, 0x04, 0x06, 0x01, 0x02, 0x03, 0x01, 0x00, 0x02, 0x80, 0x00, 0x00,
    0x08, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x74, 0x72, 0x00, 0x00, 0x30, 0x0C,
    0x00, 0x00, 0xE5, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x0C, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0xC1, 0xA1,
};
// Pitch -150, roll 12, yaw 900, unlocked.
const Bytes kAttitude = {
    0x55, 0x19, 0x04, 0xE4, 0x04, 0x02, 0x05, 0x00, 0x00, 0x04, 0x05, 0x6A, 0xFF,
    0x0C, 0x00, 0x84, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x3C, 0x87,
};
const Bytes kGimbalFault = {
    0x55, 0x12, 0x04, 0xC7, 0x04, 0x02, 0x07, 0x00, 0x00,
    0x04, 0x1C, 0x00, 0x85, 0x00, 0x00, 0x00, 0x97, 0x1E,
};
const Bytes kGimbalFaultOver = {
    0x55, 0x12, 0x04, 0xC7, 0x04, 0x02, 0x08, 0x00, 0x00,
    0x04, 0x1C, 0x00, 0x80, 0x00, 0x00, 0x00, 0x1C, 0xDD,
};
// Payload 1, 2, ... 64.
const Bytes kParameters = {
    0x55, 0x4D, 0x04, 0xA8, 0x04, 0x02, 0x09, 0x00, 0x00, 0x04, 0x50, 0x01, 0x02, 0x03, 0x04, 0x05,
    0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15,
    0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x24, 0x25,
    0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F, 0x30, 0x31, 0x32, 0x33, 0x34, 0x35,
    0x36, 0x37, 0x38, 0x39, 0x3A, 0x3B, 0x3C, 0x3D, 0x3E, 0x3F, 0x40, 0x15, 0xE8,
};

const Bytes kTextReport = {0x07};
const Bytes kStatusRecord = {0x06, 0x00};
const Bytes kParameterBlock = {0x06, 0x01};

class Telemetry : public ReceiverTest {
  protected:
    void SetUp() override {
        start_configured(app.arguments());
        ASSERT_TRUE(board->wait_for_endpoints(5s));
    }
    void TearDown() override { EXPECT_EQ(refused_packets(), 0U); }
    // One control envelope, and a filler chunk that completes it.
    void camera_sends(const Bytes& packets) {
        Bytes stream = control_envelope(packets);
        const Bytes filler = video_envelope(filler_chunk());
        stream.insert(stream.end(), filler.begin(), filler.end());
        ASSERT_TRUE(board->bulk_out(stream));
        ASSERT_TRUE(board->wait_for_bulk_out_taken(5s)) << receiver->output();
    }

    MainApplication app;
};

TEST_F(Telemetry, NothingIsReportedBeforeTheCameraSends) {
    EXPECT_EQ(app.receive(1500ms), std::nullopt);
}

TEST_F(Telemetry, StatusReachesTheTextReport) {
    camera_sends(kStatus);
    const auto report = app.report(5s);
    EXPECT_EQ(report,
              "camera_detected=1,camera_model=DJI Osmo RAW (X5R),camera_mode=video,sd=29.3G,ssd=,"
              "shots_left=3120,rec_time_left=01:12:05,rec_time=00:00:12,voltage=0,current=0,"
              "battery_level=0,shot_mode=,resolution=,framerate=,format=@,ae=0,aperture=,shutter=,"
              "shutter_set=,iso=0,iso_set=,ev=,image_mode=,color_mode=,wb=,wb_temp=0,ratio=,"
              "video_std=,antiflicker=,mf_min=0,mf_max=0,");
}

TEST_F(Telemetry, AttitudeReachesTheStatusRecord) {
    Bytes packets = kStatus;
    packets.insert(packets.end(), kAttitude.begin(), kAttitude.end());
    camera_sends(packets);
    const Bytes expected = {
        0x06, 0x00,              // status record
        0x01,                    // unlocked
        0x84, 0x03,              // yaw 900
        0x6A, 0xFF,              // pitch -150
        0x0C, 0x00,              // roll 12
        0x80, 0x00, 0x00,        // recording; status bytes 42 and 13
        0x00, 0x00, 0x00,        // no focus message yet, reserved
        0x00, 0x00, 0x00, 0x00,  // focus range and position
        0x00, 0x00, 0x00, 0x00,  // focus point
        0x00, 0x00, 0x00,        // focus bytes 32 and 42, settings byte 69
        0x00, 0x00, 0x00,        // no fault, camera flag, settings byte 100
        0xC0, 0xFE, 0x40, 0x01,  // -320, 320
        0x84, 0xFF, 0x1E, 0x00,  // -124, 30
    };
    EXPECT_EQ(app.receive(kStatusRecord, 5s), expected);
}

TEST_F(Telemetry, TextReportAtEveryTenthTickAndStatusRecordAtEverySecond) {
    camera_sends(kStatus);
    ASSERT_TRUE(app.receive(kTextReport, 5s));
    std::string kinds;
    for (int i = 0; i < 13; ++i) {
        const auto datagram = app.receive(3s);
        ASSERT_TRUE(datagram && !datagram->empty()) << receiver->output();
        kinds += (*datagram)[0] == 0x07 ? 't' : 's';
    }
    EXPECT_EQ(kinds,
              "ssssstssssst"
              "s");
}

TEST_F(Telemetry, ParameterBlockFollowsEachRecordUntilItIsThreeSecondsOld) {
    camera_sends(kParameters);
    Bytes expected = {0x06, 0x01};
    for (std::uint8_t byte = 12; byte <= 64; ++byte) {
        expected.push_back(byte);
    }
    expected.resize(66, 0x00);
    EXPECT_EQ(app.receive(kParameterBlock, 5s), expected);

    // Other data goes on, so that the link stays in use while the block grows old.
    int blocks = 0;
    int records_without = 0;
    const auto end = std::chrono::steady_clock::now() + 20s;
    for (bool was_record = false; records_without < 10 && std::chrono::steady_clock::now() < end;) {
        const auto datagram = app.receive(3s);
        ASSERT_TRUE(datagram) << receiver->output();
        const bool record = datagram->size() == 37;
        if (datagram->size() == 66) {
            EXPECT_TRUE(was_record);
            EXPECT_EQ(records_without, 0) << "a block after it had grown old";
            ++blocks;
        } else if (was_record && record) {
            ++records_without;
        }
        was_record = record;
        camera_sends(kAttitude);
    }
    EXPECT_EQ(records_without, 10);
    EXPECT_GT(blocks, 5);
    EXPECT_LT(blocks, 17);  // 3 s at five a second, and one tick
}

TEST_F(Telemetry, GimbalFaultRestartsTheCamera) {
    camera_sends(kGimbalFault);
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s), (Bytes{0x55, 0x0E, 0x04, 0x66, 0x02, 0x09, 0x00, 0x00,
                                                     0x40, 0x09, 0x51, 0x03, 0xCF, 0x69}));
    EXPECT_TRUE(receiver->wait_for("gimbal error\n", 5s));
    camera_sends(kGimbalFaultOver);
    camera_sends(kAttitude);
    EXPECT_EQ(board->bulk_in().size(), 1U);
    EXPECT_EQ(receiver->count("gimbal error\n"), 1);
}

TEST_F(Telemetry, BusyCameraThatShootsNothingIsStopped) {
    camera_sends(kBusyForNothing);
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s),
              (Bytes{0x55, 0x17, 0x04, 0x38, 0x09, 0x04, 0x00, 0x00, 0x40, 0x01, 0x01, 0x00,
                     0x00, 0x00, 0x00, 0x00, 0x91, 0x00, 0x00, 0x00, 0x91, 0x57, 0xBE}));
    EXPECT_EQ(board->wait_for_bulk_in(1, 5s),
              (Bytes{0x55, 0x17, 0x04, 0x38, 0x09, 0x01, 0x01, 0x00, 0x40, 0x01, 0x01, 0x00,
                     0x00, 0x00, 0x00, 0x00, 0x91, 0x00, 0x00, 0x00, 0x91, 0x0F, 0x50}));
    EXPECT_TRUE(receiver->wait_for("Camera shoting stop\n", 5s));
}

}  // namespace
