#include "fuzz/own_places.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <utility>

#include "fuzz/fuzz_check.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kDirectories[] = {"/run/vantarel", "/boot", "/dev/gadget"};
// What the receiver starts through the shell begins with one of these. The fuzzer's own commands,
// by which it splits its work, go on to the shell.
constexpr const char* kReceiverCommands[] = {"mount", "umount", "modprobe", "mkdir"};

std::string root;
std::map<std::string, int> objects;
std::vector<std::string> commands;

void remove_root() {
    std::error_code ignored;
    fs::remove_all(root, ignored);
}

bool mapping_works() {
    constexpr char kProbe[] = "/boot/only-in-the-fuzzers-directory";
    write_own_file(kProbe, {'x'});
    FILE* const file = fopen(kProbe, "r");
    remove_own_file(kProbe);
    return file != nullptr && fclose(file) == 0;
}

}  // namespace

void use_own_places() {
    root = (fs::temp_directory_path() / "receiver-fuzz-XXXXXX").string();
    FUZZ_CHECK(mkdtemp(root.data()) != nullptr);
    atexit(remove_root);
    for (const char* const directory : kDirectories) {
        fs::create_directories(root + directory);
    }
    setenv("GADGETFS_SIM_ROOT", root.c_str(), 1);
    FUZZ_CHECK(mapping_works());
}

std::string read_own_file(const char* path) {
    std::string content;
    const int fd = open((root + path).c_str(), O_RDONLY | O_CLOEXEC);
    char block[4096];
    for (ssize_t count = 0; fd >= 0 && (count = read(fd, block, sizeof block)) > 0;) {
        content.append(block, static_cast<std::size_t>(count));
    }
    if (fd >= 0) {
        close(fd);
    }
    return content;
}

void write_own_file(const char* path, const std::vector<std::uint8_t>& content) {
    const int fd = open((root + path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    FUZZ_CHECK(fd >= 0);
    FUZZ_CHECK(write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    close(fd);
}

void remove_own_file(const char* path) {
    unlink((root + path).c_str());
}

std::uint8_t* own_shared_memory(const char* name, std::size_t size) {
    const auto object = objects.find(name);
    FUZZ_CHECK(object != objects.end());
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, object->second, 0);
    FUZZ_CHECK(memory != MAP_FAILED);
    return static_cast<std::uint8_t*>(memory);
}

std::vector<std::string> take_commands() {
    return std::exchange(commands, {});
}

// -- in front of the C library's
// -------------------------------------------------------------------

extern "C" int shm_open(const char* name, int flags, mode_t /*mode*/) {
    const auto object = objects.find(name);
    if (object != objects.end()) {
        return dup(object->second);
    }
    if ((flags & O_CREAT) == 0) {
        errno = ENOENT;
        return -1;
    }
    const int fd = memfd_create(name, MFD_CLOEXEC);
    FUZZ_CHECK(fd >= 0);
    objects[name] = fd;
    return dup(fd);
}

extern "C" int system(const char* command) {
    for (const char* const known : kReceiverCommands) {
        if (command != nullptr && strncmp(command, known, strlen(known)) == 0) {
            commands.emplace_back(command);
            return 0;
        }
    }
    using System = int (*)(const char*);
    static const auto real = reinterpret_cast<System>(dlsym(RTLD_NEXT, "system"));
    return real(command);
}
