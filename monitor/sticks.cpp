#include "monitor/sticks.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>

namespace {

constexpr char kChannelBlock[] = "shared_rc_raw";
constexpr off_t kChannelBlockSize = 1504;
constexpr off_t kPanOffset = 1056;  // tilt and dutch behind it

// Opened for each write: a receiver that was started anew may have made another block.
bool write_sticks(const StickPosition& position) {
    const int fd = shm_open(kChannelBlock, O_RDWR | O_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    const double channels[] = {position.pan, position.tilt, position.dutch};
    struct stat status {};
    const bool written = fstat(fd, &status) == 0 && status.st_size >= kChannelBlockSize &&
                         pwrite(fd, channels, sizeof channels, kPanOffset) == sizeof channels;
    close(fd);
    return written;
}

bool in_range(double value) {
    return std::isfinite(value) && value >= -1 && value <= 1;
}

}  // namespace

Sticks::Sticks(std::chrono::milliseconds held_for)
    : held_for_(held_for), thread_([this] { watch(); }) {}

Sticks::~Sticks() {
    {
        const std::lock_guard lock(mutex_);
        if (rest_at_) {
            rest();
        }
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Sticks::put_to_rest() {
    const std::lock_guard lock(mutex_);
    rest();
}

std::string Sticks::set(const StickPosition& position, const void* hand) {
    if (!in_range(position.pan) || !in_range(position.tilt) || !in_range(position.dutch)) {
        return "a stick goes from -1 to 1";
    }
    const std::lock_guard lock(mutex_);
    if (!write_sticks(position)) {
        return "there is no receiver's channel block that may be written";
    }
    hand_ = hand;
    rest_at_.reset();
    if (position != StickPosition{}) {
        rest_at_ = std::chrono::steady_clock::now() + held_for_;
    }
    changed_.notify_all();
    return "";
}

void Sticks::release(const void* hand) {
    const std::lock_guard lock(mutex_);
    if (rest_at_ && hand_ == hand) {
        rest();
    }
}

void Sticks::rest() {
    write_sticks({});
    rest_at_.reset();
}

void Sticks::watch() {
    std::unique_lock lock(mutex_);
    while (!stop_) {
        if (!rest_at_) {
            changed_.wait(lock);
        } else if (std::chrono::steady_clock::now() >= *rest_at_) {
            rest();
        } else {
            const auto until = *rest_at_;
            changed_.wait_until(lock, until);
        }
    }
}
