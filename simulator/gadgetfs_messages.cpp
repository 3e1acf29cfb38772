#include "simulator/gadgetfs_messages.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

int with_gadgetfs_address(const std::string& root, int socket_fd,
                          int (*call)(int, const sockaddr*, socklen_t)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = root + "/" + kGadgetfsSocketName;
    int root_fd = -1;
    if (path.size() >= sizeof address.sun_path) {
        root_fd = open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (root_fd < 0) {
            return -1;
        }
        path = "/proc/self/fd/" + std::to_string(root_fd) + "/" + kGadgetfsSocketName;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    // The sockets interface takes every address family through this one type.
    const int result = call(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (root_fd >= 0) {
        const int error = errno;
        close(root_fd);
        errno = error;
    }
    return result;
}
