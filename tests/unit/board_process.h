// What a test needs that stands in the receiver's place on the simulated board: descriptors to
// write, files that close themselves, and the board's root for the interposed calls.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "simulator/simulated_board.h"

// clang-format off
inline const Bytes kDescription = {
    0x00, 0x00, 0x00, 0x00,                                // tag
    9, 2, 32, 0, 1, 2, 250, 0xC0, 1,                       // full speed: configuration 2
    9, 4, 0, 0, 2, 0xFF, 0, 0, 250,
    7, 5, 0x86, 2, 64, 0, 0,
    7, 5, 0x02, 2, 64, 0, 0,
    9, 2, 32, 0, 1, 2, 250, 0xC0, 1,                       // high speed
    9, 4, 0, 0, 2, 0xFF, 0, 0, 250,
    7, 5, 0x86, 2, 0x00, 0x02, 0,
    7, 5, 0x02, 2, 0x00, 0x02, 0,
    18, 1, 0x00, 0x02, 0xFF, 0, 0, 0, 0xD1, 0x18, 0x01, 0x2D, 0, 0, 25, 45, 101, 1,
};
inline const Bytes kInRecord = {
    0x01, 0x00, 0x00, 0x00,
    7, 5, 0x86, 2, 64, 0, 0,
    7, 5, 0x86, 2, 0x00, 0x02, 0,
};
inline const Bytes kOutRecord = {
    0x01, 0x00, 0x00, 0x00,
    7, 5, 0x02, 2, 64, 0, 0,
    7, 5, 0x02, 2, 0x00, 0x02, 0,
};
// clang-format on

struct OpenFd {
    explicit OpenFd(int descriptor) : fd(descriptor) {}
    ~OpenFd() { reset(); }
    OpenFd(const OpenFd&) = delete;
    OpenFd& operator=(const OpenFd&) = delete;
    void reset() {
        if (fd >= 0) {
            close(fd);
        }
        fd = -1;
    }
    int fd;
};

class RootVariable {
  public:
    explicit RootVariable(const std::string& root) { setenv("GADGETFS_SIM_ROOT", root.c_str(), 1); }
    ~RootVariable() { unsetenv("GADGETFS_SIM_ROOT"); }
    RootVariable(const RootVariable&) = delete;
    RootVariable& operator=(const RootVariable&) = delete;
};
