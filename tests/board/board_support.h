// What the tests on the virtual board share: the board as at power-on, the receiver on it, and the
// USB host at the other end of its cable.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "simulator/usb_host.h"
#include "tests/board/board_controls.h"
#include "tests/e2e/receiver_process.h"

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

inline constexpr char kPathWithStandIn[] = "PATH=/board/bin:/bin:/sbin:/usr/bin:/usr/sbin";

// A reader with nothing behind it, which says "USB connected\n" too.
inline constexpr char kBareReader[] = "/mnt/build/tests/board/bare-reader";

// What the receiver prints, without its first run's words about the channel block, until the host
// may come.
inline constexpr char kStartLines[] =
    "DJI Osmo Pro/RAW Wired USB receiver\n"
    "Board model: Raspberry Pi 4 Model B Rev 1.4\n"
    "Board supported\n"
    "Loading camera config file... failed\n"
    "Init telemetry buffer\n"
    "Init frame buffer 60003624 bytes\n"
    "Init frame buffer for transcoding 13003624 bytes\n"
    "Creating new shared raw RC\n"
    "Mounting gadgetfs\n"
    "USB device opened\n"
    "Gadget init done\n";
// When the first video has come.
inline constexpr char kFirstVideoLines[] =
    "Live stream video resolution changed to 1280x720\n"
    "Clear frame shared memory\n";
// When a read has failed, to the end with status 1.
inline constexpr char kFailedLinkLines[] =
    "read failed\n"
    "poll error or break!\n"
    "Exit gadget\n"
    "USB receiver exit\n";

class BoardTest : public testing::Test {
  protected:
    BoardTest();
    ~BoardTest() override;

    void start(const std::vector<std::string>& arguments = {});
    // The same until the host has enumerated the device and holds its interface. The clock is put
    // back on the way, so that a slow emulation does not count as the camera's silence.
    void start_linked(const std::vector<std::string>& arguments = {});
    // The host's part of that.
    void link_up();
    // The same until data flows.
    void start_streaming(const std::vector<std::string>& arguments = {});

    // A start on the board as it is, say right after an end: the process gets the device, the host
    // and its data into the ring.
    void expect_start_works();
    // Of a process that has had no video yet.
    void expect_video_passes();

    // Waits for the end of a link that has failed: status 1, and the lines after the start's, with
    // kFailedLinkLines behind the given ones.
    void expect_link_end(const std::string& lines);
    // The port, while the receiver services endpoint zero: until it has noticed.
    void switch_port_off();
    // The receiver's lines after the start's, "delta N" left out. Fails where those are not first.
    // A host resets the bus twice while it enumerates. A look of the receiver that falls into the
    // moment after the second reset sees a disconnection: what this adds to a first connection or
    // a disconnection before it is left out as well.
    std::string lines_after_start() const;
    // kStartLines, or what stands there when an earlier process has made the channel block.
    std::string start_lines() const;

    std::unique_ptr<ReceiverProcess> receiver;
    std::unique_ptr<UsbHost> host;

  private:
    int starts_ = 0;
};

// Envelopes with filler chunks, which the receiver takes and drops: at least this many bytes.
Bytes idle_stream(std::size_t size);
