#include "monitor/mqtt_publisher.h"

#include <mosquitto.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <exception>
#include <memory>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Angles change five times a second; who wants each of them has /live.
constexpr milliseconds kStateInterval{500};
constexpr milliseconds kLoopTime{100};
constexpr milliseconds kLookUpStep{10};
constexpr seconds kFirstPause{1};
constexpr seconds kLongestPause{30};
constexpr seconds kGoodbyeTime{2};
constexpr int kKeepAlive = 10;  // seconds, after which the broker tells of a monitor that is gone

std::vector<std::string> addresses_of(const std::string& name) {
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    std::vector<std::string> addresses;
    if (getaddrinfo(name.c_str(), nullptr, &wanted, &found) != 0) {
        return addresses;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, &freeaddrinfo);
    for (const addrinfo* each = found; each != nullptr; each = each->ai_next) {
        std::array<char, NI_MAXHOST> text{};
        if (getnameinfo(each->ai_addr, each->ai_addrlen, text.data(), text.size(), nullptr, 0,
                        NI_NUMERICHOST) == 0) {
            addresses.emplace_back(text.data());
        }
    }
    return addresses;
}

}  // namespace

MqttPublisher::MqttPublisher(TelemetryStore& store, MqttOptions options)
    : store_(store),
      options_(std::move(options)),
      state_topic_(options_.topic + "/state"),
      presence_topic_(options_.topic + "/presence") {}

MqttPublisher::~MqttPublisher() {
    stop();
}

void MqttPublisher::start() {
    if (!options_.host.empty()) {
        thread_ = std::thread([this] { run(); });
    }
}

void MqttPublisher::stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void MqttPublisher::run() {
    mosquitto_lib_init();
    while ((client_ = mosquitto_new(nullptr, true, this)) == nullptr && !stop_) {
        pause(kFirstPause);  // there is no memory
    }
    if (client_ != nullptr) {
        publish_until_stopped();
    }
    mosquitto_lib_cleanup();
}

void MqttPublisher::publish_until_stopped() {
    constexpr char kOffline[] = "offline";
    mosquitto_will_set(client_, presence_topic_.c_str(), sizeof kOffline - 1, kOffline, 1, true);
    if (!options_.user.empty()) {
        mosquitto_username_pw_set(client_, options_.user.c_str(),
                                  options_.password.empty() ? nullptr : options_.password.c_str());
    }
    mosquitto_connect_callback_set(client_, on_connect);
    seconds wait = kFirstPause;
    while (!stop_) {
        if (connect()) {
            stay_connected();
            wait = connected_ ? kFirstPause : wait;
        }
        if (!stop_) {
            if (!refused_) {
                say(" ", "is not reached");
            }
            connected_ = false;
            refused_ = false;
            pause(wait);
            wait = std::min(2 * wait, kLongestPause);
        }
    }
    say_goodbye();
    mosquitto_destroy(client_);
}

bool MqttPublisher::connect() {
    // The library would look the name up by itself, and wait for that.
    const std::vector<std::string> addresses = find_addresses();
    for (std::size_t tried = 0; tried < addresses.size(); ++tried) {
        // Each has its turn: that nobody answers at one shows only later.
        const std::string& address = addresses[next_address_++ % addresses.size()];
        // It would wait for minutes where it is not told to go on by itself.
        if (mosquitto_connect_async(client_, address.c_str(), options_.port, kKeepAlive) ==
            MOSQ_ERR_SUCCESS) {
            return true;
        }
    }
    return false;
}

// Of the broker's name. Nobody can end a look-up that gets no answer: the thread that waits for it
// is left to itself where this one is to stop.
std::vector<std::string> MqttPublisher::find_addresses() const {
    struct LookUp {
        std::string name;
        std::vector<std::string> addresses;
        std::atomic<bool> has_ended{false};
    };
    try {
        const auto look_up = std::make_shared<LookUp>();
        look_up->name = options_.host;
        std::thread([look_up] {
            try {
                look_up->addresses = addresses_of(look_up->name);
            } catch (const std::exception&) {
                // There is no memory for them; the next attempt asks again.
            }
            look_up->has_ended = true;
        }).detach();
        while (!stop_ && !look_up->has_ended) {
            std::this_thread::sleep_for(kLookUpStep);
        }
        if (look_up->has_ended) {
            return look_up->addresses;
        }
    } catch (const std::exception&) {
        // There is no memory for it, or no thread.
    }
    return {};
}

// Until the connection ends, or does not come about.
void MqttPublisher::stay_connected() {
    const auto begun = Clock::now();
    while (!stop_ &&
           mosquitto_loop(client_, static_cast<int>(kLoopTime.count()), 1) == MOSQ_ERR_SUCCESS) {
        if (connected_) {
            try {
                publish_state();
            } catch (const std::exception&) {
                // There is no memory for it; the next turn tells the same.
            }
        } else if (Clock::now() - begun > seconds(kKeepAlive)) {
            return;  // somebody takes the connection and says nothing
        }
    }
}

void MqttPublisher::on_connect(mosquitto* client, void* self, int code) {
    auto& publisher = *static_cast<MqttPublisher*>(self);
    if (code != 0) {
        publisher.refused_ = true;
        publisher.say(": ", mosquitto_connack_string(code));
        return;
    }
    publisher.connected_ = true;
    publisher.seen_ = 0;
    publisher.next_state_ = {};
    publisher.say(" ", "is there");
    constexpr char kOnline[] = "online";
    mosquitto_publish(client, nullptr, publisher.presence_topic_.c_str(), sizeof kOnline - 1,
                      kOnline, 1, true);
}

void MqttPublisher::publish_state() {
    const auto now = Clock::now();
    std::uint64_t seen = seen_;
    // What waits for a slow broker is not piled up.
    if (now < next_state_ || mosquitto_want_write(client_) || store_.changes(&seen).empty()) {
        return;
    }
    next_state_ = now + kStateInterval;
    std::uint64_t all = 0;
    const std::string state = "{" + store_.changes(&all) + "}";
    if (mosquitto_publish(client_, nullptr, state_topic_.c_str(), static_cast<int>(state.size()),
                          state.data(), 0, true) == MOSQ_ERR_SUCCESS) {
        seen_ = seen;
    }
}

void MqttPublisher::say_goodbye() {
    if (!connected_) {
        return;
    }
    constexpr char kOffline[] = "offline";
    mosquitto_publish(client_, nullptr, presence_topic_.c_str(), sizeof kOffline - 1, kOffline, 1,
                      true);
    mosquitto_disconnect(client_);
    const auto end = Clock::now() + kGoodbyeTime;
    while (Clock::now() < end &&
           mosquitto_loop(client_, static_cast<int>(kLoopTime.count()), 1) == MOSQ_ERR_SUCCESS) {
    }
}

void MqttPublisher::pause(Clock::duration time) const {
    const auto end = Clock::now() + time;
    while (!stop_ && Clock::now() < end) {
        std::this_thread::sleep_for(kLoopTime);
    }
}

// Once for as long as it stays so. The library that calls knows no exceptions.
void MqttPublisher::say(const char* joint, const char* what) noexcept {
    try {
        const std::string line = "MQTT broker " + options_.host + joint + what;
        if (line != last_line_) {
            store_.add_line(line);
            last_line_ = line;
        }
    } catch (const std::exception&) {
        // There is no memory for a line.
    }
}
