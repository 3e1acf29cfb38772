#include "simulator/receiver_child.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

ReceiverChild::~ReceiverChild() {
    if (running()) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

bool ReceiverChild::running() {
    if (pid_ > 0 && !ended_ && waitpid(pid_, &status_, WNOHANG) == pid_) {
        ended_ = true;
        if (WIFEXITED(status_)) {
            printf("the receiver has ended with status %d\n", WEXITSTATUS(status_));
        } else {
            printf("the receiver was ended by signal %d\n", WTERMSIG(status_));
        }
    }
    return pid_ > 0 && !ended_;
}

void ReceiverChild::end(int signal_number) {
    if (running()) {
        kill(pid_, signal_number);
        for (int i = 0; i < 200 && running(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
}

bool ReceiverChild::start(std::vector<std::string> program, std::vector<std::string> variables) {
    std::vector<char*> arguments;
    for (std::string& each : program) {
        arguments.push_back(each.data());
    }
    arguments.push_back(nullptr);
    std::vector<char*> environment;
    for (std::string& each : variables) {
        environment.push_back(each.data());
    }
    for (char** each = environ; *each != nullptr; ++each) {
        const std::size_t name_length = strcspn(*each, "=") + 1;
        const bool replaced = std::ranges::any_of(variables, [&](const std::string& variable) {
            return variable.compare(0, name_length, *each, name_length) == 0;
        });
        if (!replaced) {
            environment.push_back(*each);
        }
    }
    environment.push_back(nullptr);
    const int error =
        posix_spawnp(&pid_, arguments[0], nullptr, nullptr, arguments.data(), environment.data());
    if (error != 0) {
        pid_ = 0;
        fprintf(stderr, "camera-simulator: %s: %s\n", arguments[0], strerror(error));
    }
    return error == 0;
}
