// What the host sees of the device, byte for byte, and what the process answers on endpoint zero.

#include "tests/board/board_support.h"
#include "tests/e2e/udp_peer.h"

namespace {

constexpr std::uint16_t kEnglish = 0x0409;

// Requests, USB 2.0, 9.4.
constexpr SetupPacket get_descriptor(std::uint8_t type, std::uint8_t index, std::uint16_t language,
                                     std::uint16_t length) {
    return {0x80, 6, static_cast<std::uint16_t>(type << 8 | index), language, length};
}
constexpr SetupPacket kGetConfiguration = {0x80, 8, 0, 0, 1};
constexpr SetupPacket kGetStatus = {0x80, 0, 0, 0, 2};
constexpr SetupPacket kGetInterface = {0x81, 10, 0, 0, 1};
constexpr SetupPacket kSetInterface = {0x01, 11, 0, 0, 0};
constexpr SetupPacket kVendorIn = {0xC0, 51, 0, 0, 2};
constexpr SetupPacket kVendorOut = {0x40, 52, 0, 0, 0};

// The kernel puts the size of its own endpoint zero, 64, where the device says 0.
const Bytes kDevice = {18,   1,    0x00, 0x02, 0xFF, 0,  0,  64,  0xD1,
                       0x18, 0x01, 0x2D, 0,    0,    25, 45, 101, 1};
const Bytes kConfiguration = {
    9, 2, 32,   0, 1,    2,    250, 0xC0, 1,  // configuration 2, self-powered, 2 mA
    9, 4, 0,    0, 2,    0xFF, 0,   0,    250, 7, 5, 0x86, 2, 0x00, 0x02, 0,  // bulk IN, 512 bytes
    7, 5, 0x02, 2, 0x00, 0x02, 0,                                             // bulk OUT
};

// At the other speed.
const Bytes kQualifier = {10, 6, 0x00, 0x02, 0xFF, 0, 0, 64, 1, 0};
const Bytes kOtherSpeed = {
    9, 7, 32,   0, 1,  2,    250, 0xC0, 1,                       //
    9, 4, 0,    0, 2,  0xFF, 0,   0,    250,                     //
    7, 5, 0x86, 2, 64, 0,    0,   7,    5,   0x02, 2, 64, 0, 0,  // bulk IN, OUT: 64 bytes
};

Bytes string_descriptor(const std::string& text) {
    Bytes bytes = {static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
    for (const char letter : text) {
        bytes.push_back(static_cast<std::uint8_t>(letter));
        bytes.push_back(0);
    }
    return bytes;
}

class Enumeration : public BoardTest {
  protected:
    void expect_answer(const SetupPacket& request, const Bytes& answer) {
        const ControlResult result = host->control(request);
        EXPECT_EQ(result.status, ControlStatus::kAcknowledged) << testing::PrintToString(answer);
        EXPECT_EQ(result.data, answer);
    }
    void expect_stall(const SetupPacket& request) {
        EXPECT_EQ(host->control(request).status, ControlStatus::kStalled);
    }
    // One packet each way.
    void expect_usable() {
        ASSERT_TRUE(host->bulk_out(idle_stream(512)));
        EXPECT_TRUE(host->wait_for_bulk_out_taken(10s));
        const Bytes datagram = {0x55, 0x0D, 0x04, 0x33};
        UdpPeer peer;
        ASSERT_TRUE(peer.send(6000, datagram));
        EXPECT_EQ(host->wait_for_bulk_in(0, 5s), datagram);
    }
};

TEST_F(Enumeration, HostReadsTheDescriptorsByteForByte) {
    start_linked();
    EXPECT_EQ(host->device_descriptor(), kDevice);
    EXPECT_EQ(host->configuration_descriptor(), kConfiguration);
    EXPECT_EQ(host->configuration_value(), 2U);
    EXPECT_EQ(host->sysfs_text("speed"), "480");
    EXPECT_EQ(host->sysfs_text("manufacturer"), "Android");
    EXPECT_EQ(host->sysfs_text("product"), "Android");
    EXPECT_EQ(host->sysfs_text("serial"), "00000000");
    EXPECT_EQ(host->sysfs_text("configuration"), "ec21013c");
    EXPECT_EQ(lines_after_start(), "USB connected\n");
}

TEST_F(Enumeration, HostReadsTheDescriptorsFromTheDevice) {
    start_linked();
    expect_answer(get_descriptor(1, 0, 0, 18), kDevice);
    expect_answer(get_descriptor(1, 0, 0, 8), Bytes(kDevice.begin(), kDevice.begin() + 8));
    expect_answer(get_descriptor(2, 0, 0, 255), kConfiguration);
    expect_answer(get_descriptor(2, 0, 0, 9),
                  Bytes(kConfiguration.begin(), kConfiguration.begin() + 9));
    expect_answer(get_descriptor(6, 0, 0, 255), kQualifier);
    expect_answer(get_descriptor(7, 0, 0, 255), kOtherSpeed);
    expect_answer(kGetConfiguration, {2});
    expect_answer(kGetStatus, {0, 0});  // the kernel does not look for "self-powered"
}

TEST_F(Enumeration, ProcessAnswersForItsStrings) {
    start_linked();
    expect_answer(get_descriptor(3, 0, 0, 255), {4, 3, 0x09, 0x04});
    expect_answer(get_descriptor(3, 25, kEnglish, 255), string_descriptor("Android"));
    expect_answer(get_descriptor(3, 45, kEnglish, 255), string_descriptor("Android"));
    expect_answer(get_descriptor(3, 101, kEnglish, 255), string_descriptor("00000000"));
    expect_answer(get_descriptor(3, 250, kEnglish, 255), string_descriptor("ec21013c"));
    expect_answer(get_descriptor(3, 250, kEnglish, 5), {18, 3, 'e', 0, 'c'});
    expect_stall(get_descriptor(3, 7, kEnglish, 255));
    expect_usable();
}

TEST_F(Enumeration, UnknownRequestsAreStalledAndTheDeviceStaysUsable) {
    start_linked();
    expect_stall(kVendorIn);
    expect_stall(kVendorOut);
    expect_answer(kGetInterface, {0});
    expect_usable();
    EXPECT_EQ(lines_after_start(), "USB connected\n");
}

// Before the reader waits for data, that is, in its first second.
TEST_F(Enumeration, SetInterfaceIsAcknowledgedAndTheDeviceStaysUsable) {
    leave_out_interface_strings(true);
    start_linked();
    expect_answer(kSetInterface, {});
    expect_usable();
    EXPECT_EQ(lines_after_start(), "USB connected\n");
}

}  // namespace
