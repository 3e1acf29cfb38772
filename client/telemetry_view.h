// What a main application knows of the camera: the receiver's reports, item by item.
//
//   07        text report      "key=value," for each of 31 keys, always in the same order
//   06 00     status record    37 bytes
//   06 01     parameter block  66 bytes, the last 11 of them zero
//
// Not thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

enum class ReportKind { kText, kStatus, kParameters, kWrong };

struct TelemetryChange {
    std::string key;
    std::string before;
    std::string after;
};

class TelemetryView {
  public:
    // Takes one datagram in. A datagram that breaks the rules above changes nothing; error() then
    // tells which.
    ReportKind take(std::span<const std::uint8_t> datagram);

    // What the last datagram changed, in the order in which it tells it; nothing for the first one
    // of its kind.
    const std::vector<TelemetryChange>& changes() const { return changes_; }
    const std::string& error() const { return error_; }
    unsigned count(ReportKind kind) const;

    // nullopt for what has not been told yet. Numbers of the status record are decimal texts; the
    // parameter block is one item, "parameters", its 53 bytes as hex digits.
    std::optional<std::string> value(const std::string& key) const;
    // "key=value" for each item that a report of that kind tells, in its order.
    std::vector<std::string> items(ReportKind kind) const;

    // Whether any report tells of it.
    static bool knows(const std::string& key);

  private:
    using Item = std::pair<std::string, std::string>;

    ReportKind read(std::span<const std::uint8_t> datagram, std::vector<Item>* items);

    std::map<std::string, std::string> values_;
    std::map<ReportKind, unsigned> counts_;
    std::vector<TelemetryChange> changes_;
    std::string error_;
};
