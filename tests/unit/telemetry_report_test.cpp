// The three reports, byte for byte.
#include "link/telemetry_report.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "tests/cases/report_datagrams.h"

namespace {

struct TextReport {
    std::size_t length;
    std::array<char, kTextReportCapacity> buffer;
    std::string text() const { return {buffer.data(), length}; }
};

TextReport build(const CameraState& state, const FocusLimits& limits = {}) {
    TextReport report{};
    report.buffer.fill('?');  // whatever a caller's buffer held
    report.length = build_text_report(state, limits, report.buffer);
    return report;
}

// What stands between "key=" and the next comma.
std::string item(const CameraState& state, const std::string& key, const FocusLimits& limits = {}) {
    const std::string text = "," + build(state, limits).text();
    const std::size_t at = text.find("," + key + "=");
    if (at == std::string::npos) {
        return "no " + key;
    }
    const std::size_t begin = at + key.size() + 2;
    return text.substr(begin, text.find(',', begin) - begin);
}

template <typename Array>
std::vector<int> values(const Array& bytes) {
    return {std::begin(bytes), std::end(bytes)};
}

TEST(TextReport, HasEachItemInItsPlace) {
    CameraState state{};
    FocusLimits limits{};
    fill_reported_state(state, limits);
    EXPECT_EQ(build(state, limits).text(), kReportedText);
}

TEST(TextReport, OfACameraThatHasToldNothingHasZerosAndEmptyTexts) {
    const TextReport report = build({});
    EXPECT_EQ(report.text(),
              "\x07"
              "camera_detected=0,camera_model=,camera_mode=,sd=,ssd=,shots_left=0,rec_time_left=,"
              "rec_time=,voltage=0,current=0,battery_level=0,shot_mode=,resolution=,framerate=,"
              "format=@,ae=0,aperture=,shutter=,shutter_set=,iso=0,iso_set=,ev=,image_mode=,"
              "color_mode=,wb=,wb_temp=0,ratio=,video_std=,antiflicker=,mf_min=0,mf_max=0,");
    EXPECT_EQ(report.length, 315U);
}

TEST(TextReport, IsFollowedByZeros) {
    const TextReport report = build({});
    EXPECT_EQ(std::count(report.buffer.begin() + 315, report.buffer.end(), '\0'), 1300 - 315);
}

// Every text fills its field, every number has its longest digits; no field has its end byte any
// more, which no writer does.
TEST(TextReport, OfTheLongestItemsFits) {
    CameraState state{};
    memset(static_cast<void*>(&state), 'x', sizeof(state));
    state.camera_detected = state.ae = 255;
    state.shots_left = 0x80000000U;
    state.voltage = state.current = -32768;
    state.battery_level = -128;
    state.iso = 65535;
    state.wb_temp = std::numeric_limits<float>::lowest();
    FocusLimits limits{};
    limits.mf_min = limits.mf_max = std::numeric_limits<std::int32_t>::min();

    const TextReport report = build(state, limits);
    EXPECT_EQ(report.length, 678U);
    EXPECT_EQ(report.buffer[678], '\0');
    EXPECT_EQ(item(state, "camera_model"), std::string(19, 'x'));
    EXPECT_EQ(item(state, "format"), "xxxxxxxxx@xxxxxxxxx");
    EXPECT_EQ(item(state, "wb_temp"), "-340282346638528859811704183484516925440");
    EXPECT_EQ(item(state, "mf_max", limits), "-2147483648");
}

TEST(TextReport, WordsArePrintedSignedAndByteFlagsUnsigned) {
    CameraState state{};
    state.shots_left = 0xFFFFFFFEU;
    state.voltage = -1;
    state.current = -32768;
    state.battery_level = -128;
    state.camera_detected = 255;
    state.ae = 254;
    state.iso = 65535;
    EXPECT_EQ(item(state, "shots_left"), "-2");
    EXPECT_EQ(item(state, "voltage"), "-1");
    EXPECT_EQ(item(state, "current"), "-32768");
    EXPECT_EQ(item(state, "battery_level"), "-128");
    EXPECT_EQ(item(state, "ae"), "254");
    EXPECT_EQ(item(state, "iso"), "65535");
    EXPECT_NE(build(state).text().find("camera_detected=255,"), std::string::npos);
}

TEST(TextReport, FocusLimitsMayBeNegative) {
    FocusLimits limits{};
    limits.mf_min = -5;
    limits.mf_max = 2147483647;
    EXPECT_EQ(item({}, "mf_min", limits), "-5");
    EXPECT_EQ(item({}, "mf_max", limits), "2147483647");
}

TEST(TextReport, TemperatureIsRoundedToAWholeNumber) {
    CameraState state{};
    // clang-format off
    const struct { float kelvin; const char* text; } kCases[] = {
        {2000.0F,  "2000" },
        {5649.75F, "5650" },
        {5649.25F, "5649" },
        {25500.0F, "25500"},
        {-100.0F,  "-100" },
    };
    // clang-format on
    for (const auto& row : kCases) {
        state.wb_temp = row.kelvin;
        EXPECT_EQ(item(state, "wb_temp"), row.text) << row.kelvin;
    }
}

TEST(TextReport, PercentSignsInATextStandForThemselves) {
    CameraState state{};
    write_shared_text(state.color_mode, "%s%n%d");
    EXPECT_EQ(item(state, "color_mode"), "%s%n%d");
}

TEST(StatusRecord, HasEachFieldAtItsOffset) {
    CameraState state{};
    FocusLimits limits{};
    fill_reported_state(state, limits);
    EXPECT_EQ(values(build_status_record(state)), values(kReportedStatus));
}

TEST(StatusRecord, OfACameraThatHasToldNothingIsZero) {
    std::vector<int> expected(37, 0);
    expected[0] = 0x06;
    EXPECT_EQ(values(build_status_record({})), expected);
}

TEST(StatusRecord, ReservedByteIsTheOneBeforeTheRecordState) {
    CameraState state{};
    state.reserved_status_byte = 0xE7;
    std::vector<int> expected(37, 0);
    expected[0] = 0x06;
    expected[14] = 0xE7;
    EXPECT_EQ(values(build_status_record(state)), expected);
}

TEST(StatusRecord, FocusPointIsInThousandthsAndSaturatesBeforeItIsCut) {
    // clang-format off
    const struct { float point; int low; int high; } kCases[] = {
        {0.0F,                                  0x00, 0x00},
        {0.5F,                                  0xF4, 0x01},   // 500
        {0.9996F,                               0xE7, 0x03},   // 999.6, cut to 999
        {1.0F,                                  0xE8, 0x03},   // 1000
        {0.0009765625F,                         0x00, 0x00},   // 0.98
        {-0.001F,                               0x00, 0x00},
        {-1.0e30F,                              0x00, 0x00},
        {65.535F,                               0xFF, 0xFF},   // 65535.0003
        {65.536F,                               0x00, 0x00},   // 65536.0029: starts over
        {100.0F,                                0xA0, 0x86},   // 100000 is 186A0h
        {4294967.0F,                            0xD8, 0xFE},   // 4294967000 is FFFFFED8h
        {4294968.0F,                            0xFF, 0xFF},   // beyond 32 bits
        {1.0e30F,                               0xFF, 0xFF},
        {std::numeric_limits<float>::infinity(), 0xFF, 0xFF},
        {-std::numeric_limits<float>::infinity(), 0x00, 0x00},
        {std::numeric_limits<float>::quiet_NaN(), 0x00, 0x00},
    };
    // clang-format on
    for (const auto& row : kCases) {
        CameraState state{};
        state.focus_point_x = row.point;
        state.focus_point_y = 0.001953125F;  // 1.95
        auto record = build_status_record(state);
        EXPECT_EQ(values(std::vector(record.begin() + 19, record.begin() + 23)),
                  (std::vector<int>{row.low, row.high, 0x01, 0x00}))
            << row.point;

        state.focus_point_x = 0.001953125F;
        state.focus_point_y = row.point;
        record = build_status_record(state);
        EXPECT_EQ(values(std::vector(record.begin() + 19, record.begin() + 23)),
                  (std::vector<int>{0x01, 0x00, row.low, row.high}))
            << row.point;
    }
}

TEST(ParameterBlock, BeginsWithTheTwelfthByteAndEndsInZeros) {
    CameraState state{};
    FocusLimits limits{};
    fill_reported_state(state, limits);
    EXPECT_EQ(values(build_parameter_block(state)), values(kReportedParameters));
}

// Not the bytes before the block, nor the settings behind it.
TEST(ParameterBlock, IsTakenFromTheBlockAndItsTailAlone) {
    CameraState state{};
    memset(static_cast<void*>(&state), 0xEE, sizeof(state));
    memset(state.params_block, 0xB1, sizeof(state.params_block));
    memset(state.params_block_tail, 0x7A, sizeof(state.params_block_tail));
    std::vector<int> expected = {0x06, 0x01};
    expected.insert(expected.end(), 53, 0xB1);
    expected.insert(expected.end(), 11, 0x7A);
    EXPECT_EQ(values(build_parameter_block(state)), expected);
}

}  // namespace
