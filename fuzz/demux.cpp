// The camera's stream from the bulk reads on, with all that is behind them: reader, demultiplexer,
// packet scan, decoder, SPS reader and ring.
//
//   byte:  0      1..2    3      4..5       6 ..
//          shape  cuts    cuts2  ring word  stream, or a recipe of one
//
// Any bytes are compared with a second demultiplexer. A well-formed stream is sent twice, in two
// ways of cutting, which must make no difference to the ring and to the camera state.
#include <sanitizer/asan_interface.h>
#include <string.h>
#include <unistd.h>

#include <sstream>

#include "app/system_paths.h"
#include "fuzz/camera_end.h"
#include "fuzz/demux_model.h"
#include "fuzz/fuzz_check.h"
#include "fuzz/input.h"
#include "fuzz/log.h"
#include "fuzz/own_places.h"
#include "fuzz/receiver_end.h"
#include "fuzz/sps_reference.h"
#include "fuzz/stream_recipe.h"
#include "protocol/camera_state.h"
#include "protocol/little_endian.h"
#include "simulator/camera_stream.h"
#include "tests/wrapped_calls.h"
#include "usb/usb_link_state.h"
#include "usb/usb_reader.h"
#include "video/frame_buffers.h"
#include "video/frame_layout.h"
#include "video/priming_frame.h"

namespace {

// Bits of the first byte.
constexpr unsigned kRecipe = 0x01;
constexpr unsigned kShortCuts = 0x02;
constexpr unsigned kFullCuts = 0x04;
constexpr unsigned kWritesClearRequest = 0x08;
constexpr unsigned kWritesNextSlot = 0x10;

constexpr int kStreamFile = 70000;  // no descriptor of this process
constexpr std::size_t kPacket = 512;

// -- the bulk OUT endpoint
// -------------------------------------------------------------------------

struct Cuts {
    std::uint32_t seed;
    std::size_t most;
    bool full;

    std::size_t next() {
        seed = seed * 1664525 + 1013904223;
        return full ? most : 1 + (seed >> 16) % most;
    }
};

Bytes stream;
std::size_t sent_up_to = 0;
Cuts cuts{};
DemuxModel* model = nullptr;
bool model_goes_on = true;

// The receiver's buffer may be read and written up to its fill count alone, and by the read itself.
void fence_buffer(const std::uint8_t* from) {
    std::uint8_t* const buffer = usb_link.receive_buffer;
    ASAN_UNPOISON_MEMORY_REGION(buffer, kReceiveBufferSize);
    if (from != nullptr) {
        ASAN_POISON_MEMORY_REGION(from,
                                  static_cast<std::size_t>(buffer + kReceiveBufferSize - from));
    }
}

ssize_t next_packet(std::uint8_t* buffer, std::size_t size) {
    FUZZ_CHECK(size == kPacket);
    FUZZ_CHECK(model_goes_on);
    FUZZ_CHECK(buffer == usb_link.receive_buffer + model->held());
    FUZZ_CHECK(usb_link.busy == 1);
    fence_buffer(nullptr);
    const std::size_t count = std::min(cuts.next(), stream.size() - sent_up_to);
    const std::span packet(stream.data() + sent_up_to, count);
    std::ranges::copy(packet, buffer);
    sent_up_to += count;
    fence_buffer(buffer + count);
    model_goes_on = model->read(packet);
    return static_cast<ssize_t>(count);
}

// -- the ring
// --------------------------------------------------------------------------------------

std::uint8_t* ring = nullptr;
RingModel ring_model;

std::span<const std::uint8_t> slot(unsigned number) {
    return {ring + kRingHeaderSize + number * kSlotSize, kSlotSize};
}

void check_part(const PublishedPart& part) {
    const auto in_ring = slot(part.slot);
    FUZZ_CHECK(read_le32(in_ring.data()) == part.bytes.size());
    FUZZ_CHECK(read_le16(in_ring.data() + 4) == part.sequence);
    constexpr std::uint8_t kFill[] = {0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    FUZZ_CHECK(std::ranges::equal(in_ring.subspan(6, sizeof kFill), kFill));
    FUZZ_CHECK(std::ranges::equal(in_ring.subspan(kSlotHeaderSize, part.bytes.size()), part.bytes));
}

void check_ring(const std::vector<PublishedPart>& parts) {
    for (std::size_t i = parts.size() - std::min(parts.size(), kSlotCount); i < parts.size(); ++i) {
        check_part(parts[i]);
    }
    FUZZ_CHECK(read_le16(ring + kClearRequestOffset) == ring_model.clear_request);
    FUZZ_CHECK(read_le16(ring + kNextSlotOffset) == ring_model.next_slot);
    if (!parts.empty()) {
        FUZZ_CHECK(read_le16(ring + kLatestSequenceOffset) == parts.back().sequence);
    }
}

// As another process may write there, or an earlier round have left it.
void write_ring_words(unsigned shape, unsigned word) {
    if ((shape & kWritesClearRequest) != 0) {
        ring_model.clear_request = word | 1;
        write_le16(ring + kClearRequestOffset, static_cast<std::uint16_t>(word | 1));
    }
    if ((shape & kWritesNextSlot) != 0) {
        ring_model.next_slot = word;
        write_le16(ring + kNextSlotOffset, static_cast<std::uint16_t>(word));
    }
    const std::size_t next = ring_model.next_slot % kSlotCount;
    memset(ring + kRingHeaderSize + next * kSlotSize, 0xEE, kSlotHeaderSize);
}

void check_resolution_files(const std::string& log) {
    if (log.find("resolution changed") != std::string::npos) {
        const auto text = [](std::int32_t number) { return std::to_string(number).substr(0, 9); };
        FUZZ_CHECK(read_own_file("/run/vantarel/video_width") == text(ring_model.width));
        FUZZ_CHECK(read_own_file("/run/vantarel/video_height") == text(ring_model.height));
    }
}

// -- one stream
// ------------------------------------------------------------------------------------

// The lines that the model makes, too: without those of messages and commands.
std::string lines_of_the_stream(const std::string& log) {
    constexpr const char* kBeginnings[] = {"Buffer ", "Wrong ",       "Unknown packet ", "Strange ",
                                           "Queue ",  "Clear frame ", "Live stream "};
    std::istringstream lines(log);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (std::ranges::any_of(kBeginnings,
                                [&](const char* text) { return line.starts_with(text); })) {
            kept += line + "\n";
        }
    }
    return kept;
}

struct Outcome {
    std::vector<Bytes> parts;
    std::vector<std::uint8_t> state;
    std::size_t packets_sent;
    bool ended;
    bool operator==(const Outcome&) const = default;
};

void reset_camera_state() {
    memset(static_cast<void*>(&camera_state), 0, sizeof camera_state);
}

bool run_reader() {
    static UsbGadgetHandle handle{};
    static UsbGadgetEndpoint endpoint{};
    static constexpr UsbDescriptor kBulkOut[] = {7, 5, 0x02, 0x02, 0x00, 0x02, 0};
    handle.speed = kUsbSpeedHigh;
    endpoint.full_speed = endpoint.high_speed = kBulkOut;
    endpoint.handle = &handle;
    endpoint.fd = kStreamFile;
    usb_link.out_endpoint = &endpoint;
    usb_link.fill_count = 0;
    usb_link.stop = 0;
    usb_link.busy = 0;
    bool ended = false;
    try {
        usb_reader_thread(nullptr);
        FUZZ_CHECK(usb_link.stop == 1 && usb_link.receiving == 0);
        FUZZ_CHECK(usb_link.fill_count == model->held());
    } catch (const ReceiverEnd& end) {
        FUZZ_CHECK(end.why == "m_nCurrentBit <= m_nLength * 8");
        ended = true;
    }
    FUZZ_CHECK(usb_link.out_endpoint == nullptr);
    return ended;
}

Outcome send_stream(Cuts how) {
    DemuxModel reference(ring_model);
    model = &reference;
    model_goes_on = true;
    sent_up_to = 0;
    cuts = how;
    reset_camera_state();

    Outcome outcome{};
    outcome.ended = run_reader();
    FUZZ_CHECK(outcome.ended == !model_goes_on);
    const std::string log = take_log();
    FUZZ_CHECK(lines_of_the_stream(log) == reference.log());
    check_ring(reference.parts());
    check_resolution_files(log);

    outcome.packets_sent = take_sent().size();
    for (const PublishedPart& part : reference.parts()) {
        outcome.parts.push_back(part.bytes);
    }
    camera_state.params_time_ms = 0;  // the only field that the clock decides
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&camera_state);
    outcome.state.assign(bytes, bytes + sizeof camera_state);
    return outcome;
}

// The first video of a process brings the stored key frame along.
void send_first_video() {
    stream = video_envelope(Bytes{0x00, 0x00, 0x01, 0x41});
    stream.push_back(0x55);
    DemuxModel reference(ring_model);
    model = &reference;
    cuts = {0, kPacket, true};
    FUZZ_CHECK(!run_reader());
    take_log();
    FUZZ_CHECK(read_le16(ring + kNextSlotOffset) == 2);
    FUZZ_CHECK(read_le32(slot(0).data()) == kPrimingFrame.size());
    FUZZ_CHECK(
        std::ranges::equal(slot(0).subspan(kSlotHeaderSize, kPrimingFrame.size()), kPrimingFrame));
    const auto size = reference_picture_size(std::span(kPrimingFrame).subspan(5));
    ring_model = {0, 2, 2, size->width, size->height};
}

}  // namespace

extern "C" {
ssize_t __wrap_read(int fd, void* buffer, std::size_t size) {
    return fd == kStreamFile ? next_packet(static_cast<std::uint8_t*>(buffer), size)
                             : __real_read(fd, buffer, size);
}

int __wrap_close(int fd) {
    return fd == kStreamFile ? 0 : __real_close(fd);
}

int LLVMFuzzerInitialize(int* argument_count, char*** arguments);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

extern "C" int LLVMFuzzerInitialize(int* /*argument_count*/, char*** /*arguments*/) {
    use_own_places();
    record_log();
    FUZZ_CHECK(frame_buffers_init() == 0);
    ring = own_shared_memory(kFrameBufferName, kFrameBufferSize);
    usb_link.receive_buffer = new std::uint8_t[kReceiveBufferSize];
    send_first_video();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const unsigned shape = input.byte();
    const Cuts first{input.word(), (shape & kShortCuts) != 0 ? 9 : kPacket,
                     (shape & kFullCuts) != 0};
    const Cuts second{input.byte(), kPacket, false};
    const unsigned ring_word = input.word();
    const bool well_formed = (shape & kRecipe) != 0;
    stream = well_formed ? stream_of_recipe(input) : input.rest();

    write_ring_words(shape, ring_word);
    const Outcome outcome = send_stream(first);
    if (well_formed) {
        FUZZ_CHECK(send_stream(second) == outcome);
    }
    return 0;
}
