#include "tests/e2e/e2e_support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "simulator/camera_commands.h"

namespace {

void remove_shared_memory() {
    shm_unlink("vantarel_framebuffer");
    shm_unlink("vantarel_framebuffer_transcoding");
    shm_unlink("shared_rc_raw");
}

}  // namespace

ReceiverTest::ReceiverTest() {
    remove_shared_memory();
}

ReceiverTest::~ReceiverTest() {
    if (receiver) {
        // The thread sanitizer's reports leave no trace in the status of a process that is killed.
        EXPECT_EQ(receiver->count("WARNING: ThreadSanitizer"), 0) << receiver->output();
    }
    receiver.reset();
    board.reset();
    remove_shared_memory();
}

SimulatedBoard& ReceiverTest::make_board(SimulatedBoardOptions options) {
    receiver.reset();  // two would share the shared memory and port 6000
    board = std::make_unique<SimulatedBoard>(std::move(options));
    return *board;
}

void ReceiverTest::start_on_board(const std::vector<std::string>& arguments) {
    receiver = std::make_unique<ReceiverProcess>(arguments, board->environment());
}

void ReceiverTest::start(const std::vector<std::string>& arguments, SimulatedBoardOptions options) {
    make_board(std::move(options));
    start_on_board(arguments);
}

bool ReceiverTest::wait_for_device() {
    return board->wait_for_device(10s) && receiver->wait_for("Gadget init done\n", 10s);
}

void ReceiverTest::start_configured(const std::vector<std::string>& arguments) {
    start(arguments);
    ASSERT_TRUE(wait_for_device()) << receiver->output();
    ASSERT_TRUE(board->configure()) << receiver->output();
    ASSERT_TRUE(receiver->wait_for("USB connected\n", 5s)) << receiver->output();
}

void ReceiverTest::start_receiving() {
    start_configured();
    ASSERT_TRUE(board->bulk_out(Bytes(3, 0)));
    ASSERT_TRUE(board->wait_for_bulk_out_taken(5s)) << receiver->output();
}

// The shut-down clears the time of the last data and only then closes the device. A look of the
// supervision in that time, on a clock whose low 32 bits are positive as a signed number, finds a
// silence above every limit and says so: before, between or behind the end's own lines, and it may
// end the process first. All of that is right.
void ReceiverTest::expect_link_end(const std::string& lines) {
    const std::string timeout = "Camera connection timeout\n";
    const std::string end = "Exit gadget\nUSB receiver exit\n";
    const std::optional<int> status = receiver->wait_exit(10s);
    const std::string printed = receiver->lines_without_delta();
    const std::string before = kStartLines + lines + "poll error or break!\n";
    ASSERT_EQ(printed.substr(0, before.size()), before);
    std::string rest = printed.substr(before.size());
    if (const std::size_t at = rest.find(timeout); at != std::string::npos) {
        rest.erase(at, timeout.size());
        EXPECT_TRUE(end.starts_with(rest)) << printed;
        EXPECT_TRUE(status == 1 || status == 2) << printed;
    } else {
        EXPECT_EQ(rest, end) << printed;
        EXPECT_EQ(status, 1);
    }
}

unsigned ReceiverTest::refused_packets() const {
    CameraModel camera;
    CommandReceiver commands(camera);
    for (const Bytes& packet : board->bulk_in()) {
        commands.take(packet);
    }
    return commands.counts().refused_in_all();
}

std::string ReceiverTest::file(const std::string& place) const {
    std::ifstream in(board->path(place), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void ReceiverTest::write_file(const std::string& place, const std::string& text) const {
    std::ofstream out(board->path(place), std::ios::binary);
    out << text;
}

IdleCamera::IdleCamera(SimulatedBoard& board) {
    const Bytes filler = video_envelope(filler_chunk());
    EXPECT_TRUE(board.bulk_out(filler));
    thread_ = std::thread([this, &board, filler] {
        while (!stop_ && board.bulk_out(filler)) {
            std::this_thread::sleep_for(50ms);
        }
    });
}

IdleCamera::~IdleCamera() {
    stop_ = true;
    thread_.join();
}

Bytes clip(const std::string& name) {
    const std::string path = CLIP_DIRECTORY "/" + name;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error(path + ": not there");
    }
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<Bytes> parts_from_ring(std::size_t count, std::chrono::milliseconds timeout) {
    RingReader ring;
    std::vector<Bytes> parts;
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (parts.size() < count && std::chrono::steady_clock::now() < end) {
        if (ring.open()) {
            ring.take([&](std::uint16_t, std::span<const std::uint8_t> part) {
                parts.emplace_back(part.begin(), part.end());
            });
        }
        usleep(500);
    }
    EXPECT_EQ(ring.missed(), 0U);
    return parts;
}
