// Texts of numbers, over all the values that a message can carry.
#include "protocol/telemetry_texts.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

// What a format leaves in a field that was full.
template <typename Value>
std::string written(void (*format)(Value, NumberText&), Value value) {
    NumberText text;
    memset(text, '~', sizeof text);
    format(value, text);
    return {text, strnlen(text, sizeof text)};
}

std::string hms(std::uint32_t seconds) {
    return written(format_hms, seconds);
}

std::string gigabytes(float value) {
    return written(format_gigabytes, value);
}

std::string aperture(std::uint16_t raw) {
    return written(format_aperture, raw);
}

// The exposure time of three bytes, or "-" where the text is left alone.
std::string shutter(unsigned b0, unsigned b1, unsigned b2) {
    NumberText text = "-";
    const bool written = format_shutter(b0 | b1 << 8 | b2 << 16, text);
    EXPECT_EQ(written, strcmp(text, "-") != 0);
    return text;
}

TEST(FormatHms, TwoDigitsEach) {
    EXPECT_EQ(hms(0), "00:00:00");
    EXPECT_EQ(hms(9), "00:00:09");
    EXPECT_EQ(hms(10), "00:00:10");
    EXPECT_EQ(hms(59), "00:00:59");
    EXPECT_EQ(hms(60), "00:01:00");
    EXPECT_EQ(hms(599), "00:09:59");
    EXPECT_EQ(hms(600), "00:10:00");
    EXPECT_EQ(hms(3599), "00:59:59");
    EXPECT_EQ(hms(3600), "01:00:00");
    EXPECT_EQ(hms(3725), "01:02:05");
    EXPECT_EQ(hms(35999), "09:59:59");
    EXPECT_EQ(hms(36000), "10:00:00");
    EXPECT_EQ(hms(65535), "18:12:15");
    EXPECT_EQ(hms(359999), "99:59:59");
}

TEST(FormatHms, FromHundredHoursOnTheMinutesFollowTheThirdDigit) {
    EXPECT_EQ(hms(360000), "10000:00");
    EXPECT_EQ(hms(363725), "10102:05");
    EXPECT_EQ(hms(3599999), "99959:59");
    EXPECT_EQ(hms(3600000), "10000:00");     // 1000 hours: the fourth digit is lost
    EXPECT_EQ(hms(4294967295), "11928:15");  // 1193046 hours
}

// Hours, minutes and seconds written one after the other, each where it belongs.
TEST(FormatHms, LaterPartsOverwriteEarlierOnes) {
    for (std::uint64_t seconds = 0; seconds <= 4294967295; seconds += 9973) {
        char text[20];
        snprintf(text, 20, seconds < 36000 ? "0%d:" : "%d:", static_cast<int>(seconds / 3600));
        const int minutes = static_cast<int>(seconds / 60 % 60);
        snprintf(text + 3, 17, minutes <= 9 ? "0%d:" : "%d:", minutes);
        const int rest = static_cast<int>(seconds % 60);
        snprintf(text + 6, 14, rest < 10 ? "0%d" : "%d", rest);
        ASSERT_EQ(hms(static_cast<std::uint32_t>(seconds)), text) << seconds;
    }
}

TEST(FormatGigabytes, OneDecimal) {
    EXPECT_EQ(gigabytes(0.001F), "0.0G");
    EXPECT_EQ(gigabytes(0.25F), "0.2G");
    EXPECT_EQ(gigabytes(0.75F), "0.8G");
    EXPECT_EQ(gigabytes(1.0F), "1.0G");
    EXPECT_EQ(gigabytes(58.123F), "58.1G");
    EXPECT_EQ(gigabytes(16383.999F), "16384.0G");
    EXPECT_EQ(gigabytes(4294967.5F), "4294967.5G");
}

TEST(FormatGigabytes, NothingForNone) {
    EXPECT_EQ(gigabytes(0.0F), "");
}

std::string printed(double value, int decimals) {
    char text[64];
    snprintf(text, sizeof text, "%1.*f", decimals, value);
    return text;
}

// Megabytes of a drive, whose ties of a decimal go to the even digit.
TEST(FormatGigabytes, RoundsAsPrintfDoesWhatADriveSays) {
    for (std::uint32_t megabytes = 1; megabytes <= 0xFFFFFF; megabytes += 13) {
        const float value = static_cast<float>(megabytes) / 1024.0F;
        ASSERT_EQ(gigabytes(value), printed(double{value}, 1) + "G") << megabytes;
    }
}

TEST(FormatGigabytes, RoundsAsPrintfDoesWhatACardSays) {
    for (std::uint64_t megabytes = 1; megabytes <= 0xFFFFFFFF; megabytes += 1 + megabytes / 30000) {
        const float value = static_cast<float>(megabytes) * 0.001F;
        ASSERT_EQ(gigabytes(value), printed(double{value}, 1) + "G") << megabytes;
    }
}

TEST(FormatAperture, RoundsAsPrintfDoes) {
    for (int raw = 0; raw <= 65535; ++raw) {
        const double f_number = raw * 0.01;
        const bool whole = f_number == std::floor(f_number);
        ASSERT_EQ(aperture(static_cast<std::uint16_t>(raw)), printed(f_number, whole ? 0 : 1));
    }
}

TEST(FormatAperture, WholeNumbersHaveNoDecimal) {
    for (int f_number = 1; f_number <= 64; ++f_number) {
        EXPECT_EQ(aperture(static_cast<std::uint16_t>(f_number * 100)), std::to_string(f_number));
    }
    EXPECT_EQ(aperture(0), "0");
    EXPECT_EQ(aperture(65500), "655");
}

TEST(FormatAperture, AllOthersHaveOne) {
    EXPECT_EQ(aperture(170), "1.7");
    EXPECT_EQ(aperture(280), "2.8");
    EXPECT_EQ(aperture(1), "0.0");
    EXPECT_EQ(aperture(199), "2.0");
    EXPECT_EQ(aperture(401), "4.0");
    EXPECT_EQ(aperture(65535), "655.4");
    for (int raw = 0; raw <= 65535; ++raw) {
        const std::string text = aperture(static_cast<std::uint16_t>(raw));
        ASSERT_EQ(text.find('.') != std::string::npos, raw % 100 != 0) << raw;
    }
}

TEST(FormatAperture, TenthsAreExact) {
    for (int tenths = 1; tenths <= 6553; ++tenths) {
        const std::string whole = std::to_string(tenths / 10);
        const std::string expected =
            tenths % 10 == 0 ? whole : whole + "." + std::to_string(tenths % 10);
        EXPECT_EQ(aperture(static_cast<std::uint16_t>(tenths * 10)), expected);
    }
}

TEST(FormatShutter, WholeSeconds) {
    EXPECT_EQ(shutter(0, 0, 0), "0\"");
    EXPECT_EQ(shutter(8, 0, 0), "8\"");
    EXPECT_EQ(shutter(255, 0, 0), "255\"");
}

TEST(FormatShutter, SecondsWithADecimal) {
    EXPECT_EQ(shutter(2, 0, 5), "2.5\"");
    EXPECT_EQ(shutter(0, 0, 1), "0.1\"");
    EXPECT_EQ(shutter(255, 0, 255), "255.255\"");
}

TEST(FormatShutter, Fractions) {
    EXPECT_EQ(shutter(0xF4, 0x81, 0), "1/500");
    EXPECT_EQ(shutter(50, 0x80, 0), "1/50");
    EXPECT_EQ(shutter(0, 0x80, 0), "1/0");
    EXPECT_EQ(shutter(0x40, 0x9F, 0), "1/8000");
    EXPECT_EQ(shutter(0xFF, 0xFF, 0), "1/32767");
}

TEST(FormatShutter, FractionsWithADecimal) {
    EXPECT_EQ(shutter(1, 0x80, 6), "1/1.6");
    EXPECT_EQ(shutter(0xFF, 0xFF, 0xFF), "1/32767.255");
}

TEST(FormatShutter, OtherBitsAreNoTime) {
    for (unsigned b1 = 1; b1 < 0x80; ++b1) {
        EXPECT_EQ(shutter(50, b1, 0), "-") << b1;
        EXPECT_EQ(shutter(50, b1, 5), "-") << b1;
    }
}

}  // namespace
