// What goes over the socket between a process with simulated gadgetfs files and the kernel model:
// one SOCK_SEQPACKET connection per open file, one message per send. Both ends run on one machine
// and are built together, so that the headers are plain records in its byte order.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

// Name of the socket in the root directory of the run.
inline constexpr char kGadgetfsSocketName[] = "gadgetfs.sock";

// -- requests: the opening of any file, all of the control file, an endpoint's configuration record

enum class FileOperation : std::uint32_t {
    kOpen = 1,    // bytes: the file's name below /dev/gadget; always the first message
    kRead = 2,    // argument: the caller's buffer size; answered when there is something to read
    kWrite = 3,   // bytes: what is written
    kPoll = 4,    // argument: the timeout in ms, negative for none; flags: the wanted events
    kCancel = 5,  // the request before is no longer waited for; answered once that is so
    kClose = 6,   // the file's holder closes it; not answered
};

struct FileRequest {
    FileOperation operation;
    std::uint32_t id;  // counts up; a reply to another id than the last one is stale
    std::int32_t flags;
    std::int32_t argument;
};

struct FileReply {
    std::uint32_t id;
    std::int32_t result;  // as of the call, -1 with an error number
    std::int32_t error;
    std::int32_t direction;  // after a configuration record: 0x80 for an IN endpoint, else 0
};

// Result of an open: which kind of file it was.
inline constexpr int kControlFileOpened = 0;
inline constexpr int kEndpointFileOpened = 1;

// The largest description that gadgetfs takes, and some more so that it can be refused.
inline constexpr std::size_t kLargestFileMessage = 20000;

// -- packets: an endpoint once it is configured, each with its kind in the first byte

enum class PacketKind : std::uint8_t {
    kData = 0,   // a transfer of any length, none included
    kError = 1,  // to the process: its read fails with the int32 error number that follows
    kIoctl = 2,  // to the model: the int32 request number that follows
    kClose = 3,  // to the model: the holder closes the file; a read may still be under way
};

// Room for what is on its way in one direction: some fifty transfers of 512 bytes, with the
// kernel's overhead. So a sender soon waits for the reader, and yet the two need not take turns at
// each packet. It also bounds a transfer.
inline constexpr int kEndpointSocketBuffer = 65536;

// The model's socket in a root directory. The call is connect() or bind() of the socket; its result
// and errno. Takes roots of any length, which sun_path does not.
int with_gadgetfs_address(const std::string& root, int socket_fd,
                          int (*call)(int, const sockaddr*, socklen_t));
