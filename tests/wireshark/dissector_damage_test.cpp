// Whatever the bytes, the plugin itself does not fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "simulator/camera_model.h"
#include "simulator/status_messages.h"
#include "tests/cases/report_datagrams.h"
#include "tests/wireshark/tshark.h"

namespace {

using Random = std::mt19937;

constexpr char kFailures[] = "_ws.lua.error";
constexpr char kMalformed[] = "_ws.malformed.expert";

// A few bytes are others, or missing, or there twice.
Bytes damaged(Bytes bytes, Random& random) {
    for (unsigned i = 0; i < 1 + bytes.size() / 40 && !bytes.empty(); ++i) {
        const auto at = static_cast<std::ptrdiff_t>(random() % bytes.size());
        switch (random() % 4) {
            case 0:
                bytes.erase(bytes.begin() + at);
                break;
            case 1:
                bytes.insert(bytes.begin() + at, bytes[static_cast<std::size_t>(at)]);
                break;
            default:
                bytes[static_cast<std::size_t>(at)] = static_cast<std::uint8_t>(random() >> 8);
        }
    }
    return bytes;
}

std::size_t some(std::size_t most, Random& random) {
    return random() % (most + 1);
}

void expect_no_failure(const Capture& capture, const std::string& options = "") {
    const Frames frames = dissect(capture, {"frame.number", kFailures, kMalformed}, options);
    EXPECT_EQ(frames.size(), capture.size());
    EXPECT_THAT(all_values(frames, kFailures), testing::IsEmpty());
    EXPECT_THAT(all_values(frames, kMalformed), testing::IsEmpty());
}

Capture damaged_transfers(Random& random) {
    Bytes stream;
    std::vector<Bytes> commands;
    for (std::uint16_t round = 0; round < 60; ++round) {
        for (std::size_t i = 0; i < kMessageCount; ++i) {
            const Bytes packet = encode_message(static_cast<Message>(i), CameraModel(), round);
            stream = joined({stream, control_envelope(packet)});
        }
        stream = joined(
            {stream, video_envelope(Bytes(some(3000, random), 1)), video_envelope(filler_chunk())});
        commands.push_back(camera_packet({0x02, 0x04, round, 0x40, 0x04, 0x35}, Bytes(8)));
    }
    stream = damaged(stream, random);
    Capture capture;
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t size = std::min<std::size_t>(1 + some(700, random), stream.size() - at);
        // Now and then not all of it is captured.
        const std::size_t captured = random() % 20 == 0 ? some(size, random) : size;
        capture.add_transfer(kFromCamera, std::span(stream).subspan(at, captured), size);
        const Bytes command = damaged(commands[random() % commands.size()], random);
        capture.add_transfer(kToCamera, command, command.size() + (random() % 20 == 0 ? 9 : 0));
        at += size;
    }
    return capture;
}

TEST(DissectorDamage, TransfersOfAnyBytes) {
    Random random(3);
    const Capture capture = damaged_transfers(random);
    expect_no_failure(capture);
    expect_no_failure(capture, "-2");
}

TEST(DissectorDamage, DatagramsOfAnyBytes) {
    Random random(4);
    const std::string json =
        R"(!{"cmd":"focus","param":"point","value":"0.5","value2":"\u00e4\ud83d\ude00"})";
    const Bytes seeds[] = {
        Bytes(std::begin(kReportedText), std::end(kReportedText) - 1),
        Bytes(std::begin(kReportedStatus), std::end(kReportedStatus)),
        Bytes(std::begin(kReportedParameters), std::end(kReportedParameters)),
        Bytes(json.begin(), json.end()),
        Bytes{5, 1, 2, 3},
        camera_packet({0x02, 0x01, 0, 0x40, 0x02, 0x28}, Bytes(4)),
    };
    Capture capture;
    for (unsigned round = 0; round < 600; ++round) {
        for (const Bytes& seed : seeds) {
            Bytes datagram = damaged(seed, random);
            datagram[0] = random() % 8 == 0 ? datagram[0] : seed[0];
            const std::size_t captured =
                round % 5 == 0 ? some(datagram.size(), random) : datagram.size();
            const std::uint16_t port = seed[0] == 0x55 ? 6000 : 5000;
            capture.add_datagram(40000, port, datagram, captured);
            capture.add_datagram(port, 40000, datagram, captured);
        }
    }
    expect_no_failure(capture);
}

TEST(DissectorDamage, EachBeginningOfADatagram) {
    Capture capture;
    for (const Bytes& whole :
         {Bytes(std::begin(kReportedStatus), std::end(kReportedStatus)),
          Bytes(std::begin(kReportedParameters), std::end(kReportedParameters)),
          Bytes(std::begin(kReportedText), std::begin(kReportedText) + 60)}) {
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            capture.add_datagram(40000, 5000, whole, size);
            capture.add_datagram(40000, 5000, std::span(whole).first(size));
        }
    }
    expect_no_failure(capture);
}

}  // namespace
