// The release binary as a child process, with what it prints.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

class ReceiverProcess {
  public:
    // Starts it with these arguments, and these "NAME=value" texts on top of this environment; or
    // another program in its place.
    ReceiverProcess(const std::vector<std::string>& arguments,
                    const std::vector<std::string>& environment,
                    const std::string& program = RECEIVER_PROGRAM);
    // Kills it if it still runs.
    ~ReceiverProcess();
    ReceiverProcess(const ReceiverProcess&) = delete;
    ReceiverProcess& operator=(const ReceiverProcess&) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const;
    // Lets no thread of it run until go_on(), for what must happen between two steps of its own.
    // False if it has ended.
    bool stand_still();
    void go_on() const;

    // Everything that it has written to standard error by now, and to standard output.
    std::string output() const;
    std::string standard_output() const;
    // The same without the lines that a clock writes: "delta N".
    std::string lines_without_delta() const;

    // Waits until the text has been printed `times` times.
    bool wait_for(const std::string& text, std::chrono::milliseconds timeout, int times = 1) const;
    int count(const std::string& text) const;

    // Waits for the end: the exit status, or minus the signal that killed it.
    std::optional<int> wait_exit(std::chrono::milliseconds timeout);

    // The socket to the main application: the one whose port is not 6000.
    struct Socket {
        std::uint16_t port;
        unsigned long unread;  // bytes that wait in it
        unsigned long drops;   // datagrams that found no room
    };
    std::optional<Socket> app_socket() const;
    // A number of /proc/PID/status, e.g. "VmRSS" in kB, "Threads".
    long status(const std::string& key) const;

  private:
    struct Printed {
        int fd = -1;  // the pipe's end
        std::string text;
    };
    void note_end(int status);
    void join_collectors();
    void collect(Printed* printed);
    std::string text_of(Printed& printed) const;
    // With the lock: takes what the pipe holds; false at its end.
    static bool take(Printed& printed);

    pid_t pid_ = -1;
    std::optional<int> ended_;
    mutable std::mutex mutex_;
    mutable std::condition_variable more_;
    mutable Printed stderr_;
    mutable Printed stdout_;
    std::thread stderr_thread_;
    std::thread stdout_thread_;
};
