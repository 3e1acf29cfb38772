#include "tests/board/board_support.h"

#include <sys/mman.h>

#include <filesystem>

#include "simulator/camera_stream.h"
#include "tests/board/full_rate_stream.h"

BoardTest::BoardTest() : host(std::make_unique<UsbHost>()) {
    for (const auto& object : std::filesystem::directory_iterator("/dev/shm")) {
        std::filesystem::remove(object);
    }
    unload_gadgetfs();
    load_controller();
    set_clock(ClockHalf::kNegative);
}

BoardTest::~BoardTest() {
    if (HasFailure() && receiver) {
        printf("-- the receiver's lines\n%s--\n", receiver->output().c_str());
    }
}

void BoardTest::start(const std::vector<std::string>& arguments) {
    receiver.reset();
    ++starts_;
    receiver =
        std::make_unique<ReceiverProcess>(arguments, std::vector<std::string>{kPathWithStandIn});
}

void BoardTest::start_linked(const std::vector<std::string>& arguments) {
    start(arguments);
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 20s)) << receiver->output();
    set_clock_back(60s);
    link_up();
}

void BoardTest::link_up() {
    ASSERT_TRUE(host->wait_for_device(20s)) << receiver->output();
    ASSERT_TRUE(host->open());
    ASSERT_TRUE(host->claim());
    ASSERT_TRUE(receiver->wait_for("USB connected\n", 1s)) << receiver->output();
}

void BoardTest::start_streaming(const std::vector<std::string>& arguments) {
    ASSERT_NO_FATAL_FAILURE(start_linked(arguments));
    ASSERT_TRUE(host->bulk_out(idle_stream(512)));
    ASSERT_TRUE(host->wait_for_bulk_out_taken(10s)) << receiver->output();
}

std::string BoardTest::lines_after_start() const {
    const std::string printed = receiver->lines_without_delta();
    const std::string first = start_lines();
    EXPECT_TRUE(printed.starts_with(first)) << printed;
    std::string lines = printed.substr(std::min(printed.size(), first.size()));
    const std::string connected = "USB connected\n";
    const std::string disconnected = "USB disconnected\n";
    if (lines.starts_with(disconnected + connected)) {
        lines.erase(0, disconnected.size());
    }
    // Twice at most: the cable's, or an earlier port's, and the one of the enumeration.
    for (std::size_t at = 0;
         (at = lines.find(disconnected + disconnected, at)) != std::string::npos;
         at += disconnected.size()) {
        lines.erase(at, disconnected.size());
    }
    return lines;
}

void BoardTest::switch_port_off() {
    const std::string line = "USB disconnected\n";
    const int before = receiver->count(line);
    switch_port(false);
    ASSERT_TRUE(receiver->wait_for(line, 5s, before + 1)) << receiver->output();
}

std::string BoardTest::start_lines() const {
    std::string lines = kStartLines;
    const std::string first = "Creating new shared raw RC\n";
    if (starts_ > 1) {
        lines.replace(lines.find(first), first.size(), "Shared raw RC mem opened\n");
    }
    return lines;
}

void BoardTest::expect_start_works() {
    ASSERT_NO_FATAL_FAILURE(start_linked());
    expect_video_passes();
    EXPECT_EQ(lines_after_start(), std::string("USB connected\n") + kFirstVideoLines);
}

void BoardTest::expect_video_passes() {
    NumberedParts parts;
    const FullRateStream stream(*host);
    EXPECT_GE(parts.wait_for(3, 10s), 3U) << receiver->output();
    EXPECT_FALSE(parts.damaged());
}

void BoardTest::expect_link_end(const std::string& lines) {
    EXPECT_EQ(receiver->wait_exit(20s), 1);
    EXPECT_EQ(lines_after_start(), lines + kFailedLinkLines);
}

Bytes idle_stream(std::size_t size) {
    Bytes stream;
    const Bytes envelope = video_envelope(filler_chunk());
    while (stream.size() < size) {
        stream.insert(stream.end(), envelope.begin(), envelope.end());
    }
    return stream;
}
