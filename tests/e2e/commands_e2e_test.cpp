// From the main application's datagrams to the camera.

#include <thread>

#include "tests/e2e/e2e_support.h"
#include "tests/e2e/main_application.h"

namespace {

const Bytes kRecordStart = {
    0x55, 0x0E, 0x04, 0x66, 0x02, 0x01, 0x00, 0x00, 0x40, 0x02, 0x02, 0x01, 0x08, 0x44,
};

class Commands : public ReceiverTest {
  protected:
    void SetUp() override {
        start_configured(app.arguments());
        const auto socket = receiver->app_socket();
        ASSERT_TRUE(socket);
        app.send_to(socket->port);
        ASSERT_TRUE(board->wait_for_endpoints(5s));
        camera.emplace(*board);
    }
    void TearDown() override {
        camera.reset();
        EXPECT_EQ(refused_packets(), 0U);
    }

    MainApplication app;
    std::optional<IdleCamera> camera;
};

TEST_F(Commands, JsonDatagramBecomesAPacket) {
    ASSERT_TRUE(app.command(R"({"cmd":"record","param":"start"})"));
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s), kRecordStart);
    EXPECT_TRUE(receiver->wait_for(
        "JSON commands from app: {\"cmd\":\"record\",\"param\":\"start\"}\nRecord start\n", 5s))
        << receiver->output();
}

TEST_F(Commands, SixPacketsUnlockTheOrientation) {
    ASSERT_TRUE(app.command(R"({"cmd":"orientation","param":"unlock"})"));
    const Bytes expected[] = {
        {0x55, 0x17, 0x04, 0x38, 0x02, 0x09, 0x00, 0x00, 0x40, 0x01, 0x01, 0x00,
         0x00, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00, 0xD7, 0x61},
        {0x55, 0x17, 0x04, 0x38, 0x02, 0x09, 0x01, 0x00, 0x40, 0x01, 0x01, 0x00,
         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF3, 0x00},
        {0x55, 0x17, 0x04, 0x38, 0x02, 0x09, 0x02, 0x00, 0x40, 0x01, 0x01, 0x00,
         0x00, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x83, 0xF1},
        {0x55, 0x17, 0x04, 0x38, 0x02, 0x09, 0x03, 0x00, 0x40, 0x01, 0x01, 0x00,
         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xA7, 0x90},
        {0x55, 0x17, 0x04, 0x38, 0x02, 0x09, 0x04, 0x00, 0x40, 0x01, 0x01, 0x00,
         0x00, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x6E, 0x49},
        {0x55, 0x17, 0x04, 0x38, 0x02, 0x09, 0x05, 0x00, 0x40, 0x01, 0x01, 0x00,
         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x4A, 0x28},
    };
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(board->wait_for_bulk_in(i, 5s), expected[i]) << i;
    }
}

TEST_F(Commands, BinaryZoomMessage) {
    ASSERT_TRUE(app.send({0x05, 0x02, 0x00, 0x00}));
    ASSERT_TRUE(board->wait_for_bulk_in(1, 5s));
    ASSERT_TRUE(app.send({0x05, 0x02, 0x01, 0x00}));
    const auto packet = board->wait_for_bulk_in(2, 5s);
    ASSERT_TRUE(packet && packet->size() == 17);
    const Bytes payload(packet->begin() + 9, packet->end() - 2);
    EXPECT_EQ(payload, (Bytes{0x02, 0xB8, 0x01, 0x48, 0x01, 0x00}));
    EXPECT_TRUE(receiver->wait_for("Set optical zoom 0\nSet optical zoom 1\n", 5s));
}

// It runs on the remote-control thread, one packet a cycle.
TEST_F(Commands, ContinuousDigitalZoomStartsAndStops) {
    ASSERT_TRUE(app.command(R"({"cmd":"set","name":"movement","value":"rel"})"));
    ASSERT_TRUE(app.send({0x05, 0x01, 0x01, 0x00}));
    ASSERT_TRUE(board->wait_for_bulk_in(4, 5s)) << receiver->output();
    ASSERT_TRUE(app.send({0x05, 0x01, 0x00, 0x00}));
    for (std::size_t before = 0; before != board->bulk_in().size();) {
        before = board->bulk_in().size();
        usleep(200000);  // ten cycles
    }
    for (const Bytes& packet : board->bulk_in()) {
        EXPECT_EQ(Bytes(packet.begin() + 9, packet.end() - 2),
                  (Bytes{0x02, 0x34, 0x09, 0x00, 0x00, 0x64, 0x00}));
    }
}

TEST_F(Commands, FocusLimitsAreSavedAndReported) {
    // The partition is remounted after the shell commands of the start.
    const std::size_t commands_of_the_start = board->shell_commands().size();
    ASSERT_TRUE(app.command(
        R"({"cmd":"updatecameraconfig","param":"focus_limits","value":"12","value2":"90"})"));
    ASSERT_TRUE(
        receiver->wait_for("Set MF limits min 12 max 90\nSaving config\nCamera config saved\n", 5s))
        << receiver->output();
    EXPECT_EQ(app.wait_for_item("mf_min", "12", 5s), "12");
    EXPECT_EQ(app.wait_for_item("mf_max", "90", 5s), "90");
    EXPECT_EQ(file("/boot/osmo-usb.conf"),
              "# Osmo USB config file\r\n\r\nmf_min=12\r\nmf_max=90\r\n");
    std::vector<std::string> commands = board->shell_commands();
    commands.erase(commands.begin(),
                   commands.begin() + static_cast<std::ptrdiff_t>(commands_of_the_start));
    EXPECT_EQ(commands, (std::vector<std::string>{"mount -o rw,remount /boot", "umount /boot",
                                                  "mount /boot"}));
}

TEST_F(Commands, WhatSaysNothingDoesNoHarm) {
    const std::string long_value(9960, 'A');
    for (const std::string& text : {
             std::string("{"),
             std::string("[]"),
             std::string("17"),
             std::string("null"),
             std::string(R"("cmd")"),
             std::string("%s%s%s%n"),
             std::string("{}"),
             std::string(R"({"cmd":1})"),
             std::string(R"({"cmd":null,"param":"start"})"),
             std::string(R"({"cmd":"record"})"),
             std::string(R"({"cmd":"record","param":1})"),
             std::string(R"({"cmd":"set"})"),
             std::string(R"({"cmd":"set","name":"movement"})"),
             std::string(R"({"cmd":"focus","param":"point"})"),
             std::string(R"({"cmd":"updatecameraconfig","param":"focus_limits"})"),
             std::string(9999, '['),
             std::string(9999, '"'),
             std::string(9999, 'x'),
             R"({"cmd":"shutter","param":")" + long_value,
         }) {
        ASSERT_TRUE(app.command(text));
    }
    ASSERT_TRUE(app.send(Bytes(10000, '!')));
    ASSERT_TRUE(app.send({'!'}));
    ASSERT_TRUE(app.send({0x05}));
    ASSERT_TRUE(app.send({0x05, 0x07, 0x01, 0x00}));
    // No '!' ahead of it: no command.
    const std::string json = R"({"cmd":"record","param":"stop"})";
    ASSERT_TRUE(app.send(Bytes(json.begin(), json.end())));
    ASSERT_TRUE(app.command(R"({"cmd":"record","param":"start"})"));
    EXPECT_EQ(board->wait_for_bulk_in(0, 5s), kRecordStart) << receiver->output();
    EXPECT_EQ(board->bulk_in().size(), 1U);
    EXPECT_EQ(receiver->wait_exit(0ms), std::nullopt);
}

// The focus command rests 40 ms; what comes meanwhile waits in the socket.
TEST_F(Commands, NoneIsLostAtTwoHundredASecond) {
    constexpr int kCommands = 400;
    std::size_t packets = 0;
    auto due = std::chrono::steady_clock::now();
    for (int i = 0; i < kCommands; ++i) {
        const bool slow = i % 20 == 0;
        ASSERT_TRUE(app.command(slow ? R"({"cmd":"focus","param":"type","value":"inf"})"
                                     : R"({"cmd":"shot"})"));
        packets += slow ? 4 : 1;
        due += 5ms;
        std::this_thread::sleep_until(due);
    }
    ASSERT_TRUE(board->wait_for_bulk_in(packets - 1, 10s)) << receiver->output();
    const std::vector<Bytes> sent = board->bulk_in();
    EXPECT_EQ(sent.size(), packets);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        ASSERT_EQ(sent[i][6] | sent[i][7] << 8, static_cast<int>(i));
    }
}

}  // namespace
