#include "tests/e2e/receiver_process.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

int count_in(const std::string& text, const std::string& what) {
    int n = 0;
    for (std::size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) {
        ++n;
    }
    return n;
}

// "NAME=value" of the additions replaces the same name of this process.
std::vector<std::string> merged_environment(const std::vector<std::string>& additions) {
    std::vector<std::string> merged = additions;
    std::set<std::string> names;
    for (const std::string& entry : additions) {
        names.insert(entry.substr(0, entry.find('=')));
    }
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!names.contains(text.substr(0, text.find('=')))) {
            merged.push_back(text);
        }
    }
    return merged;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

}  // namespace

ReceiverProcess::ReceiverProcess(const std::vector<std::string>& arguments,
                                 const std::vector<std::string>& environment,
                                 const std::string& program) {
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe");
    }
    std::vector<std::string> argument_texts = {program};
    argument_texts.insert(argument_texts.end(), arguments.begin(), arguments.end());
    std::vector<std::string> environment_texts = merged_environment(environment);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    const int result =
        posix_spawn(&pid_, program.c_str(), &actions, nullptr, pointers(argument_texts).data(),
                    pointers(environment_texts).data());
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    if (result != 0) {
        close(out[0]);
        close(err[0]);
        throw std::runtime_error("cannot start " + program);
    }
    fcntl(out[0], F_SETFL, O_NONBLOCK);
    fcntl(err[0], F_SETFL, O_NONBLOCK);
    stdout_.fd = out[0];
    stderr_.fd = err[0];
    stdout_thread_ = std::thread(&ReceiverProcess::collect, this, &stdout_);
    stderr_thread_ = std::thread(&ReceiverProcess::collect, this, &stderr_);
}

ReceiverProcess::~ReceiverProcess() {
    if (!ended_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    join_collectors();
    close(stdout_.fd);
    close(stderr_.fd);
}

// All that it printed is there once both pipes have been read to their ends.
void ReceiverProcess::join_collectors() {
    for (std::thread* collector : {&stdout_thread_, &stderr_thread_}) {
        if (collector->joinable()) {
            collector->join();
        }
    }
}

bool ReceiverProcess::take(Printed& printed) {
    char chunk[4096];
    ssize_t n = 0;
    while ((n = read(printed.fd, chunk, sizeof chunk)) > 0) {
        printed.text.append(chunk, static_cast<std::size_t>(n));
    }
    return n < 0 && (errno == EAGAIN || errno == EINTR);
}

void ReceiverProcess::collect(Printed* printed) {
    for (bool open = true; open;) {
        pollfd readable = {printed->fd, POLLIN, 0};
        poll(&readable, 1, -1);
        {
            const std::lock_guard lock(mutex_);
            open = take(*printed);
        }
        more_.notify_all();
    }
}

void ReceiverProcess::signal(int number) const {
    kill(pid_, number);
}

bool ReceiverProcess::stand_still() {
    if (ended_) {
        return false;
    }
    kill(pid_, SIGSTOP);
    int status = 0;
    if (waitpid(pid_, &status, WUNTRACED) == pid_ && !WIFSTOPPED(status)) {
        note_end(status);
    }
    return !ended_;
}

void ReceiverProcess::go_on() const {
    kill(pid_, SIGCONT);
}

void ReceiverProcess::note_end(int status) {
    ended_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Read here, as the collector may not have had its turn: what the receiver did after it printed a
// line can be seen by other ways, such as the ring, before the collector has run.
std::string ReceiverProcess::text_of(Printed& printed) const {
    const std::lock_guard lock(mutex_);
    take(printed);
    more_.notify_all();
    return printed.text;
}

std::string ReceiverProcess::output() const {
    return text_of(stderr_);
}

std::string ReceiverProcess::standard_output() const {
    return text_of(stdout_);
}

std::string ReceiverProcess::lines_without_delta() const {
    std::istringstream lines(output());
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("delta ")) {
            kept += line + "\n";
        }
    }
    return kept;
}

int ReceiverProcess::count(const std::string& text) const {
    return count_in(output(), text);
}

bool ReceiverProcess::wait_for(const std::string& text, std::chrono::milliseconds timeout,
                               int times) const {
    std::unique_lock lock(mutex_);
    return more_.wait_for(lock, timeout, [&] { return count_in(stderr_.text, text) >= times; });
}

std::optional<int> ReceiverProcess::wait_exit(std::chrono::milliseconds timeout) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!ended_) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            note_end(status);
            break;
        }
        if (std::chrono::steady_clock::now() > end) {
            return std::nullopt;
        }
        usleep(2000);
    }
    join_collectors();
    return ended_;
}

std::optional<ReceiverProcess::Socket> ReceiverProcess::app_socket() const {
    const std::string proc = "/proc/" + std::to_string(pid_);
    std::set<std::string> inodes;
    for (const auto& entry : std::filesystem::directory_iterator(proc + "/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry, error).string();
        if (target.starts_with("socket:[")) {
            inodes.insert(target.substr(8, target.size() - 9));
        }
    }
    std::ifstream sockets(proc + "/net/udp");
    std::string line;
    std::getline(sockets, line);
    while (std::getline(sockets, line)) {
        std::istringstream fields(line);
        std::vector<std::string> field;
        for (std::string text; fields >> text;) {
            field.push_back(text);
        }
        // sl local_address rem_address st tx_queue:rx_queue tr:tm->when retrnsmt uid timeout inode
        // ref pointer drops
        if (field.size() > 12 && inodes.contains(field[9])) {
            const auto hex = [&field](std::size_t i) {
                return std::stoul(field[i].substr(field[i].find(':') + 1), nullptr, 16);
            };
            if (hex(1) != 6000) {
                return Socket{static_cast<std::uint16_t>(hex(1)), hex(4), std::stoul(field[12])};
            }
        }
    }
    return std::nullopt;
}

long ReceiverProcess::status(const std::string& key) const {
    std::ifstream file("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(key + ":")) {
            return std::stol(line.substr(key.size() + 1));
        }
    }
    return -1;
}
