// The receiver where this program has started it: a child process, whose end is told on standard
// output. Killed at the end if it is still there. One thread.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class ReceiverChild {
  public:
    ReceiverChild() = default;
    ReceiverChild(const ReceiverChild&) = delete;
    ReceiverChild& operator=(const ReceiverChild&) = delete;
    ~ReceiverChild();

    // The program with its arguments; the variables ("NAME=value") replace this process's own.
    // False after a message.
    bool start(std::vector<std::string> program, std::vector<std::string> variables);
    bool started() const { return pid_ > 0; }
    bool running();
    // Sends the signal and waits, at most two seconds.
    void end(int signal_number);

  private:
    pid_t pid_ = 0;
    int status_ = 0;
    bool ended_ = false;
};
