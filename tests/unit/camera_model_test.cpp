// The simulated camera in time: what its model does by itself and how it takes what is done to it.
#include "simulator/camera_model.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

class Camera : public testing::Test {
  protected:
    void record_for(milliseconds duration) {
        model.start_recording();
        model.advance(milliseconds(300));
        model.advance(duration);
    }

    CameraModel model;
};

// -- recording

TEST_F(Camera, RecordingGoesThroughItsPhases) {
    EXPECT_EQ(model.record_state(), 0x00);
    model.start_recording();
    EXPECT_EQ(model.record_state(), 0x40);
    model.advance(milliseconds(290));
    EXPECT_EQ(model.record_state(), 0x40);
    model.advance(milliseconds(10));
    EXPECT_EQ(model.record_state(), 0x80);
    model.stop_recording();
    EXPECT_EQ(model.record_state(), 0xC0);
    model.advance(milliseconds(400));
    EXPECT_EQ(model.record_state(), 0x00);
}

TEST_F(Camera, RecordingTimeRunsWhileItRecords) {
    record_for(milliseconds(65900));
    EXPECT_EQ(model.recorded_seconds(), 65);
    model.stop_recording();
    model.advance(seconds(5));
    EXPECT_EQ(model.recorded_seconds(), 0);
}

TEST_F(Camera, RecordingAgainGoesOnUndisturbed) {
    record_for(seconds(10));
    model.start_recording();
    EXPECT_EQ(model.record_phase(), RecordPhase::kRecording);
    EXPECT_EQ(model.recorded_seconds(), 10);
}

TEST_F(Camera, DoesNotRecordInPhotoMode) {
    model.mode = 0;
    model.start_recording();
    EXPECT_EQ(model.record_phase(), RecordPhase::kIdle);
}

TEST_F(Camera, StopWithoutARecordingDoesNothing) {
    model.stop_recording();
    EXPECT_EQ(model.record_phase(), RecordPhase::kIdle);
}

struct RecordingRate {
    int resolution;
    double megabytes_in_ten_seconds;
};

class CameraResolution : public Camera, public testing::WithParamInterface<RecordingRate> {};

TEST_P(CameraResolution, DecidesWhatARecordingTakesOfTheCard) {
    model.resolution = GetParam().resolution;
    const double before = model.card_free;
    record_for(seconds(10));
    EXPECT_NEAR(before - model.card_free, GetParam().megabytes_in_ten_seconds, 1e-6);
}

INSTANTIATE_TEST_SUITE_P(Codes, CameraResolution,
                         testing::Values(RecordingRate{4, 37.5}, RecordingRate{10, 50},
                                         RecordingRate{24, 62.5}, RecordingRate{16, 75},
                                         RecordingRate{22, 75}));

TEST_F(Camera, OnlyTheModelWithADriveRecordsThere) {
    const double before = model.drive_free;
    record_for(seconds(10));
    EXPECT_NEAR(before - model.drive_free, 2000, 1e-6);
    CameraModel other;
    other.model_code = 1;
    other.start_recording();
    other.advance(seconds(10));
    EXPECT_EQ(other.drive_free, before);
}

TEST_F(Camera, TimeLeftIsThatOfTheMediumThatIsFullFirst) {
    EXPECT_EQ(model.recording_seconds_left(), 2400);  // 480000 MB of drive
    model.drive_free = 0;
    EXPECT_EQ(model.recording_seconds_left(), 12000);  // 60000 MB of card
    model.resolution = 16;
    EXPECT_EQ(model.recording_seconds_left(), 8000);
}

TEST_F(Camera, FullCardEndsTheRecording) {
    model.card_free = 12;
    record_for(milliseconds(2300));
    EXPECT_EQ(model.record_phase(), RecordPhase::kRecording);
    model.advance(milliseconds(200));
    EXPECT_EQ(model.record_phase(), RecordPhase::kStopping);
    EXPECT_EQ(model.card_free, 0);
    model.advance(seconds(1));
    model.start_recording();
    EXPECT_EQ(model.record_phase(), RecordPhase::kIdle);
}

TEST_F(Camera, FullDriveEndsTheRecording) {
    model.drive_free = 100;
    record_for(milliseconds(600));
    EXPECT_EQ(model.record_phase(), RecordPhase::kStopping);
    EXPECT_EQ(model.drive_free, 0);
}

// -- photos

// A status that is busy, and shows a photo nowhere, makes the receiver stop the camera.
TEST_F(Camera, PhotoShowsItselfInEachOfItsPhases) {
    model.mode = 0;
    model.take_photo();
    EXPECT_EQ(model.record_state(), 0x28);
    EXPECT_EQ(model.status_flags(), 0x00);
    EXPECT_EQ(model.photo_flags(), 1);
    model.advance(milliseconds(300));
    EXPECT_EQ(model.record_state(), 0x20);
    EXPECT_EQ(model.status_flags(), 0x08);
    EXPECT_EQ(model.photo_flags(), 1);
    model.advance(milliseconds(500));
    EXPECT_EQ(model.record_state(), 0x00);
    EXPECT_EQ(model.status_flags(), 0x00);
    EXPECT_EQ(model.photo_flags(), 0);
}

struct PhotoSize {
    int format;
    int megabytes;
    int photos_left;
};

class CameraPhotoFormat : public Camera, public testing::WithParamInterface<PhotoSize> {};

TEST_P(CameraPhotoFormat, DecidesWhatAPhotoTakesOfTheCard) {
    model.mode = 0;
    model.photo_format = GetParam().format;
    EXPECT_EQ(model.photos_left(), GetParam().photos_left);
    model.take_photo();
    model.advance(seconds(1));
    EXPECT_EQ(model.card_free, 60000 - GetParam().megabytes);
}

INSTANTIATE_TEST_SUITE_P(Codes, CameraPhotoFormat,
                         testing::Values(PhotoSize{0, 30, 2000}, PhotoSize{1, 8, 7500},
                                         PhotoSize{2, 38, 1578}));

TEST_F(Camera, TakesNoPhotoInVideoModeOrWithoutSpace) {
    model.take_photo();
    EXPECT_EQ(model.photo_phase(), PhotoPhase::kNone);
    model.mode = 0;
    model.card_free = 7;
    model.take_photo();
    EXPECT_EQ(model.photo_phase(), PhotoPhase::kNone);
}

TEST_F(Camera, SecondPhotoWaitsForTheFirst) {
    model.mode = 0;
    model.take_photo();
    model.advance(milliseconds(400));
    model.take_photo();
    EXPECT_EQ(model.photo_phase(), PhotoPhase::kStoring);
}

TEST_F(Camera, StopEndsTheSeriesThePhotoAndWhatIsStuck) {
    model.mode = 0;
    model.loop = 1;
    model.stuck = 1;
    model.take_photo();
    EXPECT_EQ(model.status_flags(), 0x18);
    model.stop_shooting();
    EXPECT_EQ(model.status_flags(), 0x00);
    EXPECT_EQ(model.record_state(), 0x00);
}

// -- exposure

struct Exposure {
    int image_mode, shutter, aperture;
};

class CameraImageMode : public Camera, public testing::WithParamInterface<Exposure> {};

TEST_P(CameraImageMode, DecidesWhoseShutterAndApertureCount) {
    model.image_mode = GetParam().image_mode;
    model.shutter_set = shutter_fraction(500, 0);
    model.aperture_set = 560;
    EXPECT_EQ(model.shutter(), GetParam().shutter);
    EXPECT_EQ(model.aperture(), GetParam().aperture);
}

INSTANTIATE_TEST_SUITE_P(Programs, CameraImageMode,
                         testing::Values(Exposure{1, 0x8064, 400}, Exposure{2, 0x81F4, 400},
                                         Exposure{3, 0x8064, 560}, Exposure{4, 0x81F4, 560}));

TEST_F(Camera, IsoDoublesWithEachCode) {
    model.iso_code = 0;
    EXPECT_EQ(model.iso(), 100);
    model.iso_code = 3;
    EXPECT_EQ(model.iso(), 100);
    model.iso_code = 9;
    EXPECT_EQ(model.iso(), 6400);
}

TEST(ShutterCode, IsAsTheMessagesHaveIt) {
    EXPECT_EQ(shutter_seconds(2, 5), 0x050002);
    EXPECT_EQ(shutter_fraction(500, 0), 0x0081F4);
}

TEST_F(Camera, ResetPutsTheSettingsBackAndNothingElse) {
    model.iso_code = 9;
    model.mode = 0;
    model.card_free = 5;
    model.reset();
    EXPECT_EQ(model.iso_code, 3);
    EXPECT_EQ(model.mode, 1);
    EXPECT_EQ(model.card_free, 5);
    EXPECT_EQ(model.resets, 1);
}

// -- battery and power

TEST_F(Camera, BatteryDrainsFasterWhileItRecords) {
    model.advance(minutes(10));
    EXPECT_NEAR(model.battery_percent, 81.29, 0.01);  // 1100 of 980 mAh in an hour
    CameraModel other;
    other.start_recording();
    other.advance(minutes(10));
    EXPECT_NEAR(other.battery_percent, 72.79, 0.01);  // 1600 mA
}

TEST_F(Camera, VoltageFallsWithTheCharge) {
    EXPECT_EQ(model.voltage(), 12600);
    model.battery_percent = 50;
    EXPECT_EQ(model.voltage(), 11100);
}

TEST_F(Camera, CurrentIsNegativeAndShowsTheLoad) {
    EXPECT_EQ(model.current(), -1100);
    record_for(seconds(1));
    EXPECT_EQ(model.current(), -1600);
    model.sleep();
    EXPECT_EQ(model.current(), -100);
    model.shut_down();
    EXPECT_EQ(model.current(), 0);
}

TEST_F(Camera, EmptyBatteryShutsItDown) {
    model.battery_percent = 0.01;
    model.advance(seconds(1));
    EXPECT_EQ(model.power(), Power::kOff);
    EXPECT_EQ(model.battery_percent, 0);
}

TEST_F(Camera, SleepEndsARecordingAndLastsUntilItIsWoken) {
    record_for(seconds(1));
    model.sleep();
    model.advance(minutes(1));
    EXPECT_EQ(model.power(), Power::kAsleep);
    model.wake_up();
    EXPECT_TRUE(model.awake());
    EXPECT_EQ(model.record_phase(), RecordPhase::kIdle);
}

TEST_F(Camera, RestartTakesAMomentAndClearsTheFault) {
    record_for(seconds(1));
    model.gimbal.fault = 0x85;
    model.restart();
    model.advance(milliseconds(1990));
    EXPECT_EQ(model.power(), Power::kRestarting);
    EXPECT_EQ(model.gimbal.fault, 0x85);
    model.advance(milliseconds(10));
    EXPECT_TRUE(model.awake());
    EXPECT_EQ(model.gimbal.fault, 0x80);
    EXPECT_EQ(model.record_phase(), RecordPhase::kIdle);
}

TEST_F(Camera, RestartDuringARestartDoesNotProlongIt) {
    model.restart();
    model.advance(milliseconds(1500));
    model.restart();
    model.advance(milliseconds(500));
    EXPECT_TRUE(model.awake());
}

TEST_F(Camera, ShutDownIsForGood) {
    model.shut_down();
    model.wake_up();
    model.restart();
    model.advance(seconds(10));
    EXPECT_EQ(model.power(), Power::kOff);
    EXPECT_EQ(model.battery_percent, 100);
}

// -- media

TEST_F(Camera, FormattingEmptiesTheCard) {
    model.format_card();
    EXPECT_EQ(model.card_free, 64000);
    EXPECT_EQ(model.card_formats, 1);
}

TEST_F(Camera, DriveIsFormattedOnlyWhereItWasPrepared) {
    model.format_drive();
    EXPECT_EQ(model.drive_free, 480000);
    model.prepare_drive_format();
    model.format_drive();
    EXPECT_EQ(model.drive_free, 512000);
    model.format_drive();
    EXPECT_EQ(model.drive_formats, 1);
}

// -- lens

TEST_F(Camera, AutomaticFocusFindsItsSubjectAndListensToNobody) {
    model.focus_position = 0;
    model.focus_at(100);
    model.advance(milliseconds(300));
    EXPECT_NEAR(model.focus_position, 300, 1e-6);
    model.advance(seconds(1));
    EXPECT_NEAR(model.focus_position, 600, 1e-6);
}

TEST_F(Camera, ManualFocusTravelsToItsPosition) {
    model.focus_auto = 0;
    model.focus_at(100);
    model.advance(milliseconds(200));
    EXPECT_NEAR(model.focus_position, 400, 1e-6);
    model.advance(seconds(1));
    EXPECT_NEAR(model.focus_position, 100, 1e-6);
}

TEST_F(Camera, FocusStaysInItsRange) {
    model.focus_auto = 0;
    model.focus_at(60000);
    model.advance(seconds(5));
    EXPECT_NEAR(model.focus_position, 1000, 1e-6);
}

TEST_F(Camera, OpticalZoomTravelsWhileItIsDriven) {
    model.zoom_direction = 1;
    model.advance(seconds(2));
    EXPECT_NEAR(model.optical_zoom, 50, 1e-6);
    model.advance(seconds(10));
    EXPECT_EQ(model.optical_zoom, 100);
    model.zoom_direction = -1;
    model.advance(seconds(1));
    model.zoom_direction = 0;
    model.advance(seconds(1));
    EXPECT_NEAR(model.optical_zoom, 75, 1e-6);
}

TEST_F(Camera, HistogramMovesWithTheExposureValue) {
    EXPECT_EQ(model.histogram_bins()[32], 200);
    model.ev_code = 25;
    EXPECT_EQ(model.histogram_bins()[50], 200);
    EXPECT_EQ(model.histogram_bins()[32], 20);
}

TEST_F(Camera, TimeIsTheSameInWhateverStepsItPasses) {
    CameraModel other;
    for (CameraModel* const each : {&model, &other}) {
        each->start_recording();
        each->gimbal.go_to(1000, 0, 0);
    }
    model.advance(milliseconds(2000));
    for (int i = 0; i < 200; ++i) {
        other.advance(milliseconds(10));
    }
    EXPECT_EQ(model.card_free, other.card_free);
    EXPECT_EQ(model.gimbal.yaw.angle, other.gimbal.yaw.angle);
    EXPECT_EQ(model.battery_percent, other.battery_percent);
}

}  // namespace
