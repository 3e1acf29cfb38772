// The dispatcher: datagrams of the main application, divided by the byte 1E, on a camera state
// whose codes the first bytes give.
//
//   byte:  0      1           2..3         4          5 ..
//          model  focus auto  focus range  assistant  datagrams
#include <string.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "app/focus_config.h"
#include "app/system_paths.h"
#include "control/app_command_dispatch.h"
#include "control/rc_settings.h"
#include "fuzz/camera_end.h"
#include "fuzz/focus_limits.h"
#include "fuzz/fuzz_check.h"
#include "fuzz/input.h"
#include "fuzz/log.h"
#include "fuzz/own_places.h"
#include "protocol/camera_packet.h"
#include "protocol/camera_state.h"
#include "tests/wrapped_calls.h"

namespace {

constexpr std::uint8_t kDivider = 0x1E;
constexpr std::size_t kLongestDatagram = 10000;  // the channel's buffer

std::string written;  // to standard error, past its stream

// What was saved is what the next start loads, and the partition is mounted as it was.
void check_saved_limits(const std::vector<std::string>& commands) {
    const Limits saved = limits();
    set_limits({-1, -1});
    FUZZ_CHECK(focus_config_load() == 0);
    FUZZ_CHECK(limits() == saved);
    FUZZ_CHECK((commands == std::vector<std::string>{kMakeBootWritable, kUnmountBoot, kMountBoot}));
}

void check_zoom_message(std::span<const std::uint8_t> datagram, std::size_t sent) {
    const unsigned sub_command = datagram.size() > 1 ? datagram[1] : 0;
    const unsigned low = datagram.size() > 2 ? datagram[2] : 0;
    const unsigned high = datagram.size() > 3 ? datagram[3] : 0;
    const auto value = static_cast<std::int16_t>(low | high << 8);
    FUZZ_CHECK(sub_command != 1 || rc_digital_zoom_step == value);
    FUZZ_CHECK(sent == (sub_command != 2 ? 0U : value == 0 ? 2U : 1U));
}

void dispatch(const Bytes& bytes) {
    const ExactBlock datagram(bytes);
    const Limits limits_before = limits();
    const std::uint16_t sequence_before = camera_packet_seq;

    app_command_dispatch(datagram.data(), static_cast<std::uint16_t>(datagram.size()), "127.0.0.1",
                         40000);

    const std::string log = take_log();
    const std::string line = std::exchange(written, {});
    const auto sent = take_sent();
    FUZZ_CHECK(sent.size() <= 6);
    FUZZ_CHECK(static_cast<std::uint16_t>(camera_packet_seq - sequence_before) == sent.size());
    FUZZ_CHECK(gimbal_movement_mode >= kMovementUnset && gimbal_movement_mode <= kMovementAbsolute);

    const std::uint8_t kind = bytes.empty() ? 0 : bytes[0];
    if (kind == 0x05) {
        FUZZ_CHECK(line.empty());
        check_zoom_message(bytes, sent.size());
    } else if (kind != '!') {
        FUZZ_CHECK(log.empty() && line.empty() && sent.empty());
    } else if (line.empty()) {
        FUZZ_CHECK(log.empty() && sent.empty());  // "set", which only changes the mode
    } else {
        const auto* const text = reinterpret_cast<const char*>(datagram.data()) + 1;
        const std::string json(text, strnlen(text, datagram.size() - 1));
        FUZZ_CHECK(line == "JSON commands from app: " + json + "\n");
    }
    const std::vector<std::string> commands = take_commands();
    if (!commands.empty()) {
        check_saved_limits(commands);
    } else {
        FUZZ_CHECK(limits() == limits_before);
    }
}

}  // namespace

extern "C" {
int LLVMFuzzerInitialize(int* argument_count, char*** arguments);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

ssize_t __wrap_write(int fd, const void* bytes, std::size_t length) {
    if (fd != STDERR_FILENO) {
        return __real_write(fd, bytes, length);
    }
    written.append(static_cast<const char*>(bytes), length);
    return static_cast<ssize_t>(length);
}

int LLVMFuzzerInitialize(int* /*argument_count*/, char*** /*arguments*/) {
    use_own_places();
    record_log();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    memset(static_cast<void*>(&camera_state), 0, sizeof camera_state);
    camera_state.camera_model_code = input.byte();
    camera_state.focus_auto = input.byte();
    camera_state.focus_range = static_cast<std::uint16_t>(input.word());
    camera_state.focus_byte42 = input.byte();
    gimbal_movement_mode = kMovementUnset;
    rc_digital_zoom_step = 0;
    set_limits({0, 0});

    Bytes datagram;
    const Bytes rest = input.rest();
    for (std::size_t i = 0; i <= rest.size(); ++i) {
        if (i == rest.size() || rest[i] == kDivider || datagram.size() == kLongestDatagram) {
            dispatch(datagram);
            datagram.clear();
        } else {
            datagram.push_back(rest[i]);
        }
    }
    return 0;
}
