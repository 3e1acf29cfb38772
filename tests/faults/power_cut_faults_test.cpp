// The focus file when everything ends in the middle of a save, and on disks without room.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/faults/fault_table.h"
#include "tests/faults/isolated_jobs.h"
#include "tests/faults/live_receiver.h"

namespace {

std::string run_one(const Job& job) {
    return run_isolated({job}).front();
}

using PowerCut = Isolated;

struct Moment {
    const char* name;
    FaultCall call;
    std::uint32_t number;
    FaultAction action;
    const char* file;
};

// The save's steps are the last of their kinds before the receiver is at work. "new" is what the
// kernel has; the card has it once the partition is unmounted.
// clang-format off
constexpr Moment kMoments[] = {
    {"before the remount",  kSystem,    4, FaultAction::kKillBefore, "old"},
    {"after the remount",   kSystem,    4, FaultAction::kKillAfter,  "old"},
    {"before the opening",  kFopen,     6, FaultAction::kKillBefore, "old"},
    {"after the opening",   kFopen,     6, FaultAction::kKillAfter,  "empty"},
    {"before the text",     kWriteFile, 4, FaultAction::kKillBefore, "empty"},
    {"after the text",      kWriteFile, 4, FaultAction::kKillAfter,  "empty"},
    {"before the closing",  kFclose,    6, FaultAction::kKillBefore, "empty"},
    {"after the closing",   kFclose,    6, FaultAction::kKillAfter,  "new"},
    {"before the unmount",  kSystem,    5, FaultAction::kKillBefore, "new"},
    {"after the unmount",   kSystem,    5, FaultAction::kKillAfter,  "new"},
    {"before the mount",    kSystem,    6, FaultAction::kKillBefore, "new"},
    {"after the mount",     kSystem,    6, FaultAction::kKillAfter,  "new"},
};
// clang-format on

TEST_F(PowerCut, LeavesOldOrNewButBetweenOpeningAndClosing) {
    std::vector<Job> jobs;
    for (const Moment& moment : kMoments) {
        jobs.emplace_back([&moment] {
            LiveReceiver receiver({moment.call, moment.number, moment.action, 0});
            receiver.start();
            const std::string outcome = receiver.outcome();
            return outcome.starts_with("ends -9") ? receiver.focus_file()
                                                  : outcome + "\n" + receiver.output();
        });
    }
    const std::vector<std::string> files = run_isolated(jobs);
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(files[i], kMoments[i].file) << kMoments[i].name;
    }
}

// Calls of a kind for each save; of how many saves where it does not come out even.
std::string each_time(unsigned calls, unsigned saves) {
    return saves > 0 && calls % saves == 0
               ? std::to_string(calls / saves)
               : std::to_string(calls) + " in " + std::to_string(saves) + " saves";
}

// Else there would be moments that are not in the table. A slow machine is asked to save again.
TEST_F(PowerCut, SaveMakesNoOtherCalls) {
    EXPECT_EQ(run_one([] {
                  LiveReceiver receiver;
                  receiver.start();
                  const std::string outcome = receiver.outcome();
                  // "Saved" is seen in the file, before the partition is unmounted and mounted;
                  // what were too much would follow at once.
                  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
                  while (receiver.board().shell_commands().back() != "mount /boot" &&
                         std::chrono::steady_clock::now() < end) {
                      std::this_thread::sleep_for(std::chrono::milliseconds(10));
                  }
                  std::this_thread::sleep_for(std::chrono::milliseconds(500));
                  const auto& calls = receiver.record().calls;
                  const unsigned saves = calls[kFopen] - 5;
                  return outcome + "; for each opening: write " +
                         each_time(calls[kWriteFile] - 3, saves) + ", close " +
                         each_time(calls[kFclose] - 5, saves) + ", shell " +
                         each_time(calls[kSystem] - 3, saves);
              }),
              "carries on; for each opening: write 1, close 1, shell 3");
}

// A file system of that many pages, and on it a file that fills all but the rest.
void mount_small(const std::string& place, std::size_t pages, std::size_t filled) {
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::string size = "size=" + std::to_string(pages * page);
    if (mount("tmpfs", place.c_str(), "tmpfs", 0, size.c_str()) != 0) {
        throw std::runtime_error("cannot mount " + place);
    }
    std::ofstream(place + "/filler") << std::string(filled * page, 'x');
}

// Unmounted at the end, so that the board's directory can go.
class SmallDisk {
  public:
    SmallDisk(std::string place, std::size_t pages, std::size_t filled) : place_(std::move(place)) {
        mount_small(place_, pages, filled);
    }
    ~SmallDisk() { umount2(place_.c_str(), MNT_DETACH); }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    void make_read_only() const {
        mount("tmpfs", place_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
    }

  private:
    std::string place_;
};

using FullDisk = Isolated;

TEST_F(FullDisk, RunHasNoRoomForTheResultFiles) {
    EXPECT_EQ(run_one([] {
                  LiveReceiver receiver;
                  const SmallDisk run(receiver.board().path("/run/vantarel"), 1, 1);
                  receiver.start();
                  std::string seen = receiver.outcome();
                  for (const char* name : {"board_supported", "video_width", "video_height"}) {
                      seen += "; " + std::string(name) + " " +
                              std::to_string(std::filesystem::file_size(
                                  receiver.board().path("/run/vantarel/") + name));
                  }
                  return seen;
              }),
              "carries on; board_supported 0; video_width 0; video_height 0");
}

// Truncated, the file gives its own room back.
TEST_F(FullDisk, BootTakesAFileThatWasThere) {
    EXPECT_EQ(run_one([] {
                  LiveReceiver receiver;
                  const SmallDisk boot(receiver.board().path("/boot"), 2, 1);
                  receiver.write_old_focus_file();
                  receiver.start();
                  const std::string outcome = receiver.outcome();
                  return outcome + "; " + receiver.focus_file();
              }),
              "carries on; new");
}

// "Camera config saved" is printed all the same.
TEST_F(FullDisk, BootTakesNoNewFile) {
    EXPECT_EQ(run_one([] {
                  LiveReceiver receiver;
                  const SmallDisk boot(receiver.board().path("/boot"), 1, 1);
                  receiver.start();
                  return receiver.outcome_from_now();
              }),
              "carries on, no saving, focus file empty");
}

TEST_F(FullDisk, BootThatStaysReadOnlyKeepsTheOldFile) {
    EXPECT_EQ(run_one([] {
                  LiveReceiver receiver;
                  const SmallDisk boot(receiver.board().path("/boot"), 2, 0);
                  receiver.write_old_focus_file();
                  boot.make_read_only();
                  receiver.start();
                  const std::string outcome = receiver.outcome_from_now();
                  const bool told =
                      receiver.output().find("Failed to save camera config\n") != std::string::npos;
                  return outcome + "; " + receiver.focus_file() + (told ? "; told" : "");
              }),
              "carries on, no saving; old; told");
}

// Shared memory is given page by page as it is written. A reader would meet the same error, so that
// nobody looks into the ring here.
TEST_F(FullDisk, SharedMemoryWithoutRoomIsABusError) {
    EXPECT_EQ(run_one([] {
                  setenv("ASAN_OPTIONS", "handle_sigbus=0", 1);
                  LiveReceiver receiver;
                  const SmallDisk shm("/dev/shm", 1, 1);
                  receiver.start();
                  return std::to_string(receiver.wait_exit().value_or(0));
              }),
              std::to_string(-SIGBUS));
}

TEST_F(FullDisk, StandardErrorMayBeFull) {
    EXPECT_EQ(run_one([] {
                  LiveReceiver receiver;
                  receiver.start("2>/dev/full");
                  return receiver.outcome();
              }),
              "carries on, no supervision");
}

}  // namespace
