#include "protocol/telemetry_decode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "protocol/camera_state.h"
#include "telemetry_operations.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kCameraFlag = {0x55, 0x0F, 0x04, 0xA2, 0x02, 0x01, 0x05, 0x00,
                           0x00, 0x09, 0x52, 0x01, 0x00, 0x3F, 0x38};

// What the decoder prints for a packet in a block of exactly its size.
std::string printed(const Bytes& packet, std::size_t length) {
    static CameraState state;
    const auto block = std::make_unique<std::uint8_t[]>(packet.size());
    std::ranges::copy(packet, block.get());
    testing::internal::CaptureStderr();
    telemetry_decode(&state, block.get(), length);
    return testing::internal::GetCapturedStderr();
}

std::string printed(const Bytes& packet) {
    return printed(packet, packet.size());
}

TEST(TelemetryDecode, SoundPacketIsTakenWithoutAWord) {
    EXPECT_EQ(printed(kCameraFlag), "");
}

TEST(TelemetryDecode, NoPacket) {
    CameraState state{};
    testing::internal::CaptureStderr();
    telemetry_decode(&state, nullptr, 15);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(TelemetryDecode, AnotherFirstByteIsDroppedBeforeTheSumsAreMade) {
    Bytes packet = kCameraFlag;
    packet[0] = 0x54;
    EXPECT_EQ(printed(packet), "");
}

TEST(TelemetryDecode, NineBytesAreTooFewForAWord) {
    EXPECT_EQ(printed({0x55, 0x09, 0x04, 0x08, 0x02, 0x01, 0x00, 0xF2, 0x18}), "");
    EXPECT_EQ(printed({0x55, 0x09, 0x04, 0x08, 0x02, 0x01, 0x00, 0x00, 0x00}), "");
}

TEST(TelemetryDecode, TenBytesAreChecked) {
    EXPECT_EQ(printed({0x55, 0x0A, 0x04, 0x5D, 0x02, 0x01, 0x00, 0x00, 0xDD, 0x2F}), "");
    EXPECT_EQ(printed({0x55, 0x0A, 0x04, 0x5D, 0x02, 0x01, 0x00, 0x00, 0xDD, 0x2E}),
              "CRC16 wrong\n");
}

TEST(TelemetryDecode, LengthsThatDifferAreDroppedBeforeTheSumsAreMade) {
    Bytes packet = kCameraFlag;
    packet[1] = 0x10;
    EXPECT_EQ(printed(packet), "");
    EXPECT_EQ(printed(kCameraFlag, 14), "");
    EXPECT_EQ(printed(kCameraFlag, 0), "");
}

TEST(TelemetryDecode, LengthIsNotCutToEightBits) {
    Bytes packet = kCameraFlag;
    packet.resize(256 + 15);
    EXPECT_EQ(printed(packet), "");
    packet[11] = 0x00;
    EXPECT_EQ(printed(packet), "");
}

TEST(TelemetryDecode, EitherByteOfTheCrc16) {
    for (const std::size_t byte : {std::size_t{13}, std::size_t{14}}) {
        Bytes packet = kCameraFlag;
        packet[byte] = static_cast<std::uint8_t>(packet[byte] ^ 0x80);
        EXPECT_EQ(printed(packet), "CRC16 wrong\n") << byte;
    }
}

TEST(TelemetryDecode, ChangedBody) {
    Bytes packet = kCameraFlag;
    packet[11] = 0x00;
    EXPECT_EQ(printed(packet), "CRC16 wrong\n");
}

// The CRC-16 is right for the wrong header sum.
const Bytes kWrongHeaderSum = {0x55, 0x0E, 0x04, 0x67, 0x02, 0x01, 0xDE,
                               0x2F, 0x40, 0x02, 0x02, 0x01, 0xF9, 0x7F};

const Bytes kFlagWithWrongHeaderSum = {0x55, 0x0F, 0x04, 0xA3, 0x02, 0x01, 0x05, 0x00,
                                       0x00, 0x09, 0x52, 0x01, 0x00, 0x18, 0x14};

TEST(TelemetryDecode, WrongHeaderSum) {
    EXPECT_EQ(printed(kWrongHeaderSum), "CRC8 wrong\n");
}

TEST(TelemetryDecode, OfTwoWrongSumsOnlyTheCrc16IsNamed) {
    Bytes packet = kWrongHeaderSum;
    packet[13] = 0x00;
    EXPECT_EQ(printed(packet), "CRC16 wrong\n");
}

// The packet sets the flag when it is taken.
TEST(TelemetryDecode, RefusedPacketsLeaveTheState) {
    CameraState state{};
    const auto flag_after = [&](std::size_t byte, std::uint8_t change, std::size_t length) {
        Bytes packet = kCameraFlag;
        packet[byte] = static_cast<std::uint8_t>(packet[byte] ^ change);
        packet.resize(std::max(packet.size(), length));
        state.camera_flag = 0;
        testing::internal::CaptureStderr();
        telemetry_decode(&state, packet.data(), length);
        testing::internal::GetCapturedStderr();
        return state.camera_flag.load();
    };
    EXPECT_EQ(flag_after(0, 0x00, 15), 1);
    EXPECT_EQ(flag_after(0, 0x01, 15), 0) << "start byte";
    EXPECT_EQ(flag_after(1, 0x01, 15), 0) << "length byte";
    EXPECT_EQ(flag_after(0, 0x00, 14), 0) << "shorter than it says";
    EXPECT_EQ(flag_after(0, 0x00, 256 + 15), 0) << "longer than it says";
    EXPECT_EQ(flag_after(3, 0x01, 15), 0) << "header sum";
    EXPECT_EQ(flag_after(7, 0x01, 15), 0) << "a byte under the CRC-16";
    EXPECT_EQ(flag_after(13, 0x01, 15), 0) << "CRC-16";
}

TEST(TelemetryDecode, WrongHeaderSumUnderARightCrc16LeavesTheState) {
    CameraState state{};
    testing::internal::CaptureStderr();
    telemetry_decode(&state, kFlagWithWrongHeaderSum.data(), kFlagWithWrongHeaderSum.size());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "CRC8 wrong\n");
    EXPECT_EQ(state.camera_flag, 0);
}

TEST(CameraState, StartsAsZero) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&camera_state);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof camera_state,
                            [](std::uint8_t byte) { return byte == 0; }));
}

// The report of the parameter block starts at its byte 11 and runs on into the reserved bytes.
TEST(CameraState, ElevenReservedBytesFollowTheParameterBlock) {
    EXPECT_EQ(offsetof(CameraState, params_block_tail), offsetof(CameraState, params_block) + 64);
    EXPECT_EQ(sizeof camera_state.params_block_tail, 11U);
}

TEST(CameraState, ReservedByteLiesBetweenFocusAndRecording) {
    EXPECT_GT(offsetof(CameraState, reserved_status_byte), offsetof(CameraState, focus_byte42));
    EXPECT_LT(offsetof(CameraState, reserved_status_byte), offsetof(CameraState, record_state));
}

TEST(CameraState, TextsHoldTheirLongestValue) {
    EXPECT_EQ(sizeof camera_state.camera_model, 20U);
    EXPECT_EQ(sizeof camera_state.camera_mode, 10U);
    EXPECT_EQ(sizeof camera_state.gimbal_lock, 12U);
    EXPECT_EQ(sizeof camera_state.sd, 20U);
    EXPECT_EQ(sizeof camera_state.ssd, 20U);
    EXPECT_EQ(sizeof camera_state.rec_time, 20U);
    EXPECT_EQ(sizeof camera_state.rec_time_left, 20U);
    EXPECT_EQ(sizeof camera_state.focus_type, 10U);
    EXPECT_EQ(sizeof camera_state.record_text, 20U);
    EXPECT_EQ(sizeof camera_state.busy_text, 10U);
    EXPECT_EQ(sizeof camera_state.shot_mode, 10U);
    EXPECT_EQ(sizeof camera_state.resolution, 10U);
    EXPECT_EQ(sizeof camera_state.framerate, 10U);
    EXPECT_EQ(sizeof camera_state.image_mode, 10U);
    EXPECT_EQ(sizeof camera_state.aperture, 12U);
    EXPECT_EQ(sizeof camera_state.shutter, 12U);
    EXPECT_EQ(sizeof camera_state.shutter_set, 10U);
    EXPECT_EQ(sizeof camera_state.iso_set, 11U);
    EXPECT_EQ(sizeof camera_state.ev, 10U);
    EXPECT_EQ(sizeof camera_state.color_mode, 20U);
    EXPECT_EQ(sizeof camera_state.wb, 20U);
    EXPECT_EQ(sizeof camera_state.ratio, 10U);
    EXPECT_EQ(sizeof camera_state.video_std, 10U);
    EXPECT_EQ(sizeof camera_state.antiflicker, 10U);
}

}  // namespace
