// Runs many jobs at once, each a process in namespaces of its own: network with a loopback, mounts
// with an empty /dev/shm, System V and POSIX queues. The receiver's names - port 6000, its shared
// memory - are then free in each, and nothing of the machine is touched. Root, or a user namespace.
#pragma once

#include <functional>
#include <string>
#include <vector>

// Why there can be no namespaces on this machine; empty where there can.
std::string isolation_refusal();

// What a job returns is its result. The calling process must have one thread. A job that has not
// ended after a minute is killed with all that it started; what becomes of it then, or of a job
// that dies, is said in its result. At most FAULT_JOBS at once, by default 12 for each processor,
// which mostly sleep, or with sanitizers 4.
// A job whose process was kept from the processor for long is done again, whatever its result.
using Job = std::function<std::string()>;
std::vector<std::string> run_isolated(const std::vector<Job>& jobs);
