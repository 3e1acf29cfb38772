// Serves the kernel model to a process over the socket in the run's root directory: takes its
// calls, holds those that wait, and moves the bulk packets. One thread, one poll() loop.
//
// Everything but bulk_out sending happens under one lock. Callers take it with lock(), use model(),
// and say model_changed() before they let go or wait.
#pragma once

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/gadgetfs_connection.h"
#include "simulator/gadgetfs_model.h"

class GadgetfsServer {
  public:
    using Lock = std::unique_lock<std::mutex>;
    using Clock = std::chrono::steady_clock;

    // The directory dev/gadget below the root must be there.
    GadgetfsServer(std::string root, std::string controller);
    ~GadgetfsServer();
    GadgetfsServer(const GadgetfsServer&) = delete;
    GadgetfsServer& operator=(const GadgetfsServer&) = delete;

    Lock lock() const { return Lock(mutex_); }
    GadgetfsModel& model() { return model_; }
    // When the description was accepted that model() has.
    Clock::time_point described_at() const { return described_at_; }
    // Completes the calls that waited for this, and wakes who waits in wait_until().
    void model_changed();
    template <typename Condition>
    bool wait_until(Lock& lock, Clock::time_point deadline, Condition condition) {
        return changed_.wait_until(lock, deadline, condition);
    }

    // The device goes off the bus: model().disconnect(), and the bulk endpoints fail.
    void disconnect();
    // The endpoint that is configured in that direction and on the bus; null: none.
    std::shared_ptr<GadgetfsConnection> endpoint(ConnectionKind kind) const;
    const std::vector<Bytes>& bulk_in() const { return bulk_in_; }
    int clear_halt_count(const std::string& file) const;
    void hold_bulk_in(bool hold);

  private:
    using Connection = std::shared_ptr<GadgetfsConnection>;

    void serve();
    void serve_round(Lock& lock);
    int poll_timeout() const;
    void accept_connection();
    void serve_connection(const Connection& connection, short events);
    bool take_message(const Connection& connection);
    void take_request(const Connection& connection, const FileRequest& request,
                      std::span<const std::uint8_t> bytes);
    void take_open(const Connection& connection, const FileRequest& request,
                   std::span<const std::uint8_t> name);
    void take_write(const Connection& connection, const FileRequest& request,
                    std::span<const std::uint8_t> bytes);
    void take_packet(const Connection& connection, std::span<const std::uint8_t> packet);
    void drop(const Connection& connection);
    bool complete_waiting(const Connection& connection);
    void show_endpoint_files();
    void wake();

    std::string root_;
    std::string controller_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    GadgetfsModel model_;
    std::vector<Connection> connections_;
    std::vector<Bytes> bulk_in_;
    std::map<std::string, int> clear_halts_;
    bool hold_bulk_in_ = false;
    bool endpoint_files_shown_ = false;
    Clock::time_point described_at_;
    bool stop_ = false;
    int listener_ = -1;
    int wake_ = -1;
    std::thread thread_;
};
