// Writes the fuzzers' first inputs: make-corpus DIRECTORY CLIP..., a directory for each fuzzer.
// They are made of a real encoder's clips, of the simulated camera's messages, and of the tests'
// cases.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/input.h"
#include "simulator/camera_stream.h"
#include "simulator/status_messages.h"
#include "tests/cases/app_commands.h"
#include "tests/cases/telemetry_messages.h"
#include "video/priming_frame.h"

namespace fs = std::filesystem;

namespace {

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes text(const std::string& characters) {
    return Bytes(characters.begin(), characters.end());
}

Bytes front(const Bytes& bytes, std::size_t count) {
    return Bytes(bytes.begin(),
                 bytes.begin() + static_cast<std::ptrdiff_t>(std::min(count, bytes.size())));
}

Bytes read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

class Corpus {
  public:
    explicit Corpus(fs::path root) : root_(std::move(root)) {}

    void add(const std::string& fuzzer, const std::string& name, const Bytes& input) {
        fs::create_directories(root_ / fuzzer);
        std::ofstream file(root_ / fuzzer / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(input.data()),
                   static_cast<std::streamsize>(input.size()));
        ++count_;
    }
    int count() const { return count_; }

  private:
    fs::path root_;
    int count_ = 0;
};

// -- messages
// --------------------------------------------------------------------------------------

struct NamedPacket {
    std::string name;
    Bytes packet;
};

std::vector<NamedPacket> messages() {
    std::vector<NamedPacket> all;
    for (const TelemetryMessage& message : all_telemetry_messages()) {
        all.push_back({message.name, message.packet});
    }
    CameraModel camera;
    camera.start_recording();
    for (std::size_t i = 0; i < kMessageCount; ++i) {
        all.push_back(
            {"simulated_" + std::to_string(i), encode_message(static_cast<Message>(i), camera, 7)});
    }
    return all;
}

Bytes one_round() {
    Bytes round;
    for (std::size_t i = 0; i < kMessageCount; ++i) {
        round = round + encode_message(static_cast<Message>(i), CameraModel{}, 1);
    }
    return round;
}

// Two packets, of which the second begins with the first one's last byte: only the first counts.
Bytes overlapping_packets() {
    Bytes first = camera_packets(0);
    for (std::uint16_t sequence = 1; first.back() != 0x55; ++sequence) {
        first = camera_packet({1, 2, sequence, 0, 2, 3}, Bytes{1, 2, 3});
    }
    const Bytes second = camera_packets(9);
    return first + Bytes(second.begin() + 1, second.end());
}

void add_messages(Corpus& corpus) {
    for (const auto& [name, packet] : messages()) {
        corpus.add("decoder", name, packet);
        corpus.add("decoder", name + "_twice", packet + packet);
        corpus.add("packet_scan", name, Bytes{0x55, 0x0E} + packet + Bytes{0x00} + packet);
        // A recipe with one packet; its sums are made anew.
        const auto length = static_cast<std::uint8_t>(packet.size());
        corpus.add("demux", name,
                   Bytes{0x01, 0, 0, 0, 0, 0, 2, 1, length} + front(packet, packet.size() - 2));
    }
    corpus.add("decoder", "one_round", one_round());
    corpus.add("packet_scan", "one_round", one_round());
    corpus.add("packet_scan", "two_packets", camera_packets(3));
    corpus.add("packet_scan", "overlapping", overlapping_packets());
    corpus.add("packet_scan", "enclosed", camera_packet({1, 2, 3, 0, 2, 3}, camera_packets(5)));
    corpus.add("packet_scan", "cut_off", front(one_round(), 300));
}

// -- video
// -----------------------------------------------------------------------------------------

constexpr std::uint8_t kSequenceParameterSet = 7;

// What follows the first SPS's NAL header.
Bytes first_sps(std::span<const std::uint8_t> h264) {
    for (std::size_t i = 0; i + 5 < h264.size(); ++i) {
        if (h264[i] == 0 && h264[i + 1] == 0 && h264[i + 2] == 1 &&
            (h264[i + 3] & 0x1F) == kSequenceParameterSet) {
            return front(Bytes(h264.begin() + static_cast<std::ptrdiff_t>(i + 4), h264.end()), 40);
        }
    }
    return {};
}

void add_clip(Corpus& corpus, const std::string& name, const Bytes& clip) {
    const std::vector<Bytes> chunks = video_chunks(clip, 700);
    const Bytes stream = camera_stream(chunks, 2);
    for (const std::size_t size : {600U, 3000U, 6000U}) {
        const std::string file = name + "_" + std::to_string(size);
        corpus.add("demux", file + "_full", Bytes{0x04, 0, 0, 0, 0, 0} + front(stream, size));
        corpus.add("demux", file + "_cut", Bytes{0x02, 1, 2, 3, 0, 0} + front(stream, size));
        corpus.add("demux", file + "_cleared", Bytes{0x08, 5, 0, 0, 1, 0} + front(stream, size));
    }
    Bytes recipe = {0x01, 7, 0, 1, 0, 0};
    for (const Bytes& chunk : chunks) {
        const Bytes start = front(chunk, 250);
        recipe = recipe + Bytes{0, static_cast<std::uint8_t>(start.size())} + start;
    }
    corpus.add("demux", name + "_recipe", front(recipe, 3000));
    corpus.add("sps", name, first_sps(clip));
}

void add_video(Corpus& corpus) {
    const Bytes priming(kPrimingFrame.begin(), kPrimingFrame.end());
    corpus.add("sps", "priming_frame", first_sps(priming));
    corpus.add("demux", "every_kind",
               Bytes{0x01, 9, 9, 9, 0, 0}                          //
                   + Bytes{0, 9, 0, 0, 0, 1, 0x65, 1, 2, 3, 4}     // chunk
                   + Bytes{1, 0x46, 0xBF} + Bytes(16, 0x55)        // the longest that passes
                   + Bytes{3, 4, 0x55, 0x0E, 0x04, 0x66}           // control bytes
                   + Bytes{4} + Bytes{5, 1, 0} + Bytes{1, 0, 0});  // filler, strange, empty
    Bytes parts;
    for (int i = 0; i < 230; ++i) {
        parts = parts + video_envelope(Bytes{0, 0, 1, static_cast<std::uint8_t>(i)});
    }
    corpus.add("demux", "more_than_the_ring", Bytes{0x14, 0, 0, 0, 150, 0} + parts);
    corpus.add("demux", "slot_200", Bytes{0x14, 0, 0, 0, 200, 0} + front(parts, 60));
    corpus.add("demux", "slot_65535", Bytes{0x14, 0, 0, 0, 255, 255} + front(parts, 60));
    // A chunk of the longest kind ends where a read ends, and the next read is a full one.
    corpus.add("demux", "fullest_buffer",
               Bytes{0x05, 0, 0, 0, 0, 0} + Bytes{0, 170} + Bytes(170, 0x41) +
                   Bytes{1, 0x46, 0xBF} + Bytes(16, 0x42) + Bytes{1, 0, 4} + Bytes(16, 0x43));
    corpus.add("demux", "no_header_at_all", Bytes{0x04, 0, 0, 0, 0, 0} + Bytes(400, 0x55));
    corpus.add("demux", "unknown_type",
               Bytes{0x04, 0, 0, 0, 0, 0} + Bytes{0x55, 0xCC, 0x4B, 0x57, 0, 0, 0, 0, 0, 0});
    corpus.add("demux", "overflow",
               Bytes{0x04, 0, 0, 0, 0, 0} + Bytes{0x55, 0xCC, 0x4A, 0x57} +
                   Bytes{0xFF, 0xFF, 0, 0} + Bytes(50000, 0x41));
}

// -- the others
// ------------------------------------------------------------------------------------

void add_commands(Corpus& corpus) {
    const Bytes camera = {5, 0, 0xE8, 0x03, 3};
    Bytes all = camera;
    for (const AppCommandCase& command : kAppCommands) {
        const Bytes datagram = text("!" + std::string(command.json));
        corpus.add("app_dispatch", command.name, camera + datagram);
        all = all + datagram + Bytes{0x1E};
    }
    corpus.add("app_dispatch", "one_after_the_other", front(all, 4000));
    corpus.add("app_dispatch", "zoom_step", camera + Bytes{0x05, 0x01, 0x01, 0x00});
    corpus.add("app_dispatch", "zoom_stop", camera + Bytes{0x05, 0x02, 0x00, 0x00, 0x1E, 0x05});
    corpus.add("app_dispatch", "limits",
               camera + text(R"(!{"cmd":"updatecameraconfig","param":"focus_limits",)"
                             R"("value":"10","value2":"90"})"));
    corpus.add("app_dispatch", "movement",
               camera + text(R"(!{"cmd":"set","name":"movement","value":"abs"})"));
}

void add_focus_files(Corpus& corpus) {
    const char* const files[] = {
        "# Osmo USB config file\r\n\r\nmf_min=10\r\nmf_max=90\r\n",
        "mf_min=0\nmf_max=100",
        "\xEF\xBB\xBFmf_min = 5 ; near\nmf_max: 95\n",
        "[limits]\nmf_min=5\n",
        "mf_min=1\n  2\n\t3\n",
        "mf_min\n=5\n[\n]\nmf_max==7\n",
        "mf_max=99999999999999999999\nmf_min=-99999999999999999999\n",
        "",
    };
    for (std::size_t i = 0; i < std::size(files); ++i) {
        corpus.add("focus_file", "file_" + std::to_string(i), Bytes{0} + text(files[i]));
    }
    corpus.add("focus_file", "long_line",
               Bytes{0} + text("mf_min=" + std::string(300, '1') + "\nmf_max=3\n"));
    corpus.add("focus_file", "known", Bytes{1, 1, 0, 2, 10, 0, 0, 0, 3, 90, 0, 0, 0, 5});
    corpus.add("focus_file", "saved_whole", Bytes{2, 10, 0, 0, 0, 90, 0, 0, 0, 50});
    corpus.add("focus_file", "saved_torn", Bytes{2, 0, 0, 0, 0x80, 0xFF, 0xFF, 0xFF, 0x7F, 40});
}

void add_events(Corpus& corpus) {
    corpus.add("gadget_event", "configure", {0, 0, 4, 13, 64, 0, 13, 0, 2, 5});
    corpus.add("gadget_event", "every_row", {0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    corpus.add("gadget_event", "talkative", {0, 14, 2, 0, 4, 9, 2, 6, 7, 5, 11, 12});
    corpus.add("gadget_event", "reader_leaves", {0, 0, 4, 12, 13, 8, 0, 4, 9, 5});
    corpus.add("gadget_event", "no_reader", {0, 15, 4, 4});
    corpus.add("gadget_event", "failing", {6, 0, 4, 9, 4, 5, 13, 8, 0, 0, 0, 0xF1, 0xF9, 0, 0xF3});
    const Bytes several = {10,   60,                                    //
                           3,    0,  0, 0, 0, 0, 0,    0, 1, 0, 0, 0,   // connect
                           0x00, 9,  2, 0, 0, 0, 0,    0, 3, 0, 0, 0,   // configure
                           0x80, 8,  0, 0, 0, 0, 1,    0, 3, 0, 0, 0,   // unknown
                           0xC0, 51, 0, 0, 0, 0, 2,    0, 3, 0, 0, 0,   // vendor
                           0x80, 6,  0, 3, 0, 0, 0xFF, 0, 3, 0, 0, 0};  // languages
    corpus.add("gadget_event", "several", Bytes{0} + several + Bytes{9, 5});
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::fprintf(stderr, "make-corpus DIRECTORY CLIP...\n");
        return 2;
    }
    Corpus corpus(arguments[1]);
    add_messages(corpus);
    add_video(corpus);
    for (int i = 2; i < count; ++i) {
        add_clip(corpus, fs::path(arguments[i]).stem().string(), read_file(arguments[i]));
    }
    add_commands(corpus);
    add_focus_files(corpus);
    add_events(corpus);
    std::printf("%d inputs\n", corpus.count());
    return 0;
}
