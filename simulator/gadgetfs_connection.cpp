#include "simulator/gadgetfs_connection.h"

#include <errno.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

ssize_t send_two(int fd, const void* header, std::size_t header_size, const void* bytes,
                 std::size_t length) {
    // sendmsg() only reads what it is given.
    iovec pieces[] = {{const_cast<void*>(header), header_size}, {const_cast<void*>(bytes), length}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    return sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace

GadgetfsConnection::~GadgetfsConnection() {
    close(fd);
}

void send_reply(const GadgetfsConnection& connection, const FileRequest& request,
                const CallResult& result, int direction) {
    const FileReply reply{request.id, static_cast<std::int32_t>(result.result), result.error,
                          direction};
    send_two(connection.fd, &reply, sizeof reply, result.bytes.data(), result.bytes.size());
}

void take_off_bus(GadgetfsConnection& connection) {
    connection.off_bus = true;
    if (connection.kind == ConnectionKind::kOutEndpoint) {
        shutdown(connection.fd, SHUT_WR);  // its reads end
    } else if (connection.kind == ConnectionKind::kInEndpoint) {
        shutdown(connection.fd, SHUT_RD);  // its writes fail, also one that is blocked
    }
}

bool send_packet(const GadgetfsConnection& connection, PacketKind kind,
                 std::span<const std::uint8_t> bytes,
                 std::chrono::steady_clock::time_point deadline) {
    // Nothing wakes a sender when the endpoint goes off the bus: it looks now and then.
    constexpr int kLookMs = 20;
    while (send_two(connection.fd, &kind, sizeof kind, bytes.data(), bytes.size()) < 0) {
        if ((errno != EAGAIN && errno != EINTR) || connection.off_bus ||
            std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        pollfd room{connection.fd, POLLOUT, 0};
        poll(&room, 1, kLookMs);
    }
    return true;
}

int unread_bytes(const GadgetfsConnection& connection) {
    int bytes = 0;
    return ioctl(connection.fd, SIOCOUTQ, &bytes) < 0 ? 0 : bytes;
}
