// The packet scanner: any bytes, against a second scanner whose sums are made bit by bit; and every
// sealed packet is found again. The decoder is replaced by a recorder.
#include "fuzz/fuzz_check.h"
#include "fuzz/input.h"
#include "protocol/camera_packet.h"
#include "protocol/camera_packet_scan.h"
#include "protocol/camera_state.h"
#include "protocol/telemetry_decode.h"
#include "simulator/camera_stream.h"

namespace {

struct Found {
    std::size_t at, length;
    bool operator==(const Found&) const = default;
};

std::vector<Found> found;
const std::uint8_t* scanned = nullptr;
const CameraState* asked_for = nullptr;

// Both sums of the packet that begins there, when it is whole.
bool is_sound(std::span<const std::uint8_t> bytes, std::size_t length) {
    return length >= 4 && length <= bytes.size() && bytes[3] == header_sum(bytes.first(3)) &&
           (bytes[length - 2] | bytes[length - 1] << 8) == packet_sum(bytes.first(length - 2));
}

std::vector<Found> reference_scan(std::span<const std::uint8_t> payload) {
    std::vector<Found> packets;
    for (std::size_t at = 0; at + 1 < payload.size();) {
        const std::size_t length = payload[at + 1];
        if (payload[at] == 0x55 && is_sound(payload.subspan(at), length)) {
            packets.push_back({at, length});
            at += length;
        } else {
            ++at;
        }
    }
    return packets;
}

std::vector<Found> scan(std::span<const std::uint8_t> payload, CameraState* state) {
    const ExactBlock block(payload);
    scanned = block.data();
    asked_for = state != nullptr ? state : &camera_state;
    found.clear();
    camera_packet_scan(state, block.data(), static_cast<std::uint16_t>(block.size()));
    return found;
}

Bytes sealed_packet(std::span<const std::uint8_t> body, std::size_t most) {
    Bytes packet(body.begin(), body.end());
    packet.resize(std::clamp<std::size_t>(body.size(), 10, most));
    packet[0] = 0x55;
    packet[1] = static_cast<std::uint8_t>(packet.size());
    packet[3] = header_sum(std::span(packet).first(3));
    camera_packet_seal(packet.data(), packet.size());
    return packet;
}

// The bytes as a packet of their own, between noise that holds none; then within another one, which
// hides it while it is sound itself.
void check_sealed_packet(std::span<const std::uint8_t> body) {
    const Bytes packet = sealed_packet(body, 200);
    Bytes payload = {0x55, 0xFF, 0x04};  // the start of one that does not fit
    payload.insert(payload.end(), packet.begin(), packet.end());
    payload.push_back(0x55);
    FUZZ_CHECK((scan(payload, nullptr) == std::vector<Found>{{3, packet.size()}}));

    Bytes enclosing(8);
    enclosing.insert(enclosing.end(), packet.begin(), packet.end());
    enclosing.resize(enclosing.size() + 2);
    enclosing = sealed_packet(enclosing, 255);
    FUZZ_CHECK((scan(enclosing, nullptr) == std::vector<Found>{{0, enclosing.size()}}));
    enclosing[4] ^= 1;
    FUZZ_CHECK((scan(enclosing, nullptr) == std::vector<Found>{{8, packet.size()}}));
}

}  // namespace

// In place of protocol/telemetry_decode.cpp.
void telemetry_decode_verified(CameraState* state, const std::uint8_t* packet, std::size_t length) {
    FUZZ_CHECK(state == asked_for);
    found.push_back({static_cast<std::size_t>(packet - scanned), length});
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span payload(data, std::min<std::size_t>(size, 0xFFFF));
    static CameraState state;
    FUZZ_CHECK(scan(payload, &state) == reference_scan(payload));
    check_sealed_packet(payload);
    return 0;
}
