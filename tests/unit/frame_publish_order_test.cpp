// What another process may see of a part while it is being written.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "video/frame_buffers.h"

namespace {

constexpr std::size_t kRingSize = 60003624;
constexpr std::size_t kSlot0 = 24;
constexpr std::size_t kPage = 4096;
constexpr std::uint8_t kNewByte = 0xB0;

using SlotHeader = std::array<std::uint8_t, 18>;

std::uint8_t* ring = nullptr;  // as another process has it mapped
std::uint8_t* locked_page = nullptr;
volatile sig_atomic_t faults = 0;
SlotHeader header_at_fault;
std::ptrdiff_t new_bytes_at_fault = 0;

// The writer has come to the locked page of a part: notes what the slot says now, and lets it go
// on.
void note_slot(int) {
    faults = faults + 1;
    memcpy(header_at_fault.data(), ring + kSlot0, header_at_fault.size());
    new_bytes_at_fault = std::count(ring + kSlot0 + 18, ring + kSlot0 + 18 + kPage, kNewByte);
    mprotect(locked_page, kPage, PROT_READ | PROT_WRITE);
}

class FramePublishOrder : public testing::Test {
  protected:
    FramePublishOrder() {
        testing::internal::CaptureStderr();
        EXPECT_EQ(frame_buffers_init(), 0);
        const int fd = shm_open("vantarel_framebuffer", O_RDWR, 0);
        void* const map = mmap(nullptr, kRingSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        ring = static_cast<std::uint8_t*>(map);
    }
    ~FramePublishOrder() override {
        testing::internal::GetCapturedStderr();
        munmap(ring, kRingSize);
        shm_unlink("vantarel_framebuffer");
        shm_unlink("vantarel_framebuffer_transcoding");
    }
};

TEST_F(FramePublishOrder, SlotSpeaksOfTheOldPartUntilTheNewOneIsThere) {
    constexpr std::uint8_t kOldPart[] = {0xA0, 0xA1, 0xA2};
    for (int i = 0; i < 200; ++i) {
        frame_queue_part(kOldPart, sizeof(kOldPart));
    }
    void* const map =
        mmap(nullptr, 3 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto* const part = static_cast<std::uint8_t*>(map);
    memset(part, kNewByte, 3 * kPage);
    locked_page = part + kPage;
    mprotect(locked_page, kPage, PROT_NONE);
    struct sigaction action {};
    action.sa_handler = note_slot;
    struct sigaction before {};
    sigaction(SIGSEGV, &action, &before);
    frame_queue_part(part, 3 * kPage);
    sigaction(SIGSEGV, &before, nullptr);
    munmap(map, 3 * kPage);

    ASSERT_EQ(faults, 1);
    EXPECT_GT(new_bytes_at_fault, 0) << "the part was not being written yet";
    EXPECT_EQ(header_at_fault, (SlotHeader{3, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}));
    SlotHeader header_now{};
    memcpy(header_now.data(), ring + kSlot0, header_now.size());
    EXPECT_EQ(header_now,
              (SlotHeader{0x00, 0x30, 0, 0, 200, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}));
}

TEST_F(FramePublishOrder, EveryByteOfTheSlotHeaderIsWritten) {
    constexpr std::uint8_t kPart[] = {0xA0, 0xA1, 0xA2};
    frame_queue_part(kPart, sizeof(kPart));
    constexpr std::size_t kSlot1 = kSlot0 + 300018;
    memset(ring + kSlot1, 0xEE, 18);
    frame_queue_part(kPart, sizeof(kPart));
    SlotHeader header{};
    memcpy(header.data(), ring + kSlot1, header.size());
    EXPECT_EQ(header, (SlotHeader{3, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}));
}

}  // namespace
