#include "simulator/gadgetfs_files.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <optional>

#include "simulator/gadgetfs_messages.h"
#include "simulator/real_function.h"

namespace {

constexpr int kDescriptors = 4096;

// By descriptor. A word for each, so that the reader thread's look-up is one relaxed load.
struct OpenFile {
    std::atomic<GadgetfsFile> kind;
    std::atomic<std::uint32_t> last_request;
};
OpenFile open_files[kDescriptors];

iovec piece(void* bytes, std::size_t length) {
    return {bytes, length};
}
iovec piece(const void* bytes, std::size_t length) {
    return {const_cast<void*>(bytes), length};  // sendmsg() only reads it
}

void set_kind(int fd, GadgetfsFile kind) {
    open_files[fd].kind.store(kind, std::memory_order_relaxed);
}

int real_poll(pollfd* fds, nfds_t count, int timeout_ms) {
    static const auto real = real_function<int (*)(pollfd*, nfds_t, int)>("poll");
    return real(fds, count, timeout_ms);
}

ssize_t send_message(int fd, iovec (&pieces)[2]) {
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    return sendmsg(fd, &message, MSG_NOSIGNAL);
}

int send_request(int fd, FileOperation operation, std::uint32_t id, int flags, int argument,
                 const void* bytes = nullptr, std::size_t length = 0) {
    const FileRequest request{operation, id, flags, argument};
    iovec pieces[] = {piece(&request, sizeof request), piece(bytes, length)};
    return send_message(fd, pieces) < 0 ? -1 : 0;
}

// Cancellation waits while one stands: for calls that are no cancellation points, and where it
// would lose what is owned.
class CancelLater {
  public:
    CancelLater() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_); }
    CancelLater(const CancelLater&) = delete;
    CancelLater& operator=(const CancelLater&) = delete;
    ~CancelLater() { pthread_setcancelstate(state_, nullptr); }

  private:
    int state_ = 0;
};

// One reply into the header and the caller's buffer. The socket's own O_NONBLOCK is the file's flag
// and has no say in this.
ssize_t receive_reply(int fd, FileReply* reply, void* buffer, std::size_t size) {
    for (;;) {
        iovec pieces[] = {piece(reply, sizeof *reply), piece(buffer, size)};
        msghdr message{};
        message.msg_iov = pieces;
        message.msg_iovlen = 2;
        const ssize_t received = recvmsg(fd, &message, 0);
        if (received >= 0 || errno != EAGAIN) {
            return received;
        }
        pollfd readable{fd, POLLIN, 0};
        if (real_poll(&readable, 1, -1) < 0) {
            return -1;
        }
    }
}

std::uint32_t next_request(int fd) {
    return open_files[fd].last_request.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Waits for the reply to a request, past those to requests that were left: false with ENODEV where
// the board is gone, with EINTR where a signal ends the wait.
bool wait_for_reply(int fd, std::uint32_t id, FileReply* reply, void* buffer, std::size_t size) {
    do {
        const ssize_t received = receive_reply(fd, reply, buffer, size);
        if (received < 0 && errno == EINTR) {
            return false;
        }
        if (received < static_cast<ssize_t>(sizeof *reply)) {
            errno = ENODEV;
            return false;
        }
    } while (reply->id != id);
    return true;
}

// The same, whatever signals come.
bool wait_out_reply(int fd, std::uint32_t id, FileReply* reply, void* buffer, std::size_t size) {
    while (!wait_for_reply(fd, id, reply, buffer, size)) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Leaves the latest request. The model takes it back before the caller goes on, so that no later
// event is read for nobody. True where its reply was on the way already.
bool take_back(int fd, std::uint32_t id, FileReply* reply, void* buffer, std::size_t size) {
    const CancelLater cancel_later;
    const std::uint32_t cancel_id = next_request(fd);
    if (send_request(fd, FileOperation::kCancel, cancel_id, 0, 0) < 0) {
        return false;
    }
    bool replied = false;
    FileReply next{};
    for (;;) {
        const ssize_t received = receive_reply(fd, &next, buffer, size);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received < static_cast<ssize_t>(sizeof next) || next.id == cancel_id) {
            return replied;
        }
        if (next.id == id) {
            *reply = next;
            replied = true;
        }
    }
}

// A request that a cancelled thread leaves.
class PendingRequest {
  public:
    PendingRequest(int fd, std::uint32_t id) : fd_(fd), id_(id) {}
    PendingRequest(const PendingRequest&) = delete;
    PendingRequest& operator=(const PendingRequest&) = delete;
    ~PendingRequest() {
        if (!ended_) {
            FileReply nobodys{};
            take_back(fd_, id_, &nobodys, nullptr, 0);
        }
    }
    void ended() { ended_ = true; }

  private:
    int fd_;
    std::uint32_t id_;
    bool ended_ = false;
};

// Sends a request and waits for its answer. Its result, with errno; *direction where asked for.
int call_model(int fd, FileOperation operation, int flags, int argument, const void* bytes,
               std::size_t length, void* buffer, std::size_t size, int* direction = nullptr) {
    if (length > kLargestFileMessage) {
        errno = EINVAL;
        return -1;
    }
    const std::uint32_t id = next_request(fd);
    std::optional<CancelLater> cancel_later(std::in_place);
    if (send_request(fd, operation, id, flags, argument, bytes, length) < 0) {
        errno = ENODEV;
        return -1;
    }
    FileReply reply{};
    bool replied = false;
    if (operation == FileOperation::kRead || operation == FileOperation::kPoll) {
        PendingRequest pending(fd, id);
        cancel_later.reset();
        replied = wait_for_reply(fd, id, &reply, buffer, size);
        pending.ended();
        if (!replied && errno == EINTR) {
            replied = take_back(fd, id, &reply, buffer, size);
            errno = EINTR;
        }
    } else {
        replied = wait_out_reply(fd, id, &reply, buffer, size);
    }
    if (!replied) {
        return -1;
    }
    if (direction != nullptr) {
        *direction = reply.direction;
    }
    if (reply.result < 0) {
        errno = reply.error;
    }
    return reply.result;
}

// A socket to the model; -1 where no model serves the root.
int connect_to_model(const char* root, int flags) {
    const int type = SOCK_SEQPACKET | ((flags & O_CLOEXEC) != 0 ? SOCK_CLOEXEC : 0);
    const int fd = socket(AF_UNIX, type, 0);
    if (fd >= 0 && with_gadgetfs_address(root, fd, connect) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

ssize_t read_out_endpoint(int fd, void* buffer, std::size_t size) {
    PacketKind kind{};
    iovec pieces[] = {piece(&kind, sizeof kind), piece(buffer, size)};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    const ssize_t received = recvmsg(fd, &message, 0);
    if (received < 0) {
        return -1;
    }
    if (received == 0) {
        errno = ESHUTDOWN;  // the host or the board is gone
        return -1;
    }
    const std::size_t length = static_cast<std::size_t>(received) - 1;
    if (kind == PacketKind::kData) {
        if ((message.msg_flags & MSG_TRUNC) != 0) {
            errno = EOVERFLOW;
            return -1;
        }
        return static_cast<ssize_t>(length);
    }
    // The error number lies in the caller's buffer, as far as that reaches.
    std::int32_t error = 0;
    memcpy(&error, buffer, std::min(sizeof error, length));
    errno = error;
    return -1;
}

ssize_t write_in_endpoint(int fd, const void* bytes, std::size_t length) {
    const PacketKind kind = PacketKind::kData;
    iovec pieces[] = {piece(&kind, sizeof kind), piece(bytes, length)};
    const ssize_t sent = send_message(fd, pieces);
    if (sent < 0) {
        if (errno == EPIPE || errno == ECONNRESET) {
            errno = ESHUTDOWN;
        }
        return -1;
    }
    return sent - 1;
}

int send_notice(int fd, PacketKind kind, std::int32_t value) {
    iovec pieces[] = {piece(&kind, sizeof kind), piece(&value, sizeof value)};
    return send_message(fd, pieces) < 0 ? -1 : 0;
}

ssize_t write_configuration(int fd, const void* bytes, std::size_t length) {
    int direction = 0;
    const int result =
        call_model(fd, FileOperation::kWrite, 0, 0, bytes, length, nullptr, 0, &direction);
    if (result >= 0) {
        const int buffer = kEndpointSocketBuffer / 2;  // the kernel doubles it
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
        set_kind(fd, direction != 0 ? GadgetfsFile::kInEndpoint : GadgetfsFile::kOutEndpoint);
    }
    return result;
}

}  // namespace

GadgetfsFile gadgetfs_file(int fd) {
    return fd < 0 || fd >= kDescriptors ? GadgetfsFile::kNone
                                        : open_files[fd].kind.load(std::memory_order_relaxed);
}

bool open_gadgetfs_file(const char* path, int flags, int* fd) {
    constexpr char kDirectory[] = "/dev/gadget/";
    const std::size_t directory_length = sizeof kDirectory - 1;
    const char* const root = getenv("GADGETFS_SIM_ROOT");
    if (root == nullptr || strncmp(path, kDirectory, directory_length) != 0 ||
        path[directory_length] == '\0') {
        return false;
    }
    const char* const name = path + directory_length;
    const CancelLater cancel_later;
    const int file = connect_to_model(root, flags);
    if (file < 0) {
        return false;
    }
    int result = -1;
    if (file >= kDescriptors) {
        errno = EMFILE;
    } else {
        open_files[file].last_request.store(0, std::memory_order_relaxed);
        result = call_model(file, FileOperation::kOpen, flags, 0, name, strlen(name), nullptr, 0);
    }
    if (result < 0) {
        const int error = errno;
        close(file);
        errno = error;
        *fd = -1;
        return true;
    }
    if ((flags & O_NONBLOCK) != 0) {
        fcntl(file, F_SETFL, O_NONBLOCK);
    }
    set_kind(file, result == kControlFileOpened ? GadgetfsFile::kControl : GadgetfsFile::kEndpoint);
    *fd = file;
    return true;
}

ssize_t read_gadgetfs_file(int fd, GadgetfsFile kind, void* buffer, std::size_t size) {
    switch (kind) {
        case GadgetfsFile::kOutEndpoint:
            return read_out_endpoint(fd, buffer, size);
        case GadgetfsFile::kControl: {
            const std::size_t wanted = std::min(size, kLargestFileMessage);
            return call_model(fd, FileOperation::kRead, fcntl(fd, F_GETFL),
                              static_cast<int>(wanted), nullptr, 0, buffer, wanted);
        }
        case GadgetfsFile::kInEndpoint:
            errno = EBADMSG;
            return -1;
        default:
            errno = ENODEV;  // not configured yet
            return -1;
    }
}

ssize_t write_gadgetfs_file(int fd, GadgetfsFile kind, const void* bytes, std::size_t length) {
    switch (kind) {
        case GadgetfsFile::kInEndpoint:
            return write_in_endpoint(fd, bytes, length);
        case GadgetfsFile::kControl:
            return call_model(fd, FileOperation::kWrite, fcntl(fd, F_GETFL), 0, bytes, length,
                              nullptr, 0);
        case GadgetfsFile::kEndpoint:
            return write_configuration(fd, bytes, length);
        default:
            errno = EBADMSG;
            return -1;
    }
}

int ioctl_gadgetfs_file(int fd, GadgetfsFile kind, unsigned long request) {
    if (kind == GadgetfsFile::kControl) {
        return 0;
    }
    if (kind == GadgetfsFile::kEndpoint) {
        errno = ENODEV;
        return -1;
    }
    const CancelLater cancel_later;
    if (send_notice(fd, PacketKind::kIoctl, static_cast<std::int32_t>(request)) < 0) {
        errno = ESHUTDOWN;
        return -1;
    }
    return 0;
}

void forget_gadgetfs_file(int fd, GadgetfsFile kind) {
    const CancelLater cancel_later;
    // Best effort: the end of the connection says it too, only later while a read is under way.
    if (kind == GadgetfsFile::kInEndpoint || kind == GadgetfsFile::kOutEndpoint) {
        send_notice(fd, PacketKind::kClose, 0);
    } else {
        send_request(fd, FileOperation::kClose, 0, 0, 0);
    }
    set_kind(fd, GadgetfsFile::kNone);
}

int poll_control_file(pollfd* fds, nfds_t count, int timeout_ms) {
    pollfd* control = nullptr;
    for (nfds_t i = 0; i < count; ++i) {
        fds[i].revents = 0;
        if (control == nullptr && gadgetfs_file(fds[i].fd) == GadgetfsFile::kControl) {
            control = &fds[i];
        }
    }
    if (control == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const int events = call_model(control->fd, FileOperation::kPoll, control->events, timeout_ms,
                                  nullptr, 0, nullptr, 0);
    if (events < 0) {
        if (errno == EINTR) {
            return -1;
        }
        control->revents = POLLERR | POLLHUP;
        return 1;
    }
    control->revents = static_cast<short>(events);
    return events != 0 ? 1 : 0;
}
