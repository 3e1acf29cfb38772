#include "simulator/gadgetfs_server.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/usb/gadgetfs.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

bool is_bulk(ConnectionKind kind) {
    return kind == ConnectionKind::kInEndpoint || kind == ConnectionKind::kOutEndpoint;
}

bool is_endpoint(ConnectionKind kind) {
    return kind == ConnectionKind::kEndpoint || is_bulk(kind);
}

}  // namespace

GadgetfsServer::GadgetfsServer(std::string root, std::string controller)
    : root_(std::move(root)), controller_(std::move(controller)) {
    listener_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    unlink((root_ + "/" + kGadgetfsSocketName).c_str());  // of a run that was killed
    if (listener_ < 0 || wake_ < 0 || with_gadgetfs_address(root_, listener_, bind) < 0 ||
        listen(listener_, 16) < 0) {
        fail("the gadgetfs socket");
    }
    thread_ = std::thread([this] { serve(); });
}

GadgetfsServer::~GadgetfsServer() {
    {
        const Lock held = lock();
        stop_ = true;
    }
    wake();
    thread_.join();
    model_.close_control();
    show_endpoint_files();
    close(listener_);
    close(wake_);
    unlink((root_ + "/" + kGadgetfsSocketName).c_str());
}

void GadgetfsServer::wake() {
    const std::uint64_t one = 1;
    if (write(wake_, &one, sizeof one) < 0) {
        return;  // it is full of wakes already
    }
}

void GadgetfsServer::serve() {
    for (;;) {
        Lock held = lock();
        if (stop_) {
            return;
        }
        serve_round(held);
    }
}

// Waits without the lock, then serves what is there: the endpoints first, so that what the process
// has done on them before it answered a control request is known with that answer.
void GadgetfsServer::serve_round(Lock& held) {
    std::stable_partition(connections_.begin(), connections_.end(),
                          [](const Connection& each) { return is_endpoint(each->kind); });
    const std::vector<Connection> served = connections_;
    std::vector<pollfd> fds = {{wake_, POLLIN, 0}, {listener_, POLLIN, 0}};
    for (const Connection& connection : served) {
        const bool unread = connection->kind == ConnectionKind::kInEndpoint &&
                            (hold_bulk_in_ || connection->off_bus);
        fds.push_back({connection->fd, unread ? short{0} : short{POLLIN}, 0});
    }
    const int timeout = poll_timeout();
    held.unlock();
    poll(fds.data(), fds.size(), timeout);
    held.lock();

    std::uint64_t wakes = 0;
    if (read(wake_, &wakes, sizeof wakes) < 0) {
        wakes = 0;  // woken by something else
    }
    for (std::size_t i = 0; i < served.size(); ++i) {
        serve_connection(served[i], fds[i + 2].revents);
    }
    if ((fds[1].revents & POLLIN) != 0) {
        accept_connection();
    }
    model_changed();
}

// Until the first deadline of a waiting poll(), rounded up.
int GadgetfsServer::poll_timeout() const {
    auto first = Clock::time_point::max();
    for (const Connection& connection : connections_) {
        if (connection->waiting && connection->waiting->deadline) {
            first = std::min(first, *connection->waiting->deadline);
        }
    }
    if (first == Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - Clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}

void GadgetfsServer::accept_connection() {
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
        connections_.push_back(std::make_shared<GadgetfsConnection>(fd));
    }
}

void GadgetfsServer::serve_connection(const Connection& connection, short events) {
    constexpr int kMostMessages = 256;  // in one round, lest one file keeps the others waiting
    // An IN endpoint off the bus reads as ended, although the process still holds it.
    const bool ended = connection->kind == ConnectionKind::kInEndpoint && connection->off_bus;
    if ((events & POLLIN) != 0 && !ended) {
        for (int i = 0; i < kMostMessages && take_message(connection); ++i) {
        }
    } else if ((events & (POLLHUP | POLLERR)) != 0) {
        drop(connection);
    }
}

// False when there is none, or the connection is at its end.
bool GadgetfsServer::take_message(const Connection& connection) {
    std::array<std::uint8_t, sizeof(FileRequest) + kLargestFileMessage> buffer;
    const ssize_t received = recv(connection->fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (received < 0 && (errno == EAGAIN || errno == EINTR)) {
        return false;
    }
    if (received <= 0) {
        drop(connection);
        return false;
    }
    const auto message = std::span(buffer).first(static_cast<std::size_t>(received));
    if (is_bulk(connection->kind)) {
        take_packet(connection, message);
        return true;
    }
    FileRequest request{};
    if (message.size() < sizeof request) {
        fprintf(stderr, "simulated board: a message of %zd bytes is no request\n", received);
        drop(connection);
        return false;
    }
    memcpy(&request, message.data(), sizeof request);
    take_request(connection, request, message.subspan(sizeof request));
    return true;
}

void GadgetfsServer::take_request(const Connection& connection, const FileRequest& request,
                                  std::span<const std::uint8_t> bytes) {
    connection->waiting.reset();  // who asks again has left the earlier call
    switch (request.operation) {
        case FileOperation::kOpen:
            take_open(connection, request, bytes);
            return;
        case FileOperation::kWrite:
            take_write(connection, request, bytes);
            return;
        case FileOperation::kRead:
            connection->waiting = WaitingCall{request, std::nullopt};
            break;
        case FileOperation::kPoll:
            connection->waiting = WaitingCall{request, std::nullopt};
            if (request.argument >= 0) {
                connection->waiting->deadline =
                    Clock::now() + std::chrono::milliseconds(request.argument);
            }
            break;
        case FileOperation::kCancel:
            send_reply(*connection, request, CallResult::of(0));
            return;
        case FileOperation::kClose:
            return;
        default:
            fprintf(stderr, "simulated board: unknown file operation %u\n",
                    static_cast<unsigned>(request.operation));
            return;
    }
    complete_waiting(connection);
}

void GadgetfsServer::take_open(const Connection& connection, const FileRequest& request,
                               std::span<const std::uint8_t> name) {
    connection->file.assign(name.begin(), name.end());
    if (connection->file != controller_) {
        connection->waiting = WaitingCall{request, std::nullopt};
        complete_waiting(connection);
        return;
    }
    const CallResult result = model_.open_control();
    if (result.result >= 0) {
        connection->kind = ConnectionKind::kControl;
    }
    send_reply(*connection, request, result);
}

void GadgetfsServer::take_write(const Connection& connection, const FileRequest& request,
                                std::span<const std::uint8_t> bytes) {
    if (connection->kind == ConnectionKind::kControl) {
        const bool described = model_.described();
        const CallResult result = model_.write_control(bytes);
        if (!described && model_.described()) {
            described_at_ = Clock::now();
        }
        show_endpoint_files();
        send_reply(*connection, request, result);
        return;
    }
    if (connection->kind != ConnectionKind::kEndpoint) {
        send_reply(*connection, request, CallResult::failed(ENODEV));
        return;
    }
    const CallResult result = model_.configure_endpoint(connection->file, bytes);
    int direction = 0;
    if (result.result >= 0) {
        const bool in = GadgetfsModel::is_in_record(model_.endpoint_record(connection->file));
        connection->kind = in ? ConnectionKind::kInEndpoint : ConnectionKind::kOutEndpoint;
        direction = in ? 0x80 : 0;
        const int buffer = kEndpointSocketBuffer / 2;  // the kernel doubles it
        setsockopt(connection->fd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    }
    send_reply(*connection, request, result, direction);
}

void GadgetfsServer::take_packet(const Connection& connection,
                                 std::span<const std::uint8_t> packet) {
    const auto kind = static_cast<PacketKind>(packet[0]);
    const auto bytes = packet.subspan(1);
    std::int32_t value = 0;
    memcpy(&value, bytes.data(), std::min(sizeof value, bytes.size()));
    if (kind == PacketKind::kData && connection->kind == ConnectionKind::kInEndpoint) {
        bulk_in_.emplace_back(bytes.begin(), bytes.end());
    } else if (kind == PacketKind::kIoctl) {
        clear_halts_[connection->file] += value == GADGETFS_CLEAR_HALT;
    } else if (kind == PacketKind::kClose) {
        model_.leave_endpoint(connection->file);
    }
}

void GadgetfsServer::drop(const Connection& connection) {
    if (std::find(connections_.begin(), connections_.end(), connection) == connections_.end()) {
        return;  // dropped earlier in this round; its file may be open anew
    }
    if (connection->kind == ConnectionKind::kControl) {
        disconnect();
        model_.close_control();
        show_endpoint_files();
    } else if (is_endpoint(connection->kind)) {
        model_.close_endpoint(connection->file);
    }
    connection->off_bus = true;
    // By its address: the caller's reference may be to the list's own element.
    const GadgetfsConnection* const dropped = connection.get();
    std::erase_if(connections_,
                  [dropped](const Connection& each) { return each.get() == dropped; });
}

// True when the call has got its answer.
bool GadgetfsServer::complete_waiting(const Connection& connection) {
    const FileRequest& request = connection->waiting->request;
    std::optional<CallResult> result;
    if (request.operation == FileOperation::kOpen) {
        result = model_.open_endpoint(connection->file);
        if (result && result->result >= 0) {
            connection->kind = ConnectionKind::kEndpoint;
            result->result = kEndpointFileOpened;
        }
    } else if (connection->kind != ConnectionKind::kControl) {
        result = CallResult::failed(ENODEV);
    } else if (request.operation == FileOperation::kRead) {
        result = model_.read_control(static_cast<std::size_t>(std::max(request.argument, 0)),
                                     (request.flags & O_NONBLOCK) != 0);
    } else {
        const int events = model_.poll_control() & (request.flags | POLLERR | POLLHUP);
        const auto deadline = connection->waiting->deadline;
        if (events != 0 || (deadline && Clock::now() >= *deadline)) {
            result = CallResult::of(events);
        }
    }
    if (!result) {
        return false;
    }
    send_reply(*connection, request, *result);
    connection->waiting.reset();
    return true;
}

void GadgetfsServer::model_changed() {
    for (bool again = true; again;) {
        again = false;
        for (const Connection& connection : connections_) {
            again = (connection->waiting && complete_waiting(connection)) || again;
        }
    }
    changed_.notify_all();
}

void GadgetfsServer::disconnect() {
    const std::vector<Connection> all = connections_;  // one may be dropped meanwhile
    for (const Connection& connection : all) {
        if (is_bulk(connection->kind) && !connection->off_bus) {
            if (connection->kind == ConnectionKind::kInEndpoint && !hold_bulk_in_) {
                while (take_message(connection)) {  // what the device sent before is not lost
                }
            }
            take_off_bus(*connection);
        }
    }
    model_.disconnect();
}

std::shared_ptr<GadgetfsConnection> GadgetfsServer::endpoint(ConnectionKind kind) const {
    for (const Connection& connection : connections_) {
        if (connection->kind == kind && !connection->off_bus) {
            return connection;
        }
    }
    return nullptr;
}

int GadgetfsServer::clear_halt_count(const std::string& file) const {
    const auto found = clear_halts_.find(file);
    return found == clear_halts_.end() ? 0 : found->second;
}

void GadgetfsServer::hold_bulk_in(bool hold) {
    hold_bulk_in_ = hold;
    wake();
}

// The endpoint files are seen in the directory from the description on, until the device is closed.
void GadgetfsServer::show_endpoint_files() {
    if (model_.described() == endpoint_files_shown_) {
        return;
    }
    endpoint_files_shown_ = model_.described();
    for (const std::string& name : GadgetfsModel::endpoint_names()) {
        const std::string path = root_ + "/dev/gadget/" + name;
        if (endpoint_files_shown_) {
            std::ofstream{path};
        } else {
            std::filesystem::remove(path);
        }
    }
}
