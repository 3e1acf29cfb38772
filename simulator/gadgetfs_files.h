// The process's side of the simulated gadgetfs files: thin, since the kernel's rules are kept at
// the other end of the socket. Thread-safe as the kernel's calls are, except that the control file
// is for one thread at a time.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

enum class GadgetfsFile : std::uint8_t {
    kNone,        // not a file of ours
    kControl,     // every call is a request to the model
    kEndpoint,    // open, but without its configuration record
    kInEndpoint,  // configured: packets
    kOutEndpoint,
};

// What the descriptor is. Lock-free, for it is asked in every read() of the process.
GadgetfsFile gadgetfs_file(int fd);

// Opens a file below /dev/gadget at the model that serves $GADGETFS_SIM_ROOT. False where none
// does, or where the path names no file below it: then it is a plain file. Else *fd is the open
// file, or -1 with errno.
bool open_gadgetfs_file(const char* path, int flags, int* fd);

// The calls on an open one of that kind: results and errno as of the kernel's. Reads, and writes of
// data to an endpoint, are cancellation points.
ssize_t read_gadgetfs_file(int fd, GadgetfsFile kind, void* buffer, std::size_t size);
ssize_t write_gadgetfs_file(int fd, GadgetfsFile kind, const void* bytes, std::size_t length);
int ioctl_gadgetfs_file(int fd, GadgetfsFile kind, unsigned long request);

// Tells the model and forgets the descriptor, which the caller then closes.
void forget_gadgetfs_file(int fd, GadgetfsFile kind);

// poll() of a set that holds a control file; the set's other descriptors get no events.
int poll_control_file(pollfd* fds, nfds_t count, int timeout_ms);
