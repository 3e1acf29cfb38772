#include "control/device_commands.h"

#include <stdio.h>

#include "control/packet_table.h"
#include "control/send_packet.h"
#include "control/word_table.h"

namespace {

// clang-format off
constexpr WordPackets kHistogramStates[] = {
    {"1", "", send_packets<kHistogramOn>},
    {"0", "", send_packets<kHistogramOff>},
};

constexpr WordPackets kPowerStates[] = {
    {"sleep",    "", send_packets<kPowerSleep>},
    {"wakeup",   "", send_packets<kPowerWakeup>},
    {"restart",  "", send_packets<kPowerRestart>},
    {"shutdown", "", send_packets<kPowerShutdown>},
};

constexpr WordPackets kMedia[] = {
    {"sd",  "Format microSD card\n", send_packets<kFormatSd>},
    {"ssd", "Format SSD\n",          send_packets<kFormatSsd1, kFormatSsd2>},
};

constexpr WordCode kWifiBands[] = {
    {"5.8", 1},
};
// clang-format on

}  // namespace

int camera_reset() {
    return send_packet(kReset);
}

int camera_set_histogram(const char* state) {
    return send_word(kHistogramStates, state);
}

int camera_power(const char* state) {
    return send_word(kPowerStates, state);
}

int camera_format(const char* medium) {
    return send_word(kMedia, medium);
}

int camera_set_wifi_mode(const char* band) {
    fprintf(stderr, "Set Osmo Wi-Fi mode to %s\n", band);
    auto packet = kWifiBand;
    packet[kPayload] = code_of(kWifiBands, band);
    send_packet(packet);
    return send_packet(kWifiApply);
}
