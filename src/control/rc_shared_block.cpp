#include "control/rc_shared_block.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include "app/system_paths.h"

namespace {

constexpr mode_t kOwnerOnly = 0600;

int open_or_create() {
    const int fd = shm_open(kRcRawName, O_RDWR, kOwnerOnly);
    if (fd >= 0) {
        fprintf(stderr, "Shared raw RC mem opened\n");
        return fd;
    }
    fprintf(stderr, "Creating new shared raw RC\n");
    return shm_open(kRcRawName, O_RDWR | O_CREAT, kOwnerOnly);
}

}  // namespace

RcRawBlock* rc_shm_open() {
    const int fd = open_or_create();
    if (fd < 0) {
        return nullptr;
    }
    void* memory = MAP_FAILED;
    if (ftruncate(fd, kRcRawBlockSize) == 0) {
        memory = mmap(nullptr, kRcRawBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    if (memory == MAP_FAILED) {
        close(fd);
        return nullptr;
    }
    return static_cast<RcRawBlock*>(memory);
}
