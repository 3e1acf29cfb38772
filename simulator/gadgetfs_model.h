// The kernel's gadgetfs as a state machine: what each call on its files returns, and what the host
// gets. No input or output of its own. Thread-bound: the owner serialises the calls.
//
// Control file: opened -> (description written) unconnected -> connected -> setup, from the reading
// of a setup event to its answer. Its closing takes the device off the bus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "simulator/gadgetfs_description.h"
#include "simulator/usb_bus.h"

// As of a system call; bytes are what a read returns.
struct CallResult {
    long result = 0;  // -1: error is the errno
    int error = 0;
    Bytes bytes;
    bool operator==(const CallResult&) const = default;

    static CallResult of(long value) { return {value, 0, {}}; }
    static CallResult failed(int error_number) { return {-1, error_number, {}}; }
    static CallResult with(Bytes data) {
        const long size = static_cast<long>(data.size());
        return {size, 0, std::move(data)};
    }
};

enum class EndpointState {
    kClosed,
    kOpen,        // without its record
    kConfigured,  // takes transfers
    kLeaving,     // closed by its holder while a read is under way
};

class GadgetfsModel {
  public:
    // -- control file. nullopt: the call waits until something changes.
    CallResult open_control();
    void close_control();
    CallResult write_control(std::span<const std::uint8_t> bytes);
    std::optional<CallResult> read_control(std::size_t size, bool nonblocking);
    short poll_control();  // the poll events that hold now; 0: none

    // -- endpoint files: ep1in .. ep7in, ep1out .. ep7out, there once the description is written
    static const std::vector<std::string>& endpoint_names();
    std::optional<CallResult> open_endpoint(const std::string& name);
    CallResult configure_endpoint(const std::string& name, std::span<const std::uint8_t> record);
    void leave_endpoint(const std::string& name);  // its holder has called close()
    void close_endpoint(const std::string& name);  // its last use is over
    EndpointState endpoint_state(const std::string& name) const;
    const Bytes& endpoint_record(const std::string& name) const;
    static bool is_in_record(const Bytes& record) { return (record[6] & 0x80) != 0; }

    // -- the bus
    void connect(UsbSpeed speed);
    void disconnect();
    void suspend();
    // A control request. Whatever the kernel answers by itself is answered at once, unless
    // `to_process`; the answer is then or later in control_answer().
    void setup(const SetupPacket& packet, Bytes data_out, bool to_process);
    // What the host got, once; nullopt while there is no answer.
    std::optional<ControlResult> control_answer();
    bool host_waits() const { return host_waits_; }
    void host_gives_up() { host_waits_ = false; }

    // -- what is injected and observed
    void inject_read(CallResult result) { injected_reads_.push_back(std::move(result)); }
    bool described() const { return description_.has_value(); }
    Bytes description() const { return description_ ? description_->written : Bytes(); }
    bool connected() const { return speed_ != UsbSpeed::kUnknown; }
    UsbSpeed speed() const { return speed_; }
    const Bytes& last_control_write() const { return last_control_write_; }

  private:
    enum class State { kClosed, kOpened, kUnconnected, kConnected, kSetup };
    enum EventType : std::uint32_t { kConnect = 1, kDisconnect = 2, kSetupEvent = 3, kSuspend = 4 };
    struct Event {
        EventType type;
        Bytes bytes;  // 8: the union
    };
    struct Endpoint {
        EndpointState state = EndpointState::kClosed;
        Bytes record;
    };

    void add_event(EventType type, Bytes bytes);
    CallResult read_events(std::size_t size);
    std::optional<CallResult> read_in_setup(std::size_t size, bool nonblocking);
    std::optional<ControlResult> kernel_answer(const SetupPacket& packet) const;
    std::uint8_t configuration_value() const;
    void delegate(const SetupPacket& packet, Bytes data_out);
    void answer_host(ControlStatus status, Bytes data = {});

    State state_ = State::kClosed;
    std::optional<DeviceDescription> description_;
    UsbSpeed speed_ = UsbSpeed::kUnknown;
    std::uint8_t configuration_ = 0;
    // From the first read that has room for an event, whatever it returns. Before, the kernel does
    // not ask the process.
    bool process_listens_ = false;
    std::deque<Event> events_;
    std::deque<CallResult> injected_reads_;
    Bytes last_control_write_;
    std::map<std::string, Endpoint> endpoints_;

    // The last request that was delegated. It may be newer than the one that the process has read.
    bool setup_in_ = false;
    bool setup_can_stall_ = false;
    std::size_t setup_length_ = 0;
    std::optional<Bytes> setup_data_;  // the OUT data stage, until it is fetched
    bool setup_aborted_ = false;       // the process has yet to learn that its request is void

    bool host_waits_ = false;
    std::optional<ControlResult> answer_;
};
