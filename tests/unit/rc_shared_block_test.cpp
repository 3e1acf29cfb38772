// Opening the remote control's shared memory. The object is a memory file of the test's own; the
// calls are linked with -Wl,--wrap and told in order.
#include "control/rc_shared_block.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

bool object_is_there = true;
bool object_can_be_created = true;
bool size_can_be_set = true;
bool memory_can_be_mapped = true;
off_t size_at_first = 0;
int descriptor = -1;  // of the object, as the code under test has it
void* mapping = nullptr;

int give_descriptor() {
    descriptor = memfd_create("rc_raw", 0);
    if (size_at_first != 0 && posix_fallocate(descriptor, 0, size_at_first) != 0) {
        return -1;
    }
    return descriptor;
}

}  // namespace

extern "C" {

int __wrap_shm_open(const char* name, int flags, mode_t mode);
int __wrap_ftruncate(int fd, off_t length);
int __wrap_close(int fd);
void* __wrap_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset);
int __real_ftruncate(int fd, off_t length);
int __real_close(int fd);
void* __real_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset);

int __wrap_shm_open(const char* name, int flags, mode_t mode) {
    fprintf(stderr, "[shm_open %s %s %o]\n", name,
            flags == O_RDWR               ? "rw"
            : flags == (O_RDWR | O_CREAT) ? "rw,create"
                                          : "?",
            static_cast<unsigned>(mode));
    if ((flags & O_CREAT) != 0 ? !object_can_be_created : !object_is_there) {
        errno = ENOENT;
        return -1;
    }
    return give_descriptor();
}

int __wrap_ftruncate(int fd, off_t length) {
    fprintf(stderr, "[ftruncate %ld]\n", static_cast<long>(length));
    return size_can_be_set ? __real_ftruncate(fd, length) : -1;
}

int __wrap_close(int fd) {
    if (fd == descriptor) {
        fprintf(stderr, "[close]\n");
    }
    return __real_close(fd);
}

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
    const bool as_wanted = protection == (PROT_READ | PROT_WRITE) && flags == MAP_SHARED &&
                           fd == descriptor && offset == 0;
    fprintf(stderr, "[mmap %zu %s]\n", length, as_wanted ? "rw,shared" : "?");
    mapping = memory_can_be_mapped ? __real_mmap(address, length, protection, flags, fd, offset)
                                   : MAP_FAILED;
    return mapping;
}

}  // extern "C"

namespace {

class RcSharedBlock : public testing::Test {
  protected:
    void SetUp() override {
        object_is_there = object_can_be_created = size_can_be_set = memory_can_be_mapped = true;
        size_at_first = 0;
        descriptor = -1;
        mapping = nullptr;
    }

    std::string open() {
        testing::internal::CaptureStderr();
        block_ = rc_shm_open();
        return testing::internal::GetCapturedStderr();
    }

    static bool is_open(int fd) { return fcntl(fd, F_GETFD) >= 0; }

    RcRawBlock* block_ = nullptr;
};

TEST_F(RcSharedBlock, ObjectThatIsThereIsOpened) {
    EXPECT_EQ(open(),
              "[shm_open /shared_rc_raw rw 600]\n"
              "Shared raw RC mem opened\n"
              "[ftruncate 1504]\n"
              "[mmap 1504 rw,shared]\n");
    EXPECT_NE(block_, nullptr);
    EXPECT_EQ(block_, mapping);
    EXPECT_TRUE(is_open(descriptor));
}

TEST_F(RcSharedBlock, MissingObjectIsCreated) {
    object_is_there = false;
    EXPECT_EQ(open(),
              "[shm_open /shared_rc_raw rw 600]\n"
              "Creating new shared raw RC\n"
              "[shm_open /shared_rc_raw rw,create 600]\n"
              "[ftruncate 1504]\n"
              "[mmap 1504 rw,shared]\n");
    EXPECT_EQ(block_, mapping);
    EXPECT_TRUE(is_open(descriptor));
}

TEST_F(RcSharedBlock, ObjectOfAnotherSizeGetsTheBlocks) {
    for (const off_t size : {100, 1504, 65536}) {
        size_at_first = size;
        open();
        struct stat status {};
        ASSERT_EQ(fstat(descriptor, &status), 0);
        EXPECT_EQ(status.st_size, 1504);
    }
}

TEST_F(RcSharedBlock, WritersBytesAreSeenAtTheirOffsets) {
    open();
    ASSERT_NE(block_, nullptr);
    const double value = -0.75;
    ASSERT_EQ(pwrite(descriptor, &value, sizeof(value), 1392), 8);
    EXPECT_EQ(read_rc_channel(block_->ev_prev), -0.75);
    const std::uint8_t enable = 7;
    ASSERT_EQ(pwrite(descriptor, &enable, 1, 1490), 1);
    EXPECT_EQ(read_rc_word(block_->ev_abs_enable), 7);
}

TEST_F(RcSharedBlock, ObjectThatCannotBeCreatedIsNone) {
    object_is_there = object_can_be_created = false;
    EXPECT_EQ(open(),
              "[shm_open /shared_rc_raw rw 600]\n"
              "Creating new shared raw RC\n"
              "[shm_open /shared_rc_raw rw,create 600]\n");
    EXPECT_EQ(block_, nullptr);
}

TEST_F(RcSharedBlock, ObjectThatCannotGetItsSizeIsClosed) {
    size_can_be_set = false;
    EXPECT_EQ(open(),
              "[shm_open /shared_rc_raw rw 600]\n"
              "Shared raw RC mem opened\n"
              "[ftruncate 1504]\n"
              "[close]\n");
    EXPECT_EQ(block_, nullptr);
    EXPECT_FALSE(is_open(descriptor));
}

TEST_F(RcSharedBlock, ObjectThatCannotBeMappedIsClosed) {
    memory_can_be_mapped = false;
    EXPECT_EQ(open(),
              "[shm_open /shared_rc_raw rw 600]\n"
              "Shared raw RC mem opened\n"
              "[ftruncate 1504]\n"
              "[mmap 1504 rw,shared]\n"
              "[close]\n");
    EXPECT_EQ(block_, nullptr);
    EXPECT_FALSE(is_open(descriptor));
}

}  // namespace
