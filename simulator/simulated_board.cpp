#include "simulator/simulated_board.h"

#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <mutex>

#include "simulator/board_root.h"
#include "simulator/gadgetfs_server.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kSetConfiguration = 9;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint16_t kEnglish = 0x0409;
constexpr std::size_t kLargestTransfer = 512;

SetupPacket set_configuration(std::uint16_t value) {
    return {0x00, kSetConfiguration, value, 0, 0};
}

// As a host asks: the language in wIndex, but for the list of languages.
SetupPacket get_string(std::uint8_t index) {
    const std::uint16_t language = index == 0 ? std::uint16_t{0} : kEnglish;
    return {0x80, kGetDescriptor, static_cast<std::uint16_t>(0x0300 | index), language, 255};
}

// Preloaded into the receiver: beside this program where it was installed or built, else where it
// was built.
std::string library_path() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (const char* const place : {"", "../simulator", "../lib", "simulator"}) {
        const fs::path candidate = program / place / "libgadgetfs-sim.so";
        if (!error && fs::exists(candidate)) {
            return fs::canonical(candidate).string();
        }
    }
    return GADGETFS_SIM_LIBRARY;
}

std::string variable(const char* name) {
    const char* const value = getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

struct SimulatedBoard::Impl {
    explicit Impl(SimulatedBoardOptions board_options)
        : options(std::move(board_options)), root(options.root) {
        root.make_directory("/sys/firmware/devicetree/base");
        // The firmware ends the text with a NUL.
        root.write_file("/sys/firmware/devicetree/base/model", options.board_model + '\0');
        root.make_directory("/run");
        if (options.with_run_directory) {
            root.make_directory("/run/vantarel");
        }
        root.make_directory("/boot");
        root.make_directory("/dev/gadget");
        root.write_file("/dev/gadget/" + options.controller, "");
        root.write_stand_ins();
        server.emplace(root.directory(), options.controller);
    }

    ControlResult control(const SetupPacket& setup, Bytes data_out, Milliseconds timeout,
                          bool to_process);

    // With the lock let go. At once where no device is described.
    void wait_after_description(GadgetfsServer::Lock& lock, Milliseconds time) {
        const GadgetfsModel& model = server->model();
        server->wait_until(lock, server->described_at() + time,
                           [&model] { return !model.described(); });
    }

    // Kept by the caller while it sends, without the lock: the device may take its time.
    std::shared_ptr<GadgetfsConnection> out_endpoint() const {
        const auto lock = server->lock();
        return server->endpoint(ConnectionKind::kOutEndpoint);
    }

    SimulatedBoardOptions options;
    BoardRoot root;
    std::optional<GadgetfsServer> server;  // gone before the root
    std::mutex one_request;                // a host has one control request under way
};

SimulatedBoard::SimulatedBoard(SimulatedBoardOptions options)
    : impl_(std::make_unique<Impl>(std::move(options))) {}

SimulatedBoard::~SimulatedBoard() = default;

const std::string& SimulatedBoard::root() const {
    return impl_->root.directory();
}

std::string SimulatedBoard::path(const std::string& place) const {
    return root() + place;
}

std::vector<std::string> SimulatedBoard::environment() const {
    std::string preload = library_path();
    std::vector<std::string> variables;
    // A receiver with a sanitizer wants its runtime first, although this library stands before libc
    // too; and it must meet its own mistakes, not a handler of the process.
    if (std::strlen(SANITIZER_RUNTIME) > 0) {
        preload = std::string(SANITIZER_RUNTIME) + ":" + preload;
        const std::string given = variable("ASAN_OPTIONS");
        variables.push_back("ASAN_OPTIONS=" + given + (given.empty() ? "" : ":") +
                            "verify_asan_link_order=0");
    }
    const std::string given = variable("LD_PRELOAD");
    variables.push_back("LD_PRELOAD=" + preload + (given.empty() ? "" : ":") + given);
    variables.push_back("GADGETFS_SIM_ROOT=" + root());
    variables.push_back("PATH=" + root() + "/bin:" + variable("PATH"));
    return variables;
}

std::vector<std::string> SimulatedBoard::shell_commands() const {
    return impl_->root.command_lines();
}

// -- the kernel's side

bool SimulatedBoard::wait_for_device(Milliseconds timeout) {
    GadgetfsServer& server = *impl_->server;
    auto lock = server.lock();
    return server.wait_until(lock, Clock::now() + timeout,
                             [&server] { return server.model().described(); });
}

Bytes SimulatedBoard::device_description() const {
    const auto lock = impl_->server->lock();
    return impl_->server->model().description();
}

Bytes SimulatedBoard::endpoint_record(const std::string& file) const {
    const auto lock = impl_->server->lock();
    return impl_->server->model().endpoint_record(file);
}

int SimulatedBoard::clear_halt_count(const std::string& file) const {
    const auto lock = impl_->server->lock();
    return impl_->server->clear_halt_count(file);
}

void SimulatedBoard::inject_control_read(Bytes bytes) {
    const auto lock = impl_->server->lock();
    impl_->server->model().inject_read(CallResult::with(std::move(bytes)));
    impl_->server->model_changed();
}

void SimulatedBoard::inject_control_error(int error_number) {
    const auto lock = impl_->server->lock();
    impl_->server->model().inject_read(CallResult::failed(error_number));
    impl_->server->model_changed();
}

Bytes SimulatedBoard::last_control_write() const {
    const auto lock = impl_->server->lock();
    return impl_->server->model().last_control_write();
}

// -- the USB host's side

void SimulatedBoard::connect(UsbSpeed speed) {
    auto lock = impl_->server->lock();
    impl_->wait_after_description(lock, impl_->options.host_connects_after);
    impl_->server->model().connect(speed);
    impl_->server->model_changed();
}

void SimulatedBoard::disconnect() {
    const auto lock = impl_->server->lock();
    impl_->server->disconnect();
    impl_->server->model_changed();
}

void SimulatedBoard::reset() {
    const auto lock = impl_->server->lock();
    const UsbSpeed speed = impl_->server->model().speed();
    impl_->server->disconnect();
    impl_->server->model().connect(speed);
    impl_->server->model_changed();
}

void SimulatedBoard::suspend() {
    const auto lock = impl_->server->lock();
    impl_->server->model().suspend();
    impl_->server->model_changed();
}

ControlResult SimulatedBoard::Impl::control(const SetupPacket& setup, Bytes data_out,
                                            Milliseconds timeout, bool to_process) {
    const std::scoped_lock one_at_a_time(one_request);
    auto lock = server->lock();
    GadgetfsModel& model = server->model();
    wait_after_description(lock, options.host_asks_after);
    const auto deadline = Clock::now() + timeout;
    model.setup(setup, std::move(data_out), to_process);
    server->model_changed();
    server->wait_until(lock, deadline, [&model] { return !model.host_waits(); });
    model.host_gives_up();
    return model.control_answer().value_or(ControlResult{});
}

ControlResult SimulatedBoard::control(const SetupPacket& setup, Bytes data_out,
                                      Milliseconds timeout) {
    return impl_->control(setup, std::move(data_out), timeout, false);
}

ControlResult SimulatedBoard::control_to_process(const SetupPacket& setup, Bytes data_out,
                                                 Milliseconds timeout) {
    return impl_->control(setup, std::move(data_out), timeout, true);
}

bool SimulatedBoard::configure(UsbSpeed speed) {
    connect(speed);
    return control(set_configuration(2)).status == ControlStatus::kAcknowledged;
}

bool SimulatedBoard::enumerate(UsbSpeed speed) {
    connect(speed);
    disconnect();
    connect(speed);
    const SetupPacket requests[] = {
        get_string(0),        get_string(45),  get_string(25),  get_string(101),
        set_configuration(2), get_string(250), get_string(250),
    };
    return std::all_of(std::begin(requests), std::end(requests), [this](const SetupPacket& setup) {
        return control(setup).status == ControlStatus::kAcknowledged;
    });
}

// -- bulk transfers

bool SimulatedBoard::bulk_out(std::span<const std::uint8_t> bytes, std::size_t transfer,
                              Milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    const auto endpoint = impl_->out_endpoint();
    const std::size_t largest = std::clamp<std::size_t>(transfer, 1, kLargestTransfer);
    while (endpoint != nullptr && !bytes.empty()) {
        const auto packet = bytes.first(std::min(bytes.size(), largest));
        if (!send_packet(*endpoint, PacketKind::kData, packet, deadline)) {
            return false;
        }
        bytes = bytes.subspan(packet.size());
    }
    return endpoint != nullptr;
}

bool SimulatedBoard::bulk_out_empty() {
    const auto endpoint = impl_->out_endpoint();
    return endpoint != nullptr &&
           send_packet(*endpoint, PacketKind::kData, {}, Clock::now() + Milliseconds(10000));
}

void SimulatedBoard::fail_bulk_out(int error_number) {
    const auto endpoint = impl_->out_endpoint();
    if (endpoint == nullptr) {
        return;
    }
    std::uint8_t bytes[sizeof error_number];
    memcpy(bytes, &error_number, sizeof error_number);
    send_packet(*endpoint, PacketKind::kError, bytes, Clock::now() + Milliseconds(10000));
}

bool SimulatedBoard::wait_for_bulk_out_taken(Milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        auto lock = impl_->server->lock();
        const auto endpoint = impl_->server->endpoint(ConnectionKind::kOutEndpoint);
        if (endpoint == nullptr) {
            return false;
        }
        if (unread_bytes(*endpoint) == 0) {
            return true;
        }
        // The kernel tells nobody when the last of it is read: looked at once a millisecond.
        const auto next = Clock::now() + Milliseconds(1);
        if (next > deadline) {
            return false;
        }
        impl_->server->wait_until(lock, next, [] { return false; });
    }
}

bool SimulatedBoard::wait_for_endpoints(Milliseconds timeout) {
    GadgetfsServer& server = *impl_->server;
    auto lock = server.lock();
    return server.wait_until(lock, Clock::now() + timeout, [&server] {
        return std::ranges::all_of(
            std::array{ConnectionKind::kInEndpoint, ConnectionKind::kOutEndpoint},
            [&server](ConnectionKind kind) {
                const auto endpoint = server.endpoint(kind);
                return endpoint != nullptr &&
                       server.model().endpoint_state(endpoint->file) == EndpointState::kConfigured;
            });
    });
}

std::vector<Bytes> SimulatedBoard::bulk_in() const {
    const auto lock = impl_->server->lock();
    return impl_->server->bulk_in();
}

std::optional<Bytes> SimulatedBoard::wait_for_bulk_in(std::size_t index, Milliseconds timeout) {
    GadgetfsServer& server = *impl_->server;
    auto lock = server.lock();
    if (!server.wait_until(lock, Clock::now() + timeout,
                           [&] { return server.bulk_in().size() > index; })) {
        return std::nullopt;
    }
    return server.bulk_in()[index];
}

void SimulatedBoard::hold_bulk_in(bool hold) {
    const auto lock = impl_->server->lock();
    impl_->server->hold_bulk_in(hold);
}
