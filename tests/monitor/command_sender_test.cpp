// What the monitor keeps in mind of commands: zooms that are held, and the movement mode.
#include "monitor/command_sender.h"

#include <gtest/gtest.h>

#include "monitor/held_zoom.h"
#include "tests/monitor/receiver_link_fixture.h"

namespace {

class HeldZoomTest : public ReceiverLinkTest {
  protected:
    void SetUp() override {
        ReceiverLinkTest::SetUp();
        receiver->report(report_of("example"));
        ASSERT_TRUE(becomes({"present", "present"}));
    }
    // What has been sent since the last call, but for what says nothing.
    Datagrams sent() {
        const Datagram marker = {'!', '{', '}'};
        link.send(marker);
        Datagrams all;
        for (Datagram got; (got = receiver->receive()) != marker && !got.empty();) {
            if (got != Datagram{0x00}) {
                all.push_back(got);
            }
        }
        return all;
    }
    // What this hand's leaving sends.
    Datagrams release(const void* hand) {
        sent();
        const bool held = zoom.release(hand);
        Datagrams stops = sent();
        EXPECT_EQ(held, !stops.empty());
        return stops;
    }

    HeldZoom zoom{link};
    const int one_hand = 0;
    const int other_hand = 0;
    const Datagram digital_in = {0x05, 0x01, 0x01, 0x00};
    const Datagram digital_stop = {0x05, 0x01, 0x00, 0x00};
    const Datagram optical_out = {0x05, 0x02, 0xFF, 0xFF};
    const Datagram optical_far = {0x05, 0x02, 0x00, 0x01};  // 256
    const Datagram optical_stop = {0x05, 0x02, 0x00, 0x00};
    const Datagrams nothing{};
};

TEST_F(HeldZoomTest, HandThatLeavesStopsItsZoomOnce) {
    EXPECT_TRUE(zoom.send(digital_in, &one_hand));
    EXPECT_EQ(release(&one_hand), Datagrams{digital_stop});
    EXPECT_EQ(release(&one_hand), nothing);
    EXPECT_TRUE(zoom.send(optical_out, &one_hand));
    EXPECT_EQ(release(&one_hand), Datagrams{optical_stop});
    EXPECT_TRUE(zoom.send(optical_far, &one_hand));
    EXPECT_EQ(release(&one_hand), Datagrams{optical_stop});
}

TEST_F(HeldZoomTest, ZoomThatWasStoppedIsNotStoppedAgain) {
    EXPECT_TRUE(zoom.send(optical_out, &one_hand));
    EXPECT_TRUE(zoom.send(optical_stop, &one_hand));
    EXPECT_EQ(sent(), (Datagrams{optical_out, optical_stop}));
    EXPECT_EQ(release(&one_hand), nothing);
}

TEST_F(HeldZoomTest, WhoZoomedLastHasIt) {
    EXPECT_TRUE(zoom.send(digital_in, &one_hand));
    EXPECT_TRUE(zoom.send(optical_out, &one_hand));
    EXPECT_TRUE(zoom.send(digital_in, &other_hand));
    EXPECT_EQ(release(&one_hand), Datagrams{optical_stop});
    EXPECT_TRUE(zoom.send(digital_in, nullptr)) << "by a request, which does not leave";
    EXPECT_EQ(release(&other_hand), nothing);
}

TEST_F(HeldZoomTest, OtherCommandsHoldNothing) {
    const Datagram four_bytes = {'!', '{', '}', ' '};
    EXPECT_TRUE(zoom.send(four_bytes, &one_hand));
    EXPECT_EQ(sent(), Datagrams{four_bytes});
    EXPECT_EQ(release(&one_hand), nothing);
}

TEST_F(HeldZoomTest, ZoomThatDidNotLeaveIsNobodys) {
    TelemetryStore far_store;
    ReceiverLink nowhere(far_store, {kTelemetryPort + 1, "", 0});
    HeldZoom unsent(nowhere);
    EXPECT_FALSE(unsent.send(digital_in, &one_hand));
    EXPECT_FALSE(unsent.release(&one_hand));
}

class MovementTest : public HeldZoomTest {
  protected:
    std::string send(const std::string& json) { return sender.send(check_command(json), nullptr); }
    std::string choose(const std::string& mode) {
        return send(R"({"cmd":"set","name":"movement","value":")" + mode + "\"}");
    }
    std::string movement() const { return store.json("movement"); }
    bool is_forgotten() const {
        return comes_true([&] { return movement() == "\"\""; });
    }

    CommandSender sender{store, zoom};
};

TEST_F(MovementTest, IsTheLastThatWasSent) {
    EXPECT_EQ(movement(), "\"\"");
    EXPECT_EQ(choose("rel"), "");
    EXPECT_EQ(movement(), "\"rel\"");
    EXPECT_EQ(choose("abs"), "");
    EXPECT_EQ(send(R"({"cmd":"shot"})"), "");
    EXPECT_EQ(choose("sideways"), "") << "which changes nothing";
    EXPECT_EQ(movement(), "\"abs\"");
}

TEST_F(MovementTest, IsForgottenWithItsReceiver) {
    EXPECT_EQ(choose("rel"), "");
    receiver.reset();
    EXPECT_TRUE(becomes({"lost", "lost"}));
    EXPECT_EQ(movement(), "\"\"");
    EXPECT_EQ(choose("rel"), "there is no receiver");
    EXPECT_EQ(movement(), "\"\"");
}

// The next one may be there before anybody takes this one for lost.
TEST_F(MovementTest, IsForgottenWhenADatagramDoesNotArrive) {
    bool still_present = false;
    for (int i = 0; i < 5 && !still_present; ++i) {
        receiver = std::make_unique<FakeReceiver>();
        receiver->report(report_of("example"));
        EXPECT_TRUE(becomes({"present", "present"}));
        EXPECT_EQ(receiver->receive(), Datagram{0x00}) << "from now on it is the one that is meant";
        EXPECT_TRUE(comes_true([&] { return choose("rel").empty(); }));
        EXPECT_EQ(movement(), "\"rel\"");
        receiver.reset();
        link.send(Datagram{0x00});
        EXPECT_TRUE(is_forgotten());
        still_present = store.presence().receiver == "present";
    }
    EXPECT_TRUE(still_present);
}

}  // namespace
