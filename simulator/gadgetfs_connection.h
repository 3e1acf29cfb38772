// One open gadgetfs file, as the model's end sees it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "simulator/gadgetfs_messages.h"
#include "simulator/gadgetfs_model.h"

enum class ConnectionKind { kNew, kControl, kEndpoint, kInEndpoint, kOutEndpoint };

// A call of the process that waits for something to change.
struct WaitingCall {
    FileRequest request;
    std::optional<std::chrono::steady_clock::time_point> deadline;  // of a poll
};

struct GadgetfsConnection {
    explicit GadgetfsConnection(int socket_fd) : fd(socket_fd) {}
    ~GadgetfsConnection();
    GadgetfsConnection(const GadgetfsConnection&) = delete;
    GadgetfsConnection& operator=(const GadgetfsConnection&) = delete;

    const int fd;  // open as long as anyone holds the record
    ConnectionKind kind = ConnectionKind::kNew;
    std::string file;
    std::optional<WaitingCall> waiting;
    std::atomic<bool> off_bus = false;  // its transfers have failed for good
};

// Answers a call. The error is ignored: the process is then gone, which its socket says too.
void send_reply(const GadgetfsConnection& connection, const FileRequest& request,
                const CallResult& result, int direction = 0);

// Fails the endpoint's transfers, now and later, as the kernel does when the host is gone. What was
// sent before is still read.
void take_off_bus(GadgetfsConnection& connection);

// Sends one packet towards the process, waiting for room. False when the time is up or nobody will
// read it. Any thread.
bool send_packet(const GadgetfsConnection& connection, PacketKind kind,
                 std::span<const std::uint8_t> bytes,
                 std::chrono::steady_clock::time_point deadline);

// Bytes that were sent and are not yet read, with the kernel's own overhead.
int unread_bytes(const GadgetfsConnection& connection);
