#include "tests/board/board_figures.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/board/board_controls.h"

namespace {

long entries(const std::string& directory) {
    const std::filesystem::directory_iterator all(directory);
    return std::distance(begin(all), end(all));
}

// A number of a file of "Name:  number" lines.
long keyed_number(const std::string& path, const std::string& key) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(key + ":")) {
            return std::stol(line.substr(key.size() + 1));
        }
    }
    throw std::runtime_error("no " + key + " in " + path);
}

// Those of user space; the kernel's own come and go with its work.
long processes() {
    const std::filesystem::directory_iterator all("/proc");
    return std::count_if(begin(all), end(all), [](const auto& entry) {
        if (std::isdigit(static_cast<unsigned char>(entry.path().filename().string()[0])) == 0) {
            return false;
        }
        std::ifstream command_line(entry.path() / "cmdline");
        return command_line.peek() != std::ifstream::traits_type::eof();
    });
}

void drop_caches() {
    std::ofstream("/proc/sys/vm/drop_caches") << "3\n";
}

}  // namespace

Figures process_figures(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    const std::string status = directory + "/status";
    const std::string pages = directory + "/smaps_rollup";  // counted, where VmRSS is an estimate
    return {
        {"files", entries(directory + "/fd")},    {"threads", keyed_number(status, "Threads")},
        {"resident", keyed_number(pages, "Rss")}, {"anonymous", keyed_number(pages, "Anonymous")},
        {"data", keyed_number(status, "VmData")},
    };
}

Figures kernel_figures() {
    drop_caches();
    return {
        {"file-nr", kernel_number("/proc/sys/fs/file-nr")},
        {"inode-nr", kernel_number("/proc/sys/fs/inode-nr")},
        {"gadgetfs", module_users("gadgetfs")},
        {"dummy_hcd", module_users("dummy_hcd")},
        {"processes", processes()},
        {"shm", entries("/dev/shm")},
        {"MemUsed",
         keyed_number("/proc/meminfo", "MemTotal") - keyed_number("/proc/meminfo", "MemAvailable")},
        {"Shmem", keyed_number("/proc/meminfo", "Shmem")},
        {"Slab", keyed_number("/proc/meminfo", "Slab")},
    };
}

void print_figures(const std::vector<Figures>& cycles) {
    if (cycles.empty()) {
        return;
    }
    printf("cycle");
    for (const Figure& each : cycles.front()) {
        printf(" %12s", each.name.c_str());
    }
    for (std::size_t i = 0; i < cycles.size(); ++i) {
        printf("\n%5zu", i + 1);
        for (const Figure& each : cycles[i]) {
            printf(" %12ld", each.value);
        }
    }
    printf("\n");
}

long figure(const Figures& figures, const std::string& name) {
    return std::ranges::find(figures, name, &Figure::name)->value;
}
