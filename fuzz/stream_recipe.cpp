#include "fuzz/stream_recipe.h"

#include "simulator/camera_stream.h"

namespace {

// The longest chunk that passes the receiver's buffer in any cut.
constexpr std::size_t kLongestChunk = 48966;
// The ring keeps 200 parts; a run compares all of its parts.
constexpr std::size_t kMostEnvelopes = 150;
constexpr std::size_t kMostBytes = 400000;
constexpr std::size_t kShortestPacket = 10;

void append(Bytes& to, const Bytes& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

Bytes long_chunk(Input& recipe) {
    const std::size_t length = recipe.word() % (kLongestChunk + 1);
    Bytes pattern = recipe.bytes(16);
    pattern.resize(16);
    Bytes chunk(length);
    for (std::size_t i = 0; i < length; ++i) {
        chunk[i] = pattern[i % 16];
    }
    return chunk;
}

Bytes packets(Input& recipe) {
    Bytes all;
    for (unsigned count = recipe.byte() % 8U; count > 0; --count) {
        const std::size_t length = std::max<std::size_t>(recipe.byte(), kShortestPacket);
        Bytes packet = recipe.bytes(length - 2);
        packet.resize(length);
        packet[0] = 0x55;
        packet[1] = static_cast<std::uint8_t>(length);
        packet[3] = header_sum(std::span(packet).first(3));
        const std::uint16_t sum = packet_sum(std::span(packet).first(length - 2));
        packet[length - 2] = static_cast<std::uint8_t>(sum);
        packet[length - 1] = static_cast<std::uint8_t>(sum >> 8);
        append(all, packet);
    }
    return all;
}

Bytes strange_chunk(Input& recipe) {
    Bytes envelope = video_envelope(Bytes{0x00, 0x00, 0x01, 0x65});
    envelope[6] = recipe.byte();
    envelope[7] = static_cast<std::uint8_t>(recipe.byte() | 1);
    return envelope;
}

Bytes next_envelope(Input& recipe) {
    switch (recipe.byte() % 6) {
        case 0:
            return video_envelope(recipe.bytes(recipe.byte()));
        case 1:
            return video_envelope(long_chunk(recipe));
        case 2:
            return control_envelope(packets(recipe));
        case 3:
            return control_envelope(recipe.bytes(recipe.byte()));
        case 4:
            return video_envelope(filler_chunk());
        default:
            return strange_chunk(recipe);
    }
}

}  // namespace

Bytes stream_of_recipe(Input& recipe) {
    Bytes stream;
    for (std::size_t count = 0;
         count < kMostEnvelopes && stream.size() < kMostBytes && !recipe.empty(); ++count) {
        append(stream, next_envelope(recipe));
    }
    stream.push_back(0x55);
    return stream;
}
