// Packets for the camera: each is one write on the IN endpoint, where there is one.
#include "usb/camera_send.h"

#include <gtest/gtest.h>

#include "tests/unit/gadget_fixture.h"

namespace {

TEST_F(Gadget, SendingBeforeTheConfigurationSendsNothing) {
    start();
    const std::uint8_t packet[] = {0x55, 0x0E};
    EXPECT_EQ(camera_send(packet, sizeof packet), 0);
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(Gadget, PacketIsOneWriteOnTheInEndpoint) {
    start();
    pass(kConnectHigh);
    pass(kConfigure2);
    take_calls();
    const std::uint8_t packet[] = {0x55, 0x0E, 0x04, 0x66};
    EXPECT_EQ(camera_send(packet, sizeof packet), 4);
    EXPECT_EQ(take_calls(), Calls{"ep6in-bulk write 55 0E 04 66"});
}

TEST_F(Gadget, PacketOf513BytesFailsAtHighSpeed) {
    start();
    pass(kConnectHigh);
    pass(kConfigure2);
    take_calls();
    const Bytes packet(513, 0x55);
    EXPECT_EQ(camera_send(packet.data(), 513), -1);
    EXPECT_EQ(take_calls(), Calls{});
    EXPECT_EQ(camera_send(packet.data(), 512), 512);
}

TEST_F(Gadget, PacketOf65BytesFailsAtFullSpeed) {
    start();
    pass(kConnectFull);
    pass(kConfigure2);
    take_calls();
    const Bytes packet(65, 0x55);
    EXPECT_EQ(camera_send(packet.data(), 65), -1);
    EXPECT_EQ(take_calls(), Calls{});
    EXPECT_EQ(camera_send(packet.data(), 64), 64);
    EXPECT_EQ(take_calls(), Calls{"ep6in-bulk write" + hex(packet.data(), 64)});
}

TEST_F(Gadget, SendingOnceTheEndpointIsDisabledSendsNothing) {
    start();
    pass(kConfigure2);
    pass(kConfigure0);
    take_calls();
    const std::uint8_t packet[] = {0x55};
    EXPECT_EQ(camera_send(packet, 1), 0);
    EXPECT_EQ(take_calls(), Calls{});
}

TEST_F(Gadget, PacketThatTheKernelRefusesFails) {
    start();
    pass(kConfigure2);
    fake.refuses_write = {"ep6in-bulk"};
    const std::uint8_t packet[] = {0x55};
    EXPECT_EQ(camera_send(packet, 1), -1);
}

}  // namespace
