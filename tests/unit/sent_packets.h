// What the commands send, for tests of them: camera_send() and usleep() are replaced by recorders.
// Included by one file of a test.
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "protocol/camera_packet.h"
#include "usb/camera_send.h"

// Packets in hexadecimal, a line each; and the same with the pauses between them.
inline std::string sent_packets;
inline std::string sent_and_paused;
// Result of the next camera_send(); each call raises it by one.
inline ssize_t next_send_result = 0;
// Called at each packet and each pause, where a test wants to see what stands at that moment.
inline void (*at_each_step)() = nullptr;

ssize_t camera_send(const std::uint8_t* packet, std::size_t length) {
    std::string line;
    for (std::size_t i = 0; i < length; ++i) {
        char byte[4];
        snprintf(byte, sizeof(byte), "%02X%c", packet[i], i + 1 == length ? '\n' : ' ');
        line += byte;
    }
    if (at_each_step != nullptr) {
        at_each_step();
    }
    sent_packets += line;
    sent_and_paused += line;
    return next_send_result++;
}

extern "C" int usleep(useconds_t microseconds) {
    if (at_each_step != nullptr) {
        at_each_step();
    }
    sent_and_paused += "pause " + std::to_string(microseconds) + "\n";
    return 0;
}

// One command alone: what it returned, logged and sent.
struct CommandRun {
    int result;
    std::string log;
    std::string packets;
};

template <typename Command>
CommandRun run_command(Command command, std::uint16_t sequence = 0) {
    camera_packet_seq = sequence;
    sent_packets.clear();
    sent_and_paused.clear();
    testing::internal::CaptureStderr();
    const int result = command();
    return {result, testing::internal::GetCapturedStderr(), sent_packets};
}
