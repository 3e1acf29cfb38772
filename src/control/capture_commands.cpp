#include "control/capture_commands.h"

#include <stdio.h>

#include "control/packet_table.h"
#include "control/send_packet.h"
#include "control/word_table.h"

namespace {

// clang-format off
constexpr WordPackets kModes[] = {
    {"photo", "Camera set mode photo\n", send_packets<kModePhoto>},
    {"video", "Camera set mode video\n", send_packets<kModeVideo>},
};
// clang-format on

}  // namespace

int camera_record(int start) {
    if (start != 0) {
        fprintf(stderr, "Record start\n");
        return send_packet(kRecordStart);
    }
    fprintf(stderr, "Record stop\n");
    return send_packet(kRecordStop);
}

int camera_shot() {
    fprintf(stderr, "Camera shot\n");
    return send_packet(kShot);
}

int camera_stop_shooting() {
    fprintf(stderr, "Camera shoting stop\n");  // spelt as it always was: logs are searched for it
    return send_packets<kStopShooting1, kStopShooting2>();
}

int camera_set_mode(const char* mode) {
    return send_word(kModes, mode);
}
