#include "control/exposure_commands.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

#include "control/packet_table.h"
#include "control/send_packet.h"
#include "control/setting_lists.h"
#include "control/word_table.h"
#include "protocol/little_endian.h"
#include "protocol/number_conversion.h"

namespace {

// clang-format off
constexpr WordPackets kImageModes[] = {
    {"auto",     "", send_packets<kImageAuto>},
    {"shutter",  "", send_packets<kImageShutter>},
    {"aperture", "", send_packets<kImageAperture>},
    {"manual",   "", send_packets<kImageManual>},
};

constexpr NumberCode kIsoCodes[] = {   // any other number is 0, which is automatic
    { 100, 3},
    { 200, 4},
    { 400, 5},
    { 800, 6},
    {1600, 7},
    {3200, 8},
    {6400, 9},
};

// Third-stops as they are written. The codes count them: 16 + 3 x EV, from 7 on.
constexpr double kEvStops[] = {
    -3.0, -2.7, -2.3, -2.0, -1.7, -1.3, -1.0, -0.7, -0.3, 0.0,
     0.3,  0.7,  1.0,  1.3,  1.7,  2.0,  2.3,  2.7,  3.0,
};
constexpr std::ptrdiff_t kFirstEvCode = 7;
// clang-format on

// Seconds and their decimals, or with the top bit set one second's divisor and its decimals.
struct ShutterCode {
    std::uint16_t value;
    std::uint8_t decimals;
    bool operator==(const ShutterCode&) const = default;
};

constexpr std::uint16_t kShutterDivisor = 0x8000;

consteval unsigned read_digits(const char*& text) {
    unsigned number = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        number = number * 10 + static_cast<unsigned>(*text - '0');
    }
    return number;
}

consteval ShutterCode shutter_code(const char* text) {
    const bool is_divisor = text[0] == '1' && text[1] == '/';
    if (is_divisor) {
        text += 2;
    }
    const unsigned whole = read_digits(text);
    const unsigned decimals = *text == '.' ? read_digits(++text) : 0;
    return {static_cast<std::uint16_t>(whole | (is_divisor ? kShutterDivisor : 0)),
            static_cast<std::uint8_t>(decimals)};
}

static_assert(shutter_code("30\"") == ShutterCode{30, 0});
static_assert(shutter_code("3.2\"") == ShutterCode{3, 2});
static_assert(shutter_code("1/8000") == ShutterCode{0x9F40, 0});
static_assert(shutter_code("1/1.25") == ShutterCode{0x8001, 25});
static_assert(shutter_code("1/12.5") == ShutterCode{0x800C, 5});
static_assert(shutter_code("1/1.67") == ShutterCode{0x8001, 67});

// One more than the times there are: the last is what an unknown time sends.
consteval auto shutter_codes() {
    std::array<ShutterCode, std::size(kShutterTimes) + 1> codes{};
    for (std::size_t i = 0; i < std::size(kShutterTimes); ++i) {
        codes[i] = shutter_code(kShutterTimes[i]);
    }
    return codes;
}

constexpr auto kShutterCodes = shutter_codes();

}  // namespace

int camera_set_ae_lock(const char* state) {
    if (strcmp(state, "lock") == 0) {
        fprintf(stderr, "Set auto exposure locked\n");
        return send_packet(kAeLock);
    }
    if (strcmp(state, "unlock") == 0) {
        fprintf(stderr, "Set auto exposure unlocked\n");
    }
    // Kept: a word that is neither unlocks, and only the log does not say so.
    return send_packet(kAeUnlock);
}

int camera_set_exposure_point(int point) {
    fprintf(stderr, "Set exposure point %d (0x%02x)\n", point, static_cast<unsigned>(point));
    auto packet = kExposurePoint;
    packet[kPayload] = static_cast<std::uint8_t>(point);
    return send_packet(packet);
}

int camera_set_exposure_center() {
    fprintf(stderr, "Set exposure to center\n");
    return send_packet(kExposureCenter);
}

int camera_set_image_mode(const char* mode) {
    fprintf(stderr, "Camera set video mode %s\n", mode);
    return send_word(kImageModes, mode);
}

int camera_set_shutter(const char* shutter) {
    fprintf(stderr, "Camera set shutter %s\n", shutter);
    const ShutterCode code = kShutterCodes[index_of(kShutterTimes, shutter)];
    auto packet = kShutter;
    write_le16(&packet[kPayload + 1], code.value);
    packet[kPayload + 3] = code.decimals;
    return send_packet(packet);
}

int camera_set_aperture(const char* aperture) {
    const float f_number = to_single(strtod(aperture, nullptr));
    fprintf(stderr, "Camera set aperture %1.2f\n", static_cast<double>(f_number));
    // In single precision, where every f-number comes out whole: 2.8, which it holds as a little
    // less, would give 279 if the product were a double.
    const float hundredths = f_number * 100.0F;
    auto packet = kAperture;
    write_le16(&packet[kPayload], static_cast<std::uint16_t>(saturate_to_int32(hundredths)));
    return send_packet(packet);
}

int camera_set_iso(const char* iso) {
    const int number = parse_int32(iso);
    fprintf(stderr, "Camera set iso %d\n", number);
    auto packet = kIso;
    packet[kPayload] = code_of(kIsoCodes, number);
    return send_packet(packet);
}

int camera_set_ev(const char* ev) {
    const double stops = strtod(ev, nullptr);
    fprintf(stderr, "Camera set EV %1.1f\n", stops);
    const auto* const found = std::find(std::begin(kEvStops), std::end(kEvStops), stops);
    if (found == std::end(kEvStops)) {
        return 1;
    }
    auto packet = kEv;
    packet[kPayload] = static_cast<std::uint8_t>(kFirstEvCode + (found - std::begin(kEvStops)));
    return send_packet(packet);
}
