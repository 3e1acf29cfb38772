// A second demultiplexer, to compare the receiver's with: what a stream in given cuts puts into the
// ring and into the log.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// What stays from stream to stream.
struct RingModel {
    unsigned clear_request = 0;
    unsigned next_slot = 0;
    unsigned sequence = 0;  // of the next part
    std::int32_t width = 0;
    std::int32_t height = 0;
};

struct PublishedPart {
    unsigned slot;
    unsigned sequence;
    std::vector<std::uint8_t> bytes;
};

class DemuxModel {
  public:
    explicit DemuxModel(RingModel& ring) : ring_(ring) {}

    // One bulk read. False when the stream ends the process.
    bool read(std::span<const std::uint8_t> packet);

    const std::vector<PublishedPart>& parts() const { return parts_; }
    const std::string& log() const { return log_; }
    std::size_t held() const { return held_.size(); }

  private:
    using Envelope = std::vector<std::uint8_t>;

    std::size_t first_header() const;
    bool take(const Envelope& envelope);
    bool publish(const std::vector<std::uint8_t>& part);
    bool measure(const std::vector<std::uint8_t>& part);
    void say(const char* text, std::initializer_list<unsigned> bytes);

    RingModel& ring_;
    std::vector<std::uint8_t> held_;
    std::vector<PublishedPart> parts_;
    std::string log_;
};
