#include "tests/e2e/remote_control.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace {

constexpr std::size_t kBlockSize = 1504;

}  // namespace

RemoteControl::RemoteControl() {
    const int fd = shm_open("/shared_rc_raw", O_RDWR, 0);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0 || status.st_size != kBlockSize) {
        throw std::runtime_error("the receiver has made no channel block");
    }
    block_ = static_cast<std::uint8_t*>(
        mmap(nullptr, kBlockSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    close(fd);
}

RemoteControl::~RemoteControl() {
    munmap(block_, kBlockSize);
}

void RemoteControl::set(std::size_t offset, double value) {
    memcpy(block_ + offset, &value, sizeof(value));
}

void RemoteControl::set_byte(std::size_t offset, std::uint8_t value) {
    block_[offset] = value;
}
