// The simulated camera on the simulated board, with this process in the receiver's place.
#include "simulator/simulated_camera.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "board_process.h"
#include "hex_bytes.h"
#include "simulator/camera_player.h"
#include "simulator/camera_script.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

constexpr auto kSoon = Milliseconds(10000);

constexpr char kRecordStart[] = "55 0E 04 66 02 01 05 00 40 02 02 01 8F 50";
constexpr char kRecordStop[] = "55 0E 04 66 02 01 64 00 40 02 02 00 9C C2";
constexpr char kRecordStopOfNumberZero[] = "55 0E 04 66 02 01 00 00 40 02 02 00 81 55";
constexpr char kSleep[] = "55 0E 04 66 02 09 02 01 40 09 51 01 CF 49";

// An envelope of the stream: 'I' or 'J', and what it carries.
struct Envelope {
    char type;
    Bytes payload;
};

// The device's end of the two bulk endpoints. A thread reads what the camera sends until the board
// is unplugged.
class SimulatedCameraOnBoard : public testing::Test {
  protected:
    explicit SimulatedCameraOnBoard(SimulatedCameraOptions options = {}) : camera(board, options) {}

    void SetUp() override {
        ASSERT_EQ(write(control.fd, kDescription.data(), kDescription.size()), 86);
        board.connect();
        Bytes event(60);
        ASSERT_EQ(read(control.fd, event.data(), event.size()), 12);
        open_endpoint(in, "/dev/gadget/ep6in", kInRecord);
        open_endpoint(out, "/dev/gadget/ep2out", kOutRecord);
        ASSERT_TRUE(board.wait_for_endpoints(kSoon));
    }
    void TearDown() override {
        if (reader.joinable()) {
            board.disconnect();
            reader.join();
        }
    }

    static void open_endpoint(OpenFd& endpoint, const char* path, const Bytes& record) {
        endpoint.fd = open(path, O_RDWR);
        ASSERT_EQ(write(endpoint.fd, record.data(), record.size()), 18);
    }
    void start_reading() {
        reader = std::thread([this] {
            Bytes transfer(512);
            for (ssize_t n; (n = read(out.fd, transfer.data(), transfer.size())) >= 0;) {
                const std::lock_guard lock(mutex);
                stream.insert(stream.end(), transfer.begin(), transfer.begin() + n);
            }
        });
    }
    void send_to_camera(const char* packet) const {
        const Bytes bytes = bytes_of_hex(packet);
        ASSERT_EQ(write(in.fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    Bytes received() {
        const std::lock_guard lock(mutex);
        return stream;
    }
    // The whole envelopes so far. Bytes that belong to none are a failure.
    std::vector<Envelope> envelopes() {
        std::vector<Envelope> all;
        const Bytes bytes = received();
        for (std::size_t at = 0; at + 8 <= bytes.size();) {
            const std::size_t end = at + 8 + bytes[at + 4] + std::size_t{256} * bytes[at + 5];
            if (bytes[at] != 0x55 || bytes[at + 1] != 0xCC || bytes[at + 3] != 0x57) {
                ADD_FAILURE() << "no envelope at byte " << at;
                return all;
            }
            if (end > bytes.size()) {
                return all;
            }
            const auto* const start = bytes.data();
            all.push_back({static_cast<char>(bytes[at + 2]), Bytes(start + at + 8, start + end)});
            at = end;
        }
        return all;
    }
    template <typename Condition>
    static bool wait_until(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + kSoon;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(Milliseconds(2));
        }
        return true;
    }
    // How many bytes have come when no more are on their way.
    std::size_t received_in_all() {
        std::size_t size = received().size();
        for (int same = 0; same < 10;) {
            std::this_thread::sleep_for(Milliseconds(10));
            const std::size_t seen = received().size();
            const bool taken = board.wait_for_bulk_out_taken(kSoon);
            same = taken && seen == size ? same + 1 : 0;
            size = seen;
        }
        return size;
    }
    // The lengths of all packets that came, in their order.
    std::vector<int> packet_lengths() {
        std::vector<int> lengths;
        for (const Envelope& envelope : envelopes()) {
            for (std::size_t at = 0; envelope.type == 'I' && at < envelope.payload.size();
                 at += envelope.payload[at + 1]) {
                lengths.push_back(envelope.payload[at + 1]);
            }
        }
        return lengths;
    }

    SimulatedBoard board;
    RootVariable variable{board.root()};
    OpenFd control{open("/dev/gadget/fe980000.usb", O_RDWR)};
    OpenFd in{-1};
    OpenFd out{-1};
    SimulatedCamera camera;
    std::mutex mutex;
    Bytes stream;
    std::thread reader;
};

// -- messages

TEST_F(SimulatedCameraOnBoard, SendsNothingBeforeTheLinkBegins) {
    start_reading();
    std::this_thread::sleep_for(Milliseconds(100));
    EXPECT_THAT(received(), IsEmpty());
}

TEST_F(SimulatedCameraOnBoard, BeginsWithAllMessagesInOneEnvelopeAndAFillerBehindIt) {
    start_reading();
    camera.link_begins();
    ASSERT_TRUE(wait_until([this] { return envelopes().size() >= 2; }));
    const std::vector<Envelope> all = envelopes();
    EXPECT_EQ(all[0].type, 'I');
    EXPECT_EQ(all[1].type, 'J');
    EXPECT_EQ(all[1].payload, (Bytes{0, 0, 1, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0}));
    std::vector<int> lengths = packet_lengths();
    lengths.resize(9);
    EXPECT_THAT(lengths, ElementsAre(25, 50, 104, 59, 77, 52, 22, 19, 15));
}

// A busy machine may make it send less, never more.
TEST_F(SimulatedCameraOnBoard, SendsAtMostTwentyAttitudesASecond) {
    const auto start = std::chrono::steady_clock::now();
    start_reading();
    camera.link_begins();
    ASSERT_TRUE(wait_until([this] { return std::ranges::count(packet_lengths(), 25) > 20; }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, Milliseconds(950));
    EXPECT_LE(std::ranges::count(packet_lengths(), 50), 12);
}

TEST_F(SimulatedCameraOnBoard, IsSilentWhenTheLinkEnds) {
    start_reading();
    camera.link_begins();
    ASSERT_TRUE(wait_until([this] { return !received().empty(); }));
    camera.link_ends();
    const std::size_t size = received_in_all();
    std::this_thread::sleep_for(Milliseconds(150));
    EXPECT_EQ(received().size(), size);
}

TEST_F(SimulatedCameraOnBoard, SleepsUntilItIsWoken) {
    start_reading();
    camera.link_begins();
    ASSERT_TRUE(wait_until([this] { return !received().empty(); }));
    send_to_camera(kSleep);
    ASSERT_TRUE(camera.wait_for("power", "asleep", kSoon));
    const std::size_t size = received_in_all();
    std::this_thread::sleep_for(Milliseconds(150));
    EXPECT_EQ(received().size(), size);
    camera.set("power", "on");
    EXPECT_TRUE(wait_until([&] { return received().size() > size; }));
}

TEST_F(SimulatedCameraOnBoard, NewLinkNumbersItsMessagesFromZero) {
    start_reading();
    camera.link_begins();
    ASSERT_TRUE(wait_until([this] { return packet_lengths().size() > 20; }));
    camera.link_ends();
    received_in_all();
    const std::size_t old = envelopes().size();
    camera.link_begins();
    ASSERT_TRUE(wait_until([&] { return envelopes().size() > old; }));
    EXPECT_EQ(envelopes()[old].payload[6], 0);
}

TEST_F(SimulatedCameraOnBoard, KeepsEnvelopesWholeBetweenItsVideo) {
    start_reading();
    camera.link_begins();
    const Bytes video = video_envelope(Bytes(20000, 0x11));
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(camera.send(video));
        std::this_thread::sleep_for(Milliseconds(3));
    }
    ASSERT_TRUE(board.wait_for_bulk_out_taken(kSoon));
    std::size_t video_count = 0;
    std::size_t message_count = 0;
    for (const Envelope& envelope : envelopes()) {
        video_count += envelope.payload.size() == 20000 ? 1 : 0;
        message_count += envelope.type == 'I' ? 1 : 0;
    }
    EXPECT_EQ(video_count, 100U);
    EXPECT_GE(message_count, 5U);
}

// A video sender that never pauses holds the wire nearly all the time.
TEST_F(SimulatedCameraOnBoard, SendsItsMessagesAlsoWhileTheWireIsNeverFree) {
    start_reading();
    camera.link_begins();
    std::atomic<bool> stop = false;
    std::thread video([&] {
        const Bytes piece = video_envelope(Bytes(40000, 0x22));
        while (!stop && camera.send(piece)) {
        }
    });
    EXPECT_TRUE(wait_until([this] {
        return std::ranges::count_if(envelopes(),
                                     [](const Envelope& each) { return each.type == 'I'; }) >= 10;
    }));
    stop = true;
    video.join();
}

TEST_F(SimulatedCameraOnBoard, NewestValuesGoOut) {
    start_reading();
    camera.set("battery_level", "20");
    camera.link_begins();
    ASSERT_TRUE(wait_until([this] { return !envelopes().empty(); }));
    EXPECT_EQ(envelopes()[0].payload[25 + 50 + 104 + 59 + 77 + 11], 19);  // a little less by now
}

// -- commands

TEST_F(SimulatedCameraOnBoard, CommandActsOnItsModelInTime) {
    send_to_camera(kRecordStart);
    EXPECT_TRUE(camera.wait_for("record", "recording", kSoon));
    EXPECT_EQ(camera.taken("record"), 1U);
    EXPECT_EQ(camera.taken("shot"), 0U);
    EXPECT_TRUE(camera.wait_for("rec_time", "1", kSoon));
    EXPECT_EQ(camera.model().recorded_seconds(), 1);
}

TEST_F(SimulatedCameraOnBoard, TakesEachTransferOnce) {
    for (int i = 0; i < 50; ++i) {
        send_to_camera(kRecordStop);
    }
    EXPECT_TRUE(camera.wait_for_taken("record", 50, kSoon));
    EXPECT_FALSE(camera.wait_for_taken("record", 51, Milliseconds(50)));
    EXPECT_EQ(camera.counts().numbers_repeated, 49U);
    EXPECT_EQ(camera.refused(), 0U);
}

TEST_F(SimulatedCameraOnBoard, CountsWhatItRefuses) {
    send_to_camera("55 0E 04 66 02 01 00 00 40 02 02 00 81 54");
    send_to_camera(kRecordStop);
    ASSERT_TRUE(camera.wait_for_taken("record", 1, kSoon));
    EXPECT_EQ(camera.refused(), 1U);
    EXPECT_EQ(camera.counts().refused[static_cast<std::size_t>(Refusal::kPacketSum)], 1U);
}

TEST_F(SimulatedCameraOnBoard, NewLinkTakesNumbersFromTheBeginning) {
    send_to_camera(kRecordStop);  // number 100
    ASSERT_TRUE(camera.wait_for_taken("record", 1, kSoon));
    send_to_camera(kRecordStopOfNumberZero);
    ASSERT_TRUE(wait_until([this] { return camera.refused() == 1; }));
    camera.link_begins();
    send_to_camera(kRecordStopOfNumberZero);
    EXPECT_TRUE(camera.wait_for_taken("record", 2, kSoon));
}

// -- values and scripts

TEST_F(SimulatedCameraOnBoard, ValuesAreThoseOfTheModel) {
    EXPECT_TRUE(camera.set("iso_set", "400"));
    EXPECT_EQ(camera.get("iso"), "400");
    EXPECT_FALSE(camera.set("iso_set", "401"));
    EXPECT_EQ(camera.get("nothing"), std::nullopt);
}

TEST_F(SimulatedCameraOnBoard, WaitingEndsInTime) {
    EXPECT_FALSE(camera.wait_for("record", "recording", Milliseconds(30)));
}

class CameraScriptLine : public SimulatedCameraOnBoard {
  protected:
    // Standard output and error of a script's line, and a word of how it went.
    std::string performed(const std::string& text) {
        std::string error;
        const auto lines = parse_camera_script(text, &error);
        EXPECT_TRUE(lines && lines->size() == 1) << error;
        CaptureStdout();
        CaptureStderr();
        const bool done = lines && perform_script_line(camera, lines->front());
        const std::string printed = GetCapturedStdout();
        return printed + GetCapturedStderr() + (done ? "done" : "failed");
    }
};

TEST_F(CameraScriptLine, SetsAValue) {
    EXPECT_EQ(performed("0 set iso_set 800"), "done");
    EXPECT_EQ(camera.get("iso_set"), "800");
}

TEST_F(CameraScriptLine, SetsNoneThatThereIsNot) {
    EXPECT_EQ(performed("0 set iso_set 5"), "line 1: iso_set cannot be set to '5'\nfailed");
}

TEST_F(CameraScriptLine, ExpectsAValue) {
    EXPECT_EQ(performed("0 expect iso_set 100"), "done");
    EXPECT_EQ(performed("0 expect iso_set 200"), "line 1: iso_set is '100', not '200'\nfailed");
}

TEST_F(CameraScriptLine, PrintsAValueOrAll) {
    EXPECT_EQ(performed("0 print iso"), "iso = 100\ndone");
    const std::string all = performed("0 print");
    EXPECT_TRUE(all.starts_with("camera_model = X5R\n")) << all;
    EXPECT_TRUE(all.ends_with("resets = 0\ndone")) << all;
}

TEST_F(CameraScriptLine, BringsAFaultAndClearsIt) {
    performed("0 fault");
    EXPECT_EQ(camera.get("gimbal_fault"), "133");
    performed("0 clear");
    EXPECT_EQ(camera.get("gimbal_fault"), "128");
}

// -- options

class SilentCamera : public SimulatedCameraOnBoard {
  protected:
    SilentCamera() : SimulatedCameraOnBoard({.messages = false}) {}
};

TEST_F(SilentCamera, SendsOnlyWhatItIsGiven) {
    start_reading();
    camera.link_begins();
    send_to_camera(kRecordStop);
    ASSERT_TRUE(camera.wait_for_taken("record", 1, kSoon));
    const Bytes piece = {1, 2, 3};
    ASSERT_TRUE(camera.send(piece));
    ASSERT_TRUE(wait_until([this] { return received().size() >= 3; }));
    EXPECT_THAT(received(), ElementsAre(1, 2, 3));
}

// -- the player of files

class Player : public SilentCamera {
  protected:
    ~Player() override { unlink(path.c_str()); }
    // Plays the bytes as a file and gives the types of the envelopes that came.
    std::string played(const Bytes& bytes) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        options.pace = Pace::kMax;
        CameraPlayer player(camera, options);
        EXPECT_TRUE(player.load());
        start_reading();
        player.start();
        while (!player.finished() && player.play()) {
        }
        EXPECT_TRUE(wait_until([&] { return received().size() == player.bytes(); }));
        std::string types;
        for (const Envelope& envelope :
             options.raw.empty() ? envelopes() : std::vector<Envelope>{}) {
            types += envelope.type;
        }
        return types;
    }

    std::string path = board.path("/clip");
    SimulatorOptions options;
    const Bytes three_pictures = {0, 0, 1, 0x65, 0x88, 0, 0, 1, 0x41, 0x9A, 0, 0, 1, 0x41, 0x9A};
};

TEST_F(Player, SendsPicturesAndAFillerAtTheEnd) {
    options.h264 = path;
    EXPECT_EQ(played(three_pictures), "JJJJ");
    EXPECT_EQ(envelopes()[0].payload, (Bytes{0, 0, 1, 0x65, 0x88}));
}

TEST_F(Player, SendsFixedPacketsBetweenThemWhereItIsAsked) {
    options.h264 = path;
    options.packets_every = 1;
    EXPECT_EQ(played(three_pictures), "JIJIJIJ");
}

TEST_F(Player, SendsFixedPacketsAlsoWhereTheCameraSendsNoOthers) {
    options.h264 = path;
    options.status = false;
    options.chunk = 1;
    EXPECT_EQ(played(three_pictures), "JJJJJJJJJJIJJJJJJ");
}

TEST_F(Player, SendsRawBytesAsTheyAre) {
    options.raw = path;
    played(Bytes(40000, 0x5A));
    EXPECT_EQ(received(), Bytes(40000, 0x5A));
}

TEST_F(Player, GarbageIsFourKilobytes) {
    CameraPlayer player(camera, options);
    start_reading();
    ASSERT_TRUE(player.send_garbage());
    ASSERT_TRUE(wait_until([this] { return received().size() == 4096; }));
    EXPECT_EQ(player.bytes(), 4096U);
}

TEST_F(Player, NamesAFileThatIsNotThere) {
    options.h264 = path;
    CameraPlayer player(camera, options);
    CaptureStderr();
    EXPECT_FALSE(player.load());
    EXPECT_EQ(GetCapturedStderr(), "camera-simulator: " + path + " cannot be read or is empty\n");
}

class ImpatientCamera : public SimulatedCameraOnBoard {
  protected:
    ImpatientCamera()
        : SimulatedCameraOnBoard({.transfer = 100, .send_timeout = Milliseconds(50)}) {}
};

TEST_F(ImpatientCamera, GivesUpOnADeviceThatTakesNothing) {
    EXPECT_FALSE(camera.send(Bytes(1000000)));
}

TEST_F(ImpatientCamera, CutsTransfersAsAsked) {
    ASSERT_TRUE(camera.send(Bytes(250)));
    Bytes transfer(512);
    EXPECT_EQ(read(out.fd, transfer.data(), transfer.size()), 100);
}

}  // namespace
