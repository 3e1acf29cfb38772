#include "simulator/gadgetfs_model.h"

#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t kEventSize = 12;
constexpr std::size_t kMostEvents = 5;

enum Request : std::uint8_t {
    kGetStatus = 0,
    kGetDescriptor = 6,
    kGetConfiguration = 8,
    kSetConfiguration = 9,
};
constexpr std::uint8_t kDeviceToHost = 0x80;
constexpr std::uint8_t kTypeBits = 0x60;

bool is_set_configuration(const SetupPacket& packet) {
    return packet.request_type == 0 && packet.request == kSetConfiguration;
}

Bytes setup_bytes(const SetupPacket& packet) {
    const auto low = [](std::uint16_t value) { return static_cast<std::uint8_t>(value & 0xFF); };
    const auto high = [](std::uint16_t value) { return static_cast<std::uint8_t>(value >> 8); };
    return {packet.request_type, packet.request,     low(packet.value),  high(packet.value),
            low(packet.index),   high(packet.index), low(packet.length), high(packet.length)};
}

}  // namespace

// -- control file

CallResult GadgetfsModel::open_control() {
    if (state_ != State::kClosed) {
        return CallResult::failed(EBUSY);
    }
    state_ = State::kOpened;
    return CallResult::of(0);
}

void GadgetfsModel::close_control() {
    state_ = State::kClosed;
    description_.reset();
    speed_ = UsbSpeed::kUnknown;
    configuration_ = 0;
    process_listens_ = false;
    events_.clear();
    injected_reads_.clear();
    setup_aborted_ = false;
    host_waits_ = false;
}

CallResult GadgetfsModel::write_control(std::span<const std::uint8_t> bytes) {
    CallResult whole = CallResult::of(static_cast<long>(bytes.size()));
    if (state_ == State::kOpened) {
        description_ = check_device_description(bytes);
        if (!description_) {
            return CallResult::failed(EINVAL);
        }
        state_ = State::kUnconnected;
        return whole;
    }
    if (setup_aborted_) {
        setup_aborted_ = false;
        return CallResult::failed(EIDRM);
    }
    if (state_ != State::kSetup) {
        return CallResult::failed(ESRCH);
    }
    if (setup_in_) {
        last_control_write_.assign(bytes.begin(), bytes.end());
        const auto data = bytes.first(std::min(bytes.size(), setup_length_));
        state_ = State::kConnected;
        answer_host(ControlStatus::kAcknowledged, {data.begin(), data.end()});
        return whole;
    }
    // A write where the host sends is the stall. Not of SET_CONFIGURATION: that stays unanswered.
    if (!setup_can_stall_) {
        return CallResult::failed(ESRCH);
    }
    state_ = State::kConnected;
    answer_host(ControlStatus::kStalled);
    return CallResult::failed(EL2HLT);
}

std::optional<CallResult> GadgetfsModel::read_control(std::size_t size, bool nonblocking) {
    if (state_ == State::kClosed || state_ == State::kOpened) {
        return CallResult::failed(EINVAL);
    }
    if (!injected_reads_.empty() && size > 0) {
        CallResult result = std::move(injected_reads_.front());
        injected_reads_.pop_front();
        process_listens_ = process_listens_ || size >= kEventSize;
        if (result.bytes.size() > size) {
            result.bytes.resize(size);
            result.result = static_cast<long>(size);
        }
        return result;
    }
    if (setup_aborted_) {
        setup_aborted_ = false;
        return CallResult::failed(EIDRM);
    }
    if (state_ == State::kSetup) {
        return read_in_setup(size, nonblocking);
    }
    if (size < kEventSize) {
        return CallResult::failed(EINVAL);
    }
    process_listens_ = true;
    if (!events_.empty()) {
        return read_events(size);
    }
    return nonblocking ? std::optional(CallResult::failed(EAGAIN)) : std::nullopt;
}

std::optional<CallResult> GadgetfsModel::read_in_setup(std::size_t size, bool nonblocking) {
    if (setup_in_) {
        // A read where the host reads too is the stall, of whatever size.
        state_ = State::kConnected;
        answer_host(ControlStatus::kStalled);
        return CallResult::failed(EL2HLT);
    }
    if (size == 0) {
        state_ = State::kConnected;
        answer_host(ControlStatus::kAcknowledged);
        return CallResult::of(0);
    }
    if (!setup_data_) {
        return nonblocking ? std::optional(CallResult::failed(EAGAIN)) : std::nullopt;
    }
    state_ = State::kConnected;
    Bytes data = *std::exchange(setup_data_, std::nullopt);
    data.resize(std::min(data.size(), size));
    return CallResult::with(std::move(data));
}

// Whole events, up to the first setup: its answer comes before any later event.
CallResult GadgetfsModel::read_events(std::size_t size) {
    Bytes bytes;
    while (!events_.empty() && bytes.size() + kEventSize <= size) {
        const Event event = std::move(events_.front());
        events_.pop_front();
        bytes.insert(bytes.end(), event.bytes.begin(), event.bytes.end());
        const std::uint8_t type[] = {static_cast<std::uint8_t>(event.type), 0, 0, 0};
        bytes.insert(bytes.end(), std::begin(type), std::end(type));
        if (event.type == kSetupEvent) {
            state_ = State::kSetup;
            break;
        }
    }
    return CallResult::with(std::move(bytes));
}

short GadgetfsModel::poll_control() {
    if (state_ == State::kOpened) {
        return POLLIN | POLLOUT;
    }
    if (setup_aborted_) {
        setup_aborted_ = false;  // said once, here or by a read or write
        return POLLHUP;
    }
    if (state_ == State::kSetup) {
        return setup_in_ || setup_can_stall_ ? POLLOUT : 0;
    }
    return !events_.empty() || !injected_reads_.empty() ? POLLIN : 0;
}

void GadgetfsModel::add_event(EventType type, Bytes bytes) {
    if (type == kConnect || type == kDisconnect) {
        events_.clear();  // what was before is void
    } else {
        std::erase_if(events_, [type](const Event& event) { return event.type == type; });
    }
    if (events_.size() < kMostEvents) {
        bytes.resize(8);
        events_.push_back({type, std::move(bytes)});
    }
}

// -- the bus

void GadgetfsModel::connect(UsbSpeed speed) {
    if (!description_) {
        return;
    }
    setup_aborted_ = setup_aborted_ || state_ == State::kSetup;
    host_waits_ = false;
    speed_ = speed;
    state_ = State::kConnected;
    add_event(kConnect, {static_cast<std::uint8_t>(speed)});
}

void GadgetfsModel::disconnect() {
    if (!description_) {
        return;
    }
    setup_aborted_ = setup_aborted_ || state_ == State::kSetup;
    state_ = State::kUnconnected;
    speed_ = UsbSpeed::kUnknown;
    configuration_ = 0;
    host_waits_ = false;
    add_event(kDisconnect, {});
}

void GadgetfsModel::suspend() {
    if (description_) {
        add_event(kSuspend, {});
    }
}

void GadgetfsModel::setup(const SetupPacket& packet, Bytes data_out, bool to_process) {
    answer_.reset();
    host_waits_ = connected();
    if (!host_waits_) {
        return;
    }
    if (state_ == State::kSetup) {
        setup_aborted_ = true;
    }
    if (is_set_configuration(packet) && !kernel_answer(packet)) {
        configuration_ = static_cast<std::uint8_t>(packet.value);  // whatever the process says
    }
    if (!to_process) {
        std::optional<ControlResult> answer = kernel_answer(packet);
        if (!answer && !process_listens_) {
            // Nobody has read events yet, and the kernel decides alone: it configures the device,
            // of which the process never hears, and stalls the rest.
            answer.emplace();
            answer->status = is_set_configuration(packet) ? ControlStatus::kAcknowledged
                                                          : ControlStatus::kStalled;
        }
        if (answer) {
            answer_host(answer->status, std::move(answer->data));
            return;
        }
    }
    delegate(packet, std::move(data_out));
}

std::optional<ControlResult> GadgetfsModel::kernel_answer(const SetupPacket& packet) const {
    const auto data = [&packet](Bytes bytes) {
        bytes.resize(std::min<std::size_t>(bytes.size(), packet.length));
        return ControlResult{ControlStatus::kAcknowledged, std::move(bytes)};
    };
    const ControlResult stalled{ControlStatus::kStalled, {}};
    const bool standard = (packet.request_type & kTypeBits) == 0;
    const std::uint8_t descriptor = static_cast<std::uint8_t>(packet.value >> 8);

    if (standard && packet.request == kGetStatus && (packet.request_type & kDeviceToHost) != 0) {
        return data({1, 0});  // self-powered
    }
    if (packet.request_type == kDeviceToHost && packet.request == kGetConfiguration) {
        return data({configuration_});
    }
    if (packet.request_type == kDeviceToHost && packet.request == kGetDescriptor &&
        (descriptor == 1 || descriptor == 2 || descriptor == 6 || descriptor == 7)) {
        const auto bytes = kernel_descriptor(*description_, speed_, packet);
        return bytes ? data(*bytes) : stalled;
    }
    if (is_set_configuration(packet)) {
        const std::uint16_t value = packet.value & 0xFF;
        if (value != 0 && value != configuration_value()) {
            return stalled;
        }
    }
    return std::nullopt;
}

std::uint8_t GadgetfsModel::configuration_value() const {
    const bool high_speed = speed_ == UsbSpeed::kHigh && !description_->high_speed.empty();
    return high_speed ? description_->high_speed[5] : description_->full_speed[5];
}

void GadgetfsModel::delegate(const SetupPacket& packet, Bytes data_out) {
    setup_in_ = (packet.request_type & kDeviceToHost) != 0;
    setup_can_stall_ = !is_set_configuration(packet);
    setup_length_ = packet.length;
    if (!setup_in_ && packet.length > 0) {
        // The kernel takes the data stage and completes the request before the process sees it.
        // Where the last request's data were never fetched, there is no room for this one's.
        if (setup_data_) {
            setup_data_.reset();
        } else {
            data_out.resize(packet.length);
            setup_data_ = std::move(data_out);
        }
        answer_host(ControlStatus::kAcknowledged);
    } else {
        setup_data_.reset();
    }
    add_event(kSetupEvent, setup_bytes(packet));
}

void GadgetfsModel::answer_host(ControlStatus status, Bytes data) {
    if (host_waits_) {
        host_waits_ = false;
        answer_ = ControlResult{status, std::move(data)};
    }
}

std::optional<ControlResult> GadgetfsModel::control_answer() {
    return std::exchange(answer_, std::nullopt);
}

// -- endpoint files

const std::vector<std::string>& GadgetfsModel::endpoint_names() {
    static const std::vector<std::string> names = {
        "ep1in",  "ep2in",  "ep3in",  "ep4in",  "ep5in",  "ep6in",  "ep7in",
        "ep1out", "ep2out", "ep3out", "ep4out", "ep5out", "ep6out", "ep7out",
    };
    return names;
}

std::optional<CallResult> GadgetfsModel::open_endpoint(const std::string& name) {
    const auto& names = endpoint_names();
    if (!description_ || std::find(names.begin(), names.end(), name) == names.end()) {
        return CallResult::failed(ENOENT);
    }
    Endpoint& endpoint = endpoints_[name];
    if (endpoint.state == EndpointState::kLeaving) {
        return std::nullopt;  // until the read under way has returned
    }
    if (endpoint.state != EndpointState::kClosed) {
        return CallResult::failed(EBUSY);
    }
    endpoint = {EndpointState::kOpen, {}};
    return CallResult::of(1);
}

CallResult GadgetfsModel::configure_endpoint(const std::string& name,
                                             std::span<const std::uint8_t> record) {
    Endpoint& endpoint = endpoints_[name];
    if (endpoint.state != EndpointState::kOpen) {
        return CallResult::failed(EL2HLT);
    }
    if (!is_endpoint_record(record) || !connected()) {
        return CallResult::failed(EINVAL);  // at an unknown speed no descriptor applies
    }
    endpoint = {EndpointState::kConfigured, {record.begin(), record.end()}};
    return CallResult::of(static_cast<long>(record.size()));
}

void GadgetfsModel::leave_endpoint(const std::string& name) {
    endpoints_[name].state = EndpointState::kLeaving;
}

void GadgetfsModel::close_endpoint(const std::string& name) {
    endpoints_[name] = {};
}

EndpointState GadgetfsModel::endpoint_state(const std::string& name) const {
    const auto found = endpoints_.find(name);
    return found == endpoints_.end() ? EndpointState::kClosed : found->second.state;
}

const Bytes& GadgetfsModel::endpoint_record(const std::string& name) const {
    static const Bytes none;
    const auto found = endpoints_.find(name);
    return found == endpoints_.end() ? none : found->second.record;
}
