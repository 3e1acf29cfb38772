// The decoder: packets one behind the other, with valid sums (a mutator of its own puts them in),
// on a record that lies between poisoned bytes.
//
// Expected: a message writes its own fields and no others, what is copied is copied right, numbers
// are printed as a second printer does, each text ends in its field, and what is sent to the camera
// is what the message asks for.
#include <sanitizer/asan_interface.h>
#include <string.h>

#include <cstdio>
#include <random>

#include "fuzz/camera_end.h"
#include "fuzz/fuzz_check.h"
#include "fuzz/input.h"
#include "fuzz/log.h"
#include "fuzz/state_fields.h"
#include "protocol/little_endian.h"
#include "protocol/telemetry_decode.h"
#include "simulator/camera_stream.h"

namespace {

struct GuardedRecord {
    std::uint8_t before[256];
    alignas(64) CameraState state;
    std::uint8_t after[256];
};

GuardedRecord record;

const std::uint8_t* bytes_of(const CameraState& state) {
    return reinterpret_cast<const std::uint8_t*>(&state);
}

Bytes snapshot() {
    return {bytes_of(record.state), bytes_of(record.state) + sizeof record.state};
}

// -- one message
// -----------------------------------------------------------------------------------

// Two of the kinds are only taken with their command.
bool is_taken(std::span<const std::uint8_t> packet) {
    if (packet.size() == 15) {
        return packet[8] == 0 && packet[9] == 0x09 && packet[10] == 0x52;
    }
    return packet.size() != 25 || (packet[9] == 0x04 && packet[10] == 0x05);
}

void check_fields(std::span<const std::uint8_t> packet, Bytes before) {
    const Bytes now = snapshot();
    for (const FieldOfMessage& row : kFieldsOfMessages) {
        if (!is_taken(packet) || !writes(static_cast<int>(packet.size()), row)) {
            continue;
        }
        // What is left of the record must be as it was.
        memcpy(&before[row.field.offset], &now[row.field.offset], row.field.size);
        Bytes expected(row.field.size);
        memcpy(expected.data(), &packet[row.at], row.copied);
        FUZZ_CHECK(row.at == 0 ||
                   memcmp(expected.data(), &now[row.field.offset], row.field.size) == 0);
    }
    FUZZ_CHECK(now == before);
    for (const StateField& text : kTexts) {
        FUZZ_CHECK(memchr(&now[text.offset], '\0', text.size) != nullptr);
    }
}

std::string clock_text(unsigned seconds) {
    char text[32] = {};
    snprintf(text, sizeof text, seconds < 36000 ? "0%u:" : "%u:", seconds / 3600);
    snprintf(text + 3, sizeof text - 3, "%02u:", seconds / 60 % 60);
    snprintf(text + 6, sizeof text - 6, "%02u", seconds % 60);
    return text;
}

std::string gigabytes_text(float gigabytes) {
    char text[32] = "";
    if (gigabytes != 0) {
        snprintf(text, sizeof text, "%1.1fG", static_cast<double>(gigabytes));
    }
    return text;
}

std::string aperture_text(unsigned raw) {
    char text[32];
    snprintf(text, sizeof text, raw % 100 == 0 ? "%1.0f" : "%1.1f", raw * 0.01);
    return text;
}

// Where the bits mean nothing, the text is what it was.
std::string shutter_text(unsigned raw, const std::string& otherwise) {
    const unsigned low = raw & 0xFF;
    const unsigned middle = raw >> 8 & 0xFF;
    const std::string decimals = raw >> 16 != 0 ? "." + std::to_string(raw >> 16) : "";
    if (middle == 0) {
        return std::to_string(low) + decimals + "\"";
    }
    return middle < 128 ? otherwise : "1/" + std::to_string(low + (middle - 128) * 256) + decimals;
}

struct ShutterTexts {
    std::string current, set;
    unsigned raw;
};

ShutterTexts shutter_texts() {
    return {record.state.shutter, record.state.shutter_set, record.state.shutter_raw};
}

void check_numbers(std::size_t length, const ShutterTexts& before) {
    const CameraState& state = record.state;
    if (length == 22) {
        FUZZ_CHECK(state.ssd == gigabytes_text(static_cast<float>(state.ssd_free_raw) / 1024.0F));
    } else if (length == 49 || length == 50) {
        FUZZ_CHECK(state.sd == gigabytes_text(static_cast<float>(state.sd_free_raw) * 0.001F));
        FUZZ_CHECK(state.rec_time == clock_text(state.rec_time_raw));
        FUZZ_CHECK(state.rec_time_left == clock_text(state.rec_time_left_raw));
    } else if (length == 85 || length == 104) {
        FUZZ_CHECK(state.aperture == aperture_text(state.aperture_raw));
        FUZZ_CHECK(state.shutter == shutter_text(state.shutter_raw, before.current));
        // The setting shows the message before, in a field that cuts at nine characters.
        FUZZ_CHECK(state.shutter_set == shutter_text(before.raw, before.set).substr(0, 9));
    }
}

// A gimbal that reports a fault is restarted; a camera that hangs in a shot is stopped.
std::size_t packets_asked_for(std::span<const std::uint8_t> packet) {
    if (packet.size() == 18) {
        return packet[8] == 0 && (packet[12] == 0x84 || packet[12] % 2 == 1) ? 1 : 0;
    }
    if (packet.size() == 49 || packet.size() == 50) {
        return (packet[13] & 0x08) != 0 && (packet[42] & 1) == 0 && (packet[11] & 0x20) == 0 ? 2
                                                                                             : 0;
    }
    return 0;
}

std::string expected_log(std::span<const std::uint8_t> packet) {
    if (packet.size() == 18) {
        return record.state.gimbal_error != 0 ? "gimbal error\n" : "";
    }
    return packets_asked_for(packet) == 2 ? "Camera shoting stop\n" : "";
}

bool sums_hold(std::span<const std::uint8_t> packet) {
    return packet[3] == header_sum(packet.first(3)) &&
           read_le16(&packet[packet.size() - 2]) == packet_sum(packet.first(packet.size() - 2));
}

void decode(std::span<const std::uint8_t> bytes) {
    const ExactBlock block(bytes);
    const std::span<const std::uint8_t> packet(block.data(), block.size());
    const Bytes before = snapshot();
    const ShutterTexts shutters_before = shutter_texts();

    telemetry_decode(&record.state, packet.data(), packet.size());

    const std::string log = take_log();
    const std::size_t sent = take_sent().size();
    if (packet.size() < 10 || packet[0] != 0x55 || packet[1] != packet.size()) {
        FUZZ_CHECK(log.empty() && sent == 0 && snapshot() == before);
    } else if (!sums_hold(packet)) {
        FUZZ_CHECK(log == "CRC16 wrong\n" || log == "CRC8 wrong\n");
        FUZZ_CHECK(sent == 0 && snapshot() == before);
    } else {
        check_fields(packet, before);
        check_numbers(packet.size(), shutters_before);
        FUZZ_CHECK(log == expected_log(packet));
        FUZZ_CHECK(sent == packets_asked_for(packet));
    }
}

// The packets one behind the other, by their own length bytes.
std::size_t next_length(std::span<const std::uint8_t> rest) {
    const std::size_t length = rest.size() > 1 ? rest[1] : rest.size();
    return std::clamp<std::size_t>(length, 1, rest.size());
}

void seal(std::span<std::uint8_t> packet) {
    packet[0] = 0x55;
    packet[1] = static_cast<std::uint8_t>(packet.size());
    packet[3] = header_sum(packet.first(3));
    write_le16(&packet[packet.size() - 2], packet_sum(packet.first(packet.size() - 2)));
}

}  // namespace

extern "C" {
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);
int LLVMFuzzerInitialize(int* argument_count, char*** arguments);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                    unsigned seed);
}

int LLVMFuzzerInitialize(int* /*argument_count*/, char*** /*arguments*/) {
    record_log();
    ASAN_POISON_MEMORY_REGION(record.before, sizeof record.before);
    ASAN_POISON_MEMORY_REGION(&record.state + 1, sizeof record.after);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    memset(static_cast<void*>(&record.state), 0, sizeof record.state);
    for (std::span<const std::uint8_t> rest(data, size); !rest.empty();) {
        const std::size_t length = next_length(rest);
        decode(rest.first(length));
        rest = rest.subspan(length);
    }
    // Nobody but the caller's record was written.
    static const CameraState untouched{};
    FUZZ_CHECK(memcmp(bytes_of(camera_state), bytes_of(untouched), sizeof untouched) == 0);
    return 0;
}

// The library's mutation, then now and then a packet of a length that means something at the end;
// and sums for all, but for one packet in sixteen, whose sums are what they are.
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                    unsigned seed) {
    constexpr std::uint8_t kLengths[] = {15, 18, 19, 22, 25, 49, 50, 52, 53, 59, 77, 85, 104};
    std::minstd_rand random(seed);
    size = LLVMFuzzerMutate(data, size, max_size);
    const std::size_t fresh = kLengths[random() % std::size(kLengths)];
    if (random() % 4 == 0 && size + fresh <= max_size) {
        std::generate_n(data + size, fresh, [&] { return static_cast<std::uint8_t>(random()); });
        data[size + 1] = static_cast<std::uint8_t>(fresh);
        size += fresh;
    }
    for (std::span<std::uint8_t> rest(data, size); !rest.empty();) {
        if (random() % 8 == 0 && rest.size() > 1) {
            rest[1] = kLengths[random() % std::size(kLengths)];
        }
        const std::size_t length = next_length(rest);
        if (length >= 10 && length <= 255 && random() % 16 != 0) {
            seal(rest.first(length));
        }
        rest = rest.subspan(length);
    }
    return size;
}
