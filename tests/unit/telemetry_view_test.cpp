// The main application's view of the reports: the same datagrams as in the receiver's own tests.
#include "client/telemetry_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "tests/cases/report_datagrams.h"

bool operator==(const TelemetryChange& one, const TelemetryChange& other) {
    return one.key == other.key && one.before == other.before && one.after == other.after;
}

void PrintTo(const TelemetryChange& change, std::ostream* out) {
    *out << change.key << " " << change.before << " -> " << change.after;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

Bytes text_report(std::string text = kReportedText) {
    return {text.begin(), text.end()};
}

Bytes text_with(const std::string& item, const std::string& in_its_place) {
    std::string text = kReportedText;
    text.replace(text.find(item), item.size(), in_its_place);
    return text_report(text);
}

template <std::size_t N>
Bytes copy(const std::uint8_t (&bytes)[N]) {
    return {std::begin(bytes), std::end(bytes)};
}

TEST(TelemetryView, ReadsEachItemOfTheText) {
    TelemetryView view;
    EXPECT_EQ(view.take(text_report()), ReportKind::kText);
    EXPECT_THAT(
        view.items(ReportKind::kText),
        ElementsAre("camera_detected=1", "camera_model=DJI Osmo RAW (X5R)", "camera_mode=video",
                    "sd=29.3G", "ssd=440.2G", "shots_left=3120", "rec_time_left=01:12:05",
                    "rec_time=00:00:12", "voltage=11400", "current=-820", "battery_level=87",
                    "shot_mode=JPG+RAW", "resolution=2704X1520", "framerate=25",
                    "format=2704X1520@25", "ae=2", "aperture=2.8", "shutter=1/12.5",
                    "shutter_set=2.5\"", "iso=640", "iso_set=auto", "ev=+0.7", "image_mode=manual",
                    "color_mode=black white", "wb=custom", "wb_temp=5600", "ratio=16:9",
                    "video_std=PAL", "antiflicker=50 Hz", "mf_min=10", "mf_max=90"));
}

TEST(TelemetryView, ReadsEachFieldOfTheStatus) {
    TelemetryView view;
    EXPECT_EQ(view.take(copy(kReportedStatus)), ReportKind::kStatus);
    EXPECT_THAT(
        view.items(ReportKind::kStatus),
        ElementsAre("gimbal_unlocked=1", "yaw=-1234", "pitch=4951", "roll=-32768",
                    "record_state=168", "status_byte42=66", "status_flags=24", "focus_valid=113",
                    "focus_auto=114", "focus_range=1025", "focus_position=770", "focus_point_x=250",
                    "focus_point_y=750", "focus_byte32=50", "focus_byte42=36",
                    "settings_byte69=105", "gimbal_error=129", "camera_flag=130",
                    "settings_byte100=100", "gimbal_limit2=-320", "gimbal_limit1=320",
                    "gimbal_limit4=-124", "gimbal_limit3=30"));
}

TEST(TelemetryView, ReadsTheParametersAsHexDigits) {
    TelemetryView view;
    EXPECT_EQ(view.take(copy(kReportedParameters)), ReportKind::kParameters);
    EXPECT_THAT(view.items(ReportKind::kParameters),
                ElementsAre("parameters=0c0d0e0f101112131415161718191a1b1c1d1e1f2021222324252627"
                            "28292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f40"));
}

TEST(TelemetryView, FirstReportOfAKindChangesNothing) {
    TelemetryView view;
    view.take(text_report());
    EXPECT_THAT(view.changes(), IsEmpty());
    view.take(copy(kReportedStatus));
    EXPECT_THAT(view.changes(), IsEmpty());
}

TEST(TelemetryView, TellsWhatChangedAndOnlyOnce) {
    TelemetryView view;
    view.take(text_report());
    view.take(text_with("iso=640,iso_set=auto", "iso=400,iso_set="));
    EXPECT_THAT(view.changes(), ElementsAre(TelemetryChange{"iso", "640", "400"},
                                            TelemetryChange{"iso_set", "auto", ""}));
    EXPECT_EQ(view.value("iso"), "400");
    EXPECT_EQ(view.value("iso_set"), "");
    view.take(text_with("iso=640,iso_set=auto", "iso=400,iso_set="));
    EXPECT_THAT(view.changes(), IsEmpty());
}

TEST(TelemetryView, TellsWhatChangedInTheStatus) {
    TelemetryView view;
    Bytes record = copy(kReportedStatus);
    view.take(record);
    record[3] = 0xFF;
    record[4] = 0x7F;
    record[28] = 0;
    view.take(record);
    EXPECT_THAT(view.changes(), ElementsAre(TelemetryChange{"yaw", "-1234", "32767"},
                                            TelemetryChange{"settings_byte100", "100", "0"}));
}

TEST(TelemetryView, CountsTheKinds) {
    TelemetryView view;
    EXPECT_EQ(view.take(copy(kReportedParameters)), ReportKind::kParameters);
    EXPECT_EQ(view.take(copy(kReportedParameters)), ReportKind::kParameters);
    view.take(text_report());
    EXPECT_EQ(view.count(ReportKind::kParameters), 2U);
    EXPECT_EQ(view.count(ReportKind::kText), 1U);
    EXPECT_EQ(view.count(ReportKind::kStatus), 0U);
    EXPECT_EQ(view.count(ReportKind::kWrong), 0U);
}

TEST(TelemetryView, KnowsTheKeysOfAllReportsAndNoOthers) {
    for (const char* key :
         {"camera_detected", "mf_max", "gimbal_unlocked", "gimbal_limit3", "parameters"}) {
        EXPECT_TRUE(TelemetryView::knows(key)) << key;
    }
    for (const char* key : {"", "camera", "ISO", "reserved"}) {
        EXPECT_FALSE(TelemetryView::knows(key)) << key;
    }
    EXPECT_EQ(TelemetryView().value("iso"), std::nullopt);
}

TEST(TelemetryView, RefusesWhatBreaksTheRulesAndKeepsWhatItHad) {
    Bytes long_status = copy(kReportedStatus);
    long_status.push_back(0);
    Bytes short_status = copy(kReportedStatus);
    short_status.pop_back();
    Bytes reserved = copy(kReportedStatus);
    reserved[14] = 1;
    Bytes tail = copy(kReportedParameters);
    tail[65] = 1;
    Bytes first_of_tail = copy(kReportedParameters);
    first_of_tail[55] = 1;
    Bytes short_block = copy(kReportedParameters);
    short_block.pop_back();
    Bytes ended_text = text_report();
    ended_text.push_back(0);
    const struct {
        const char* error;
        Bytes datagram;
    } cases[] = {
        {"datagram of no known type", {}},
        {"datagram of no known type", {0x05, 0x00}},
        {"datagram of no known type", {0x06}},
        {"datagram of no known type", {0x06, 0x02}},
        {"status record of 38 bytes", long_status},
        {"status record of 36 bytes", short_status},
        {"status record with something in its reserved byte", reserved},
        {"parameter block of 65 bytes", short_block},
        {"parameter block without its zeros", tail},
        {"parameter block without its zeros", first_of_tail},
        {"text report with more than its items", ended_text},
        {"text report without \"camera_detected=...,\" in its place", {0x07}},
        {"text report without \"iso=...,\" in its place", text_with("iso=640,iso_set=auto,", "")},
        {"text report without \"iso=...,\" in its place",
         text_with("iso=640,iso_set=auto,", "iso_set=auto,iso=640,")},
        {"text report without \"mf_max=...,\" in its place", text_with("mf_max=90,", "mf_max=90")},
        {"text report without \"ae=...,\" in its place", text_with("ae=2,", "ae,")},
    };
    for (const auto& row : cases) {
        TelemetryView view;
        view.take(text_report());
        EXPECT_EQ(view.take(row.datagram), ReportKind::kWrong) << row.error;
        EXPECT_EQ(view.error(), row.error);
        EXPECT_THAT(view.changes(), IsEmpty());
        EXPECT_EQ(view.value("iso"), "640");
        EXPECT_EQ(view.count(ReportKind::kWrong), 1U);
    }
}

TEST(TelemetryView, GoesOnAfterAWrongDatagram) {
    TelemetryView view;
    view.take(Bytes{0x55});
    EXPECT_EQ(view.take(text_report()), ReportKind::kText);
    EXPECT_EQ(view.error(), "");
}

}  // namespace
