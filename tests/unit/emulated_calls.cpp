// What a test of another processor needs on top of qemu's user-mode emulation, which takes these
// calls otherwise than a kernel does. Linked into the tests of the cross builds only.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct MappedFile {
    std::string name;
    off64_t offset = 0;  // of the address in the file
};

MappedFile mapped_file(std::uintptr_t address) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        std::uint64_t offset = 0;
        int name_at = 0;
        // begin-end permissions offset device inode name
        if (sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %*s %" SCNx64 " %*s %*s %n", &begin,
                   &end, &offset, &name_at) == 3 &&
            begin <= address && address < end && name_at > 0) {
            return {line.substr(static_cast<std::size_t>(name_at)),
                    static_cast<off64_t>(offset + (address - begin))};
        }
    }
    return {};
}

// The emulator adds its own words to the last ones of a process that aborts.
void abort_quietly(int /*signal*/) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    signal(SIGABRT, SIG_DFL);
    raise(SIGABRT);
}

__attribute__((constructor)) void take_abort() {
    struct sigaction action {};
    action.sa_handler = abort_quietly;
    action.sa_flags = SA_NODEFER;
    sigaction(SIGABRT, &action, nullptr);
}

}  // namespace

extern "C" {

// The emulator says that it gave the pages back, and did nothing.
int madvise(void* address, std::size_t length, int advice) noexcept {
    if (advice != MADV_REMOVE) {
        return static_cast<int>(syscall(SYS_madvise, address, length, advice));
    }
    const MappedFile file = mapped_file(reinterpret_cast<std::uintptr_t>(address));
    const int fd = open(file.name.c_str(), O_RDWR | O_CLOEXEC);
    const int result = fallocate64(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, file.offset,
                                   static_cast<off64_t>(length));
    close(fd);
    return result;
}

// The kernel cannot start a program of another processor: a death test that begins anew.
int execv(const char* path, char* const arguments[]) noexcept {
    char emulator[] = EMULATOR;
    char option[] = "-L";
    char root[] = EMULATED_ROOT;
    std::vector<char*> whole = {emulator, option, root, const_cast<char*>(path)};
    for (char* const* argument = arguments + 1; *argument != nullptr; ++argument) {
        whole.push_back(*argument);
    }
    whole.push_back(nullptr);
    return execvp(emulator, whole.data());
}

// A 64-bit kernel gives places in a directory that are too large for a 32-bit process; for a
// process that it knows as one it makes them smaller.
#if __SIZEOF_POINTER__ == 4
dirent* readdir(DIR* directory) {
    static thread_local dirent entry;
    const dirent64* const whole = readdir64(directory);
    if (whole == nullptr) {
        return nullptr;
    }
    entry = {};
    entry.d_ino = static_cast<ino_t>(whole->d_ino);
    entry.d_reclen = sizeof entry;
    entry.d_type = whole->d_type;
    memcpy(entry.d_name, whole->d_name, sizeof entry.d_name);
    return &entry;
}
#endif

}  // extern "C"
