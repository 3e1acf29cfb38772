// The USB link of the running receiver: enumeration, its ends, and the way out to the camera.

#include <unistd.h>

#include <algorithm>
#include <thread>

#include "tests/e2e/e2e_support.h"

namespace {

using Link = ReceiverTest;

TEST_F(Link, DeviceDescriptionIsWrittenByteForByte) {
    start();
    ASSERT_TRUE(wait_for_device()) << receiver->output();
    EXPECT_EQ(board->device_description(),
              (Bytes{
                  0x00, 0x00, 0x00, 0x00,                                // tag
                  0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0xFA, 0xC0, 0x01,  // configuration, 32 bytes
                  0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0xFA,  // interface
                  0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00,              // bulk IN, 64
                  0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00,              // bulk OUT, 64
                  0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0xFA, 0xC0, 0x01,  // the same at high speed
                  0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0xFA,  //
                  0x07, 0x05, 0x86, 0x02, 0x00, 0x02, 0x00,              // bulk IN, 512
                  0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00,              // bulk OUT, 512
                  0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,        // device, USB 2.0
                  0xD1, 0x18, 0x01, 0x2D, 0x00, 0x00, 0x19, 0x2D, 0x65, 0x01,
              }));
}

TEST_F(Link, LinuxHostEnumeratesIt) {
    start();
    ASSERT_TRUE(wait_for_device());
    ASSERT_TRUE(board->enumerate()) << receiver->output();
    EXPECT_TRUE(receiver->wait_for("USB connected\n", 5s));
    EXPECT_EQ(receiver->count("USB connected\n"), 1);
    EXPECT_EQ(board->endpoint_record("ep6in"),
              (Bytes{0x01, 0x00, 0x00, 0x00,                                    // tag
                     0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00,                  // full speed
                     0x07, 0x05, 0x86, 0x02, 0x00, 0x02, 0x00}));               // high speed
    EXPECT_EQ(board->endpoint_record("ep2out"), (Bytes{0x01, 0x00, 0x00, 0x00,  //
                                                       0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00,  //
                                                       0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00}));
}

// The host selects the configuration before the receiver looks for events the first time. A kernel
// that took it for one that leaves this to the kernel would not tell it.
TEST_F(Link, EveryStartEndsConfigured) {
    for (int start_number = 1; start_number <= 20; ++start_number) {
        start();
        ASSERT_TRUE(wait_for_device()) << receiver->output();
        ASSERT_TRUE(board->configure()) << "start " << start_number;
        ASSERT_TRUE(receiver->wait_for("USB connected\n", 5s))
            << "start " << start_number << receiver->output();
        ASSERT_TRUE(board->wait_for_endpoints(5s)) << "start " << start_number;
        ASSERT_EQ(receiver->count("USB connected\n"), 1) << "start " << start_number;
    }
}

TEST_F(Link, StringsAnswerAsDescribed) {
    struct Case {
        std::uint8_t index;
        Bytes expected;
    };
    const Bytes android = {16, 3, 'A', 0, 'n', 0, 'd', 0, 'r', 0, 'o', 0, 'i', 0, 'd', 0};
    const Case cases[] = {
        {0, {4, 3, 0x09, 0x04}},
        {25, android},
        {45, android},
        {101, {18, 3, '0', 0, '0', 0, '0', 0, '0', 0, '0', 0, '0', 0, '0', 0, '0', 0}},
        {250, {18, 3, 'e', 0, 'c', 0, '2', 0, '1', 0, '0', 0, '1', 0, '3', 0, 'c', 0}},
    };
    start();
    ASSERT_TRUE(wait_for_device());
    board->connect();
    for (const Case& c : cases) {
        const ControlResult result =
            board->control({0x80, 6, static_cast<std::uint16_t>(0x0300 | c.index), 0x0409, 255});
        EXPECT_EQ(result.status, ControlStatus::kAcknowledged) << int{c.index};
        EXPECT_EQ(result.data, c.expected) << int{c.index};
    }
    EXPECT_EQ(board->control({0x80, 6, 0x0301, 0x0409, 255}).status, ControlStatus::kStalled);
}

TEST_F(Link, SetInterfaceClearsTheHaltsAndLeavesItUsable) {
    start();
    ASSERT_TRUE(wait_for_device());
    ASSERT_TRUE(board->configure());
    // The reader sleeps its first second: endpoint zero is still serviced.
    EXPECT_EQ(board->control({0x01, 11, 0, 0, 0}).status, ControlStatus::kAcknowledged);
    // The acknowledgement comes first, and the halts are cleared behind the host's back.
    const auto end = std::chrono::steady_clock::now() + 5s;
    while ((board->clear_halt_count("ep6in") == 0 || board->clear_halt_count("ep2out") == 0) &&
           std::chrono::steady_clock::now() < end) {
        usleep(1000);
    }
    EXPECT_EQ(board->clear_halt_count("ep6in"), 1);
    EXPECT_EQ(board->clear_halt_count("ep2out"), 1);
    const Bytes filler = {0x55};
    ASSERT_TRUE(receiver->wait_for("USB connected\n", 5s));
    EXPECT_TRUE(board->bulk_out(filler));
}

TEST_F(Link, UnknownVendorRequestIsStalled) {
    start();
    ASSERT_TRUE(wait_for_device());
    board->connect();
    EXPECT_EQ(board->control({0xC0, 51, 0, 0, 2}).status, ControlStatus::kStalled);
    EXPECT_EQ(board->control({0x40, 53, 0, 0, 0}).status, ControlStatus::kStalled);
    EXPECT_TRUE(board->configure());
    EXPECT_TRUE(receiver->wait_for("USB connected\n", 5s)) << receiver->output();
}

// A controller's driver may leave to the process what the kernel answers by itself otherwise.
TEST_F(Link, RequestsAboutItsStateAreAnsweredAndLeaveItUsable) {
    struct Case {
        const char* name;
        SetupPacket setup;
        ControlResult expected;
    };
    const ControlResult stalled = {ControlStatus::kStalled, {}};
    const Case cases[] = {
        {"GET_INTERFACE", {0x81, 10, 0, 0, 1}, {ControlStatus::kAcknowledged, {0}}},
        {"GET_INTERFACE of another", {0x81, 10, 0, 1, 1}, stalled},
        {"SET_DESCRIPTOR", {0x00, 7, 0x0100, 0, 0}, stalled},
        {"GET_CONFIGURATION", {0x80, 8, 0, 0, 1}, stalled},
    };
    start();
    ASSERT_TRUE(wait_for_device());
    board->connect();
    for (const Case& c : cases) {
        EXPECT_EQ(board->control_to_process(c.setup), c.expected) << c.name;
    }
    EXPECT_TRUE(board->configure()) << receiver->output();
    EXPECT_TRUE(receiver->wait_for("USB connected\n", 5s)) << receiver->output();
}

TEST_F(Link, FailedReadEndsIt) {
    start_receiving();
    board->disconnect();
    expect_link_end("USB connected\nread failed\n");
}

TEST_F(Link, EmptyTransferEndsIt) {
    start_configured();
    ASSERT_TRUE(board->bulk_out_empty());
    expect_link_end("USB connected\nread failed\n");
}

TEST_F(Link, FullSpeedFailsAtTheFirstRead) {
    start();
    ASSERT_TRUE(wait_for_device());
    ASSERT_TRUE(board->configure(UsbSpeed::kFull));
    expect_link_end("USB connected\nread failed\n");
}

TEST_F(Link, SilenceAfterDataEndsWithStatus2) {
    start_receiving();
    ASSERT_EQ(receiver->wait_exit(15s), 2) << receiver->output();
    const std::string lines = receiver->lines_without_delta();
    const std::string before = kStartLines + "USB connected\n";
    EXPECT_TRUE(lines == before + "Camera connection timeout\n" ||
                lines == before + "Telemetry receiving timeout\n" ||
                lines == before + "Camera connection timeout\nTelemetry receiving timeout\n" ||
                lines == before + "Telemetry receiving timeout\nCamera connection timeout\n")
        << lines;
}

TEST_F(Link, EndpointZeroIsLeftAloneWhileDataFlows) {
    start_receiving();
    EXPECT_EQ(board->control({0x80, 6, 0x0319, 0x0409, 255}, {}, 1500ms).status,
              ControlStatus::kTimedOut);
}

TEST_F(Link, DisconnectBeforeDataClosesTheEndpointsAndALaterHostIsServed) {
    start_configured();
    board->disconnect();
    ASSERT_TRUE(receiver->wait_for("USB disconnected\n", 5s)) << receiver->output();
    // The next configuration finds both endpoint files free again.
    ASSERT_TRUE(board->configure()) << receiver->output();
    EXPECT_TRUE(receiver->wait_for("USB connected\n", 5s, 2)) << receiver->output();
}

TEST_F(Link, DeconfiguredDeviceEndsItWhenTheReaderWakes) {
    start();
    ASSERT_TRUE(wait_for_device());
    ASSERT_TRUE(board->configure());
    EXPECT_EQ(board->control({0x00, 9, 0, 0, 0}).status, ControlStatus::kAcknowledged);
    expect_link_end("USB connected\nread failed\n");
}

// A file that is still read stays busy when it is closed, as the kernel has it: opening it again
// waits for data that the camera does not send, and the supervision ends the process.
TEST_F(Link, NewConfigurationOverAReaderThatWaitsEndsInSilence) {
    start_configured();
    // The reader is in its read once its first second is over. Another one for a busy machine, and
    // as much is left until the receiver gives up.
    std::this_thread::sleep_for(2000ms);
    EXPECT_EQ(board->control({0x00, 9, 0, 0, 0}).status, ControlStatus::kAcknowledged);
    EXPECT_EQ(board->control({0x00, 9, 2, 0, 0}, {}, 1500ms).status, ControlStatus::kTimedOut);
    EXPECT_EQ(receiver->wait_exit(10s), 2) << receiver->output();
    EXPECT_EQ(receiver->lines_without_delta(),
              kStartLines + "USB connected\nCamera connection timeout\n");
}

// One pass over endpoint zero takes half a second, and the camera must speak within five.
class ControlFileErrors : public ReceiverTest,
                          public testing::WithParamInterface<std::vector<int>> {};

TEST_P(ControlFileErrors, DoNotEndTheLink) {
    start();
    ASSERT_TRUE(wait_for_device());
    for (const int error : GetParam()) {
        board->inject_control_error(error);
    }
    EXPECT_TRUE(board->configure()) << receiver->output();
    EXPECT_TRUE(receiver->wait_for("USB connected\n", 5s)) << receiver->output();
}

INSTANTIATE_TEST_SUITE_P(Numbers, ControlFileErrors,
                         testing::Values(std::vector<int>{EIDRM, EL2HLT, EBADMSG},
                                         std::vector<int>{EIO, EAGAIN, EINTR},
                                         std::vector<int>{ENODEV, ESRCH, ENOMEM}));

TEST_F(Link, ShortAndUnknownEventsDoNotEndIt) {
    start();
    ASSERT_TRUE(wait_for_device());
    board->inject_control_read(Bytes(11, 3));     // too short for an event
    board->inject_control_read(Bytes(60, 0xFF));  // five events of an unknown type
    EXPECT_TRUE(board->configure()) << receiver->output();
    EXPECT_TRUE(receiver->wait_for("USB connected\n", 5s)) << receiver->output();
}

TEST_F(Link, EventsInAnyOrderAndWithAnyValuesDoNoHarm) {
    start();
    ASSERT_TRUE(wait_for_device());
    std::uint32_t random = 1;
    const auto next = [&random](std::uint32_t below) {
        random = random * 1664525 + 1013904223;
        return static_cast<std::uint8_t>((random >> 16) % below);
    };
    constexpr std::uint8_t kRequestTypes[] = {0x80, 0x00, 0x81, 0x01, 0xC0, 0x40};
    for (int read = 0; read < 4; ++read) {
        Bytes events;
        for (int event = 0; event < 5; ++event) {
            // Values as they come, but request types and requests that lead somewhere; no
            // selection of the configuration, which would start a reader.
            const std::uint8_t request = static_cast<std::uint8_t>(6 + next(6));
            Bytes one = {kRequestTypes[next(6)],
                         request,
                         next(256),
                         next(4),
                         next(256),
                         next(4),
                         next(256),
                         next(4)};
            if (request == 9) {
                one[2] = one[3] = 0;
            }
            one.insert(one.end(), {next(6), 0, 0, 0});
            events.insert(events.end(), one.begin(), one.end());
        }
        board->inject_control_read(events);
    }
    EXPECT_TRUE(board->configure()) << receiver->output();
    EXPECT_TRUE(receiver->wait_for("USB connected\n", 5s)) << receiver->output();
}

// -- the way out ---------------------------------------------------------------------------------

TEST_F(Link, BridgePassesDatagramsUnchanged) {
    start_configured();
    const UdpPeer peer;
    const Bytes packet = {0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0xDE,
                          0x2F, 0x40, 0x02, 0x02, 0x01, 0x04, 0x32};
    const Bytes rubbish = {0x00};
    const Bytes largest(512, 0xEE);
    ASSERT_TRUE(peer.send(6000, packet));
    ASSERT_TRUE(peer.send(6000, {}));  // ignored
    ASSERT_TRUE(peer.send(6000, rubbish));
    ASSERT_TRUE(peer.send(6000, Bytes(513, 1)));    // more than a packet of the link
    ASSERT_TRUE(peer.send(6000, Bytes(10001, 2)));  //
    ASSERT_TRUE(peer.send(6000, Bytes(65507, 3)));  //
    ASSERT_TRUE(peer.send(6000, largest));
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s), packet);
    EXPECT_EQ(board->wait_for_bulk_in(1, 5s), rubbish);
    EXPECT_EQ(board->wait_for_bulk_in(2, 5s), largest);
    EXPECT_EQ(board->bulk_in().size(), 3U);
}

TEST_F(Link, BridgeDropsDatagramsBeforeTheCameraIsThere) {
    start();
    ASSERT_TRUE(wait_for_device());
    const UdpPeer peer;
    ASSERT_TRUE(peer.send(6000, {1, 2, 3}));
    ASSERT_TRUE(board->configure());
    ASSERT_TRUE(receiver->wait_for("USB connected\n", 5s));
    ASSERT_TRUE(peer.send(6000, {4, 5, 6}));
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s), (Bytes{4, 5, 6}));
}

TEST_F(Link, FullSpeedPacketsAreOf64Bytes) {
    start();
    ASSERT_TRUE(wait_for_device());
    ASSERT_TRUE(board->configure(UsbSpeed::kFull));
    // In the reader's first second, before its first read ends the link.
    const UdpPeer peer;
    ASSERT_TRUE(peer.send(6000, Bytes(65, 1)));
    ASSERT_TRUE(peer.send(6000, Bytes(64, 2)));
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s), Bytes(64, 2));
}

}  // namespace
