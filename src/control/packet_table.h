// Every packet that a command sends, a row each. To add a command is to add a row.
//
// A row says the route, command set, command id and payload; the header is made of them, and the
// sequence number and the CRC-16 are open until the packet is sealed. The layout of the bytes:
// protocol/camera_packet.h. A payload byte that depends on the operation's arguments is 0 here, or
// what is sent where the argument says nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "protocol/camera_packet.h"

// Where the payload begins in a packet; an operation patches it from here.
inline constexpr std::size_t kPayload = 11;

struct PacketRoute {
    std::uint8_t sender;
    std::uint8_t receiver;
    std::uint8_t type;
};

// Who sends, who receives, and the packet's type, of which 0x40 is a request. Units without a known
// name are called by their number.
// clang-format off
inline constexpr PacketRoute kToCamera    {0x02, 0x01, 0x40};
inline constexpr PacketRoute kToGimbal    {0x02, 0x04, 0x40};
inline constexpr PacketRoute kTo7         {0x02, 0x07, 0x40};
inline constexpr PacketRoute kTo9         {0x02, 0x09, 0x40};
inline constexpr PacketRoute k9ToCamera   {0x09, 0x01, 0x40};  // sent in the other unit's name
inline constexpr PacketRoute k9ToGimbal   {0x09, 0x04, 0x40};
inline constexpr PacketRoute k9ToGimbal20 {0x09, 0x04, 0x20};  // the same as type 0x20
inline constexpr PacketRoute kTo7As80     {0x02, 0x07, 0x80};
// clang-format on

inline constexpr std::uint8_t kPacketVersion = 0x04;

// CRC-8 of a header of our version. The sum's steps are written out bit by bit, since the compiler
// alone runs them.
consteval std::uint8_t header_check(std::size_t length) {
    unsigned sum = kCameraCrc8Seed;
    for (const std::size_t byte :
         {std::size_t{kCameraPacketStart}, length, std::size_t{kPacketVersion}}) {
        sum ^= static_cast<std::uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            sum = sum >> 1 ^ (sum & 1 ? 0x8CU : 0U);
        }
    }
    return static_cast<std::uint8_t>(sum);
}

static_assert(header_check(13) == 0x33 && header_check(14) == 0x66 && header_check(15) == 0xA2);
static_assert(header_check(17) == 0x92 && header_check(18) == 0xC7 && header_check(20) == 0x6D);
static_assert(header_check(21) == 0xA9 && header_check(23) == 0x38);

template <std::size_t N>
consteval auto make_packet(PacketRoute route, std::uint8_t set, std::uint8_t id,
                           std::array<std::uint8_t, N> payload) {
    constexpr std::size_t kLength = kPayload + N + 2;
    std::array<std::uint8_t, kLength> packet{kCameraPacketStart,    kLength,      kPacketVersion,
                                             header_check(kLength), route.sender, route.receiver};
    packet[8] = route.type;
    packet[9] = set;
    packet[10] = id;
    for (std::size_t i = 0; i < N; ++i) {
        packet[kPayload + i] = payload[i];
    }
    return packet;
}

template <std::size_t N>
consteval auto packet(PacketRoute route, std::uint8_t set, std::uint8_t id,
                      const std::uint8_t (&payload)[N]) {
    return make_packet(route, set, id, std::to_array(payload));
}

consteval auto packet(PacketRoute route, std::uint8_t set, std::uint8_t id) {
    return make_packet(route, set, id, std::array<std::uint8_t, 0>{});
}

// clang-format off

// Capture.                                      route       set   id    payload
inline constexpr auto kRecordStart      = packet(kToCamera,  0x02, 0x02, {0x01});
inline constexpr auto kRecordStop       = packet(kToCamera,  0x02, 0x02, {0x00});
inline constexpr auto kShot             = packet(kToCamera,  0x02, 0x01, {0x01});
inline constexpr auto kStopShooting1    = packet(k9ToGimbal, 0x01, 0x01,
    {0x00, 0x00, 0x00, 0x00, 0x00, 0x91, 0x00, 0x00, 0x00, 0x91});
inline constexpr auto kStopShooting2    = packet(k9ToCamera, 0x01, 0x01,
    {0x00, 0x00, 0x00, 0x00, 0x00, 0x91, 0x00, 0x00, 0x00, 0x91});
inline constexpr auto kModePhoto        = packet(k9ToCamera, 0x02, 0x10, {0x00});
inline constexpr auto kModeVideo        = packet(k9ToCamera, 0x02, 0x10, {0x01});

// Gimbal.                                       route       set   id    payload
inline constexpr auto kGimbalSpeed      = packet(kToGimbal,  0x04, 0x0C, {0, 0, 0, 0, 0, 0, 0x90});
inline constexpr auto kGimbalPosition   = packet(kToGimbal,  0x04, 0x0A,
    {0, 0, 0, 0, 0, 0, 0x64, 0x00, 0xE0, 0x04});
inline constexpr auto kPositionNormal   = packet(kTo9,       0x01, 0x01,
    {0x00, 0x00, 0x00, 0x00, 0x01, 0x91, 0x00, 0x00, 0x00, 0x90});
inline constexpr auto kPositionSelfie   = packet(kTo9,       0x01, 0x01,
    {0x00, 0x00, 0x00, 0x00, 0x10, 0x91, 0x00, 0x00, 0x00, 0x81});
inline constexpr auto kOrientationLock  = packet(kTo9,       0x01, 0x01,
    {0x00, 0x00, 0x00, 0x00, 0x02, 0x91, 0x00, 0x00, 0x00, 0x93});
inline constexpr auto kOrientationFree1 = packet(kTo9,       0x01, 0x01,
    {0x00, 0x00, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00});
inline constexpr auto kOrientationFree2 = packet(kTo9,       0x01, 0x01,
    {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
// One record of switches; FF leaves a switch as it is.
inline constexpr auto kPitchLock        = packet(kToGimbal,  0x04, 0x35,
    {0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0xFF, 0xFF, 0xFF});
inline constexpr auto kPitchUnlock      = packet(kToGimbal,  0x04, 0x35,
    {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0xFF, 0xFF, 0xFF});
inline constexpr auto kZoomSmoothTrack  = packet(kToGimbal,  0x04, 0x35,
    {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0xFF, 0xFF});
inline constexpr auto kRealtimeAf       = packet(kToGimbal,  0x04, 0x35,
    {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0xFF});
inline constexpr auto kHorizonCw        = packet(kToGimbal,  0x04, 0x07, {0xFD});
inline constexpr auto kHorizonCcw       = packet(kToGimbal,  0x04, 0x07, {0x03});
inline constexpr auto kHorizonZero      = packet(kToGimbal,  0x04, 0x07, {0x00});
inline constexpr auto kCalibrate2       = packet(k9ToGimbal20, 0x04, 0x01,
    {0x00, 0x04, 0x00, 0x04, 0x00, 0x04, 0x80, 0x00});
inline constexpr auto kCalibrate3       = packet(kToGimbal,  0x04, 0x08);

// Focus and zoom.                               route       set   id    payload
inline constexpr auto kFocusModeMf      = packet(kToCamera,  0x02, 0x24, {0x00});
inline constexpr auto kFocusModeAf      = packet(kToCamera,  0x02, 0x24, {0x01});
inline constexpr auto kFocusFaOff       = packet(kToCamera,  0x02, 0xFA, {0x00});
inline constexpr auto kFocusFaOn        = packet(kToCamera,  0x02, 0xFA, {0x01});
inline constexpr auto kFocusPosition    = packet(kToCamera,  0x02, 0x95, {0x00, 0x00});
inline constexpr auto kFocusPoint       = packet(kToCamera,  0x02, 0x30, {0, 0, 0, 0, 0, 0, 0, 0});
inline constexpr auto kFocusAssistant   = packet(kToCamera,  0x02, 0x9A, {0x00});
inline constexpr auto kDigitalZoom      = packet(kToCamera,  0x02, 0x34,
    {0x09, 0x00, 0x00, 0, 0x00});
inline constexpr auto kOpticalZoomIn    = packet(kToCamera,  0x02, 0xB8, {0x01, 0x48, 0x01, 0x00});
inline constexpr auto kOpticalZoomOut   = packet(kToCamera,  0x02, 0xB8, {0x01, 0x48, 0x00, 0x00});
inline constexpr auto kOpticalZoomStop1 = packet(kToCamera,  0x02, 0xB8, {0x00, 0x48, 0x00, 0x00});
inline constexpr auto kOpticalZoomStop2 = packet(kToCamera,  0x02, 0xB8, {0xFF, 0x48, 0x00, 0x00});

// Exposure.                                     route       set   id    payload
inline constexpr auto kAeLock           = packet(kToCamera,  0x02, 0x68, {0x01});
inline constexpr auto kAeUnlock         = packet(kToCamera,  0x02, 0x68, {0x00});
inline constexpr auto kExposurePoint    = packet(kToCamera,  0x02, 0x32, {0});
inline constexpr auto kExposureCenter   = packet(kToCamera,  0x02, 0x22, {0x00});
inline constexpr auto kImageAuto        = packet(kToCamera,  0x02, 0x1E, {0x01, 0x00});
inline constexpr auto kImageShutter     = packet(kToCamera,  0x02, 0x1E, {0x02, 0x00});
inline constexpr auto kImageAperture    = packet(kToCamera,  0x02, 0x1E, {0x03, 0x00});
inline constexpr auto kImageManual      = packet(kToCamera,  0x02, 0x1E, {0x04, 0x00});
inline constexpr auto kShutter          = packet(kToCamera,  0x02, 0x28, {0x01, 0, 0, 0});
inline constexpr auto kAperture         = packet(kToCamera,  0x02, 0x26, {0, 0});
inline constexpr auto kIso              = packet(kToCamera,  0x02, 0x2A, {0});
inline constexpr auto kEv               = packet(kToCamera,  0x02, 0x2E, {0});

// Picture and video format.                     route       set   id    payload
inline constexpr auto kWbAuto           = packet(kToCamera,  0x02, 0x2C, {0x00, 0x44});
inline constexpr auto kWbSunny          = packet(kToCamera,  0x02, 0x2C, {0x01, 0x30});
inline constexpr auto kWbCloudy         = packet(kToCamera,  0x02, 0x2C, {0x02, 0x40});
inline constexpr auto kWbIncandescent   = packet(kToCamera,  0x02, 0x2C, {0x04, 0x44});
inline constexpr auto kWbNeon           = packet(kToCamera,  0x02, 0x2C, {0x05, 0x19});
inline constexpr auto kWbCustom         = packet(kToCamera,  0x02, 0x2C, {0x06, 0});
inline constexpr auto kColor            = packet(kToCamera,  0x02, 0x42, {0});
inline constexpr auto kResolution1      = packet(kToCamera,  0x02, 0x18, {0, 0, 0x00, 0x00, 0x00});
inline constexpr auto kResolution2      = packet(kToCamera,  0x02, 0xAF, {0, 0});
inline constexpr auto kRatio4To3        = packet(kToCamera,  0x02, 0x12, {0x00, 0x00});
inline constexpr auto kRatio16To9       = packet(kToCamera,  0x02, 0x12, {0x00, 0x01});
inline constexpr auto kShotRaw          = packet(kToCamera,  0x02, 0x16, {0x00});
inline constexpr auto kShotJpg          = packet(kToCamera,  0x02, 0x16, {0x01});
inline constexpr auto kShotJpgRaw       = packet(kToCamera,  0x02, 0x16, {0x02});
inline constexpr auto kAntiflicker      = packet(kToCamera,  0x02, 0x46, {0});
inline constexpr auto kVideoPal         = packet(kToCamera,  0x02, 0x66, {0x00});
inline constexpr auto kVideoNtsc        = packet(kToCamera,  0x02, 0x66, {0x01});

// Device.                                       route       set   id    payload
inline constexpr auto kReset            = packet(kToCamera,  0x02, 0x78, {0x00});
inline constexpr auto kHistogramOn      = packet(kToCamera,  0x02, 0x60, {0x01});
inline constexpr auto kHistogramOff     = packet(kToCamera,  0x02, 0x60, {0x00});
inline constexpr auto kPowerSleep       = packet(kTo9,       0x09, 0x51, {0x01});
inline constexpr auto kPowerWakeup      = packet(kTo9,       0x09, 0x51, {0x02});
inline constexpr auto kPowerRestart     = packet(kTo9,       0x09, 0x51, {0x03});
inline constexpr auto kPowerShutdown    = packet(kTo9,       0x09, 0x51, {0x04});
inline constexpr auto kFormatSd         = packet(kToCamera,  0x02, 0x72);
inline constexpr auto kFormatSsd1       = packet(kToCamera,  0x02, 0xA1, {0x00});
inline constexpr auto kFormatSsd2       = packet(kTo7As80, 0x00, 0x0E, {0x00});
inline constexpr auto kWifiBand         = packet(kTo7,       0x07, 0x10, {0});
inline constexpr auto kWifiApply        = packet(kTo7,       0x07, 0x15);

// clang-format on
