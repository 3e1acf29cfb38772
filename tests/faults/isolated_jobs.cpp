#include "tests/faults/isolated_jobs.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <fstream>
#include <map>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kLongestJob{60};
// Most of a job is waiting; but watched by a sanitizer, and beside as many other tests as there are
// processors and more, so many receivers would get their share of them too late.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned kJobsPerProcessor = 4;
#else
constexpr unsigned kJobsPerProcessor = 12;
#endif
constexpr std::chrono::milliseconds kBetweenStarts{20};  // programs start one after the other

// A receiver gives up after five seconds of silence, and a host asks once: what becomes of one that
// did not get its share of the processor says nothing.
constexpr std::chrono::milliseconds kLongestStall{400};
constexpr unsigned kAttempts = 4;
constexpr int kStalled = 3;

// How much later than it should this process went on, at worst.
class StallWatch {
  public:
    StallWatch() : thread_([this] { watch(); }) {}
    ~StallWatch() {
        stop_ = true;
        thread_.join();
    }
    StallWatch(const StallWatch&) = delete;
    StallWatch& operator=(const StallWatch&) = delete;
    bool stalled() const { return stalled_; }

  private:
    void watch() {
        while (!stop_) {
            const Clock::time_point before = Clock::now();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            stalled_ = stalled_ || Clock::now() - before > kLongestStall;
        }
    }

    std::atomic<bool> stop_{false};
    std::atomic<bool> stalled_{false};
    std::thread thread_;
};

std::string failure(const char* what) {
    return std::string(what) + ": " + strerror(errno);
}

// Root inside, the same user outside.
std::string enter_user_namespace() {
    const std::string user = "0 " + std::to_string(geteuid()) + " 1";
    const std::string group = "0 " + std::to_string(getegid()) + " 1";
    if (unshare(CLONE_NEWUSER) != 0) {
        return failure("user namespace");
    }
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << user;
    std::ofstream("/proc/self/gid_map") << group;
    return "";
}

std::string raise_loopback() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    std::string reason = up ? "" : failure("loopback");
    close(fd);
    return reason;
}

std::string isolate() {
    if (geteuid() != 0) {
        if (std::string reason = enter_user_namespace(); !reason.empty()) {
            return reason;
        }
    }
    if (unshare(CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWIPC) != 0) {
        return failure("namespaces");
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) != 0) {
        return failure("/dev/shm");
    }
    return raise_loopback();
}

std::string carry_out(const Job& job, bool* stalled) {
    if (std::string reason = isolate(); !reason.empty()) {
        return "not isolated: " + reason;
    }
    const StallWatch watch;
    try {
        std::string result = job();
        *stalled = watch.stalled();
        return result;
    } catch (const std::exception& exception) {
        return std::string("the run failed: ") + exception.what();
    }
}

struct Running {
    std::size_t index;
    pid_t pid;
    Clock::time_point end;
    std::string result;
    bool stalled = false;
};

// The job's process leads a group, which is all that it starts.
std::pair<int, Running> begin(const Job& job, std::size_t index) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error(failure("pipe"));
    }
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        close(ends[0]);
        bool stalled = false;
        const std::string result = carry_out(job, &stalled);
        [[maybe_unused]] const ssize_t written = write(ends[1], result.data(), result.size());
        _exit(stalled ? kStalled : 0);
    }
    setpgid(pid, pid);
    close(ends[1]);
    return {ends[0], Running{index, pid, Clock::now() + kLongestJob, ""}};
}

// Reads what there is; true at the end, with the process gone.
bool goes_on(int fd, Running& running) {
    char chunk[4096];
    const bool late = Clock::now() > running.end;
    if (late) {
        kill(-running.pid, SIGKILL);
        running.result += "the run took more than a minute";
    }
    const ssize_t count = late ? 0 : read(fd, chunk, sizeof chunk);
    if (count > 0) {
        running.result.append(chunk, static_cast<std::size_t>(count));
        return true;
    }
    close(fd);
    int status = 0;
    waitpid(running.pid, &status, 0);
    running.stalled = WIFEXITED(status) && WEXITSTATUS(status) == kStalled;
    if (!late && !running.stalled && (!WIFEXITED(status) || WEXITSTATUS(status) != 0)) {
        running.result += "the run died, wait status " + std::to_string(status);
    }
    return false;
}

unsigned jobs_at_once() {
    const char* const wanted = getenv("FAULT_JOBS");
    return wanted != nullptr
               ? static_cast<unsigned>(std::max(1, atoi(wanted)))
               : kJobsPerProcessor * std::max(1U, std::thread::hardware_concurrency());
}

}  // namespace

std::string isolation_refusal() {
    return run_isolated({[] { return std::string(); }}).front();
}

std::vector<std::string> run_isolated(const std::vector<Job>& jobs) {
    std::vector<std::string> results(jobs.size());
    std::map<int, Running> running;  // by the pipe's end
    std::deque<std::size_t> next;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        next.push_back(i);
    }
    std::vector<unsigned> attempts(jobs.size());
    while (!next.empty() || !running.empty()) {
        while (!next.empty() && running.size() < jobs_at_once()) {
            running.insert(begin(jobs[next.front()], next.front()));
            ++attempts[next.front()];
            next.pop_front();
            std::this_thread::sleep_for(kBetweenStarts);
        }
        std::vector<pollfd> waiting;
        for (const auto& [fd, ignored] : running) {
            waiting.push_back({fd, POLLIN, 0});
        }
        poll(waiting.data(), waiting.size(), 1000);
        for (const pollfd& each : waiting) {
            Running& job = running.at(each.fd);
            const bool readable = each.revents != 0 || Clock::now() > job.end;
            if (readable && !goes_on(each.fd, job)) {
                results[job.index] = job.result;
                if (job.stalled && attempts[job.index] < kAttempts) {
                    next.push_back(job.index);
                }
                running.erase(each.fd);
            }
        }
    }
    return results;
}
