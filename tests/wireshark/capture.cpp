#include "tests/wireshark/capture.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace {

// As they stand in the file: usbmon's events with their 64-byte header, and packets that begin with
// an IP header.
constexpr std::uint32_t kUsbmon = 220;
constexpr std::uint32_t kRawIp = 101;

constexpr std::uint8_t kBulk = 3;
constexpr std::uint8_t kInput = 0x80;  // bit of the endpoint's address
constexpr std::size_t kUsbmonHeader = 64;

class Writer {
  public:
    Writer& little(std::uint64_t value, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i) {
            bytes_.push_back(static_cast<std::uint8_t>(value >> 8 * i));
        }
        return *this;
    }
    Writer& big(std::uint64_t value, std::size_t size) {
        for (std::size_t i = size; i > 0; --i) {
            bytes_.push_back(static_cast<std::uint8_t>(value >> 8 * (i - 1)));
        }
        return *this;
    }
    Writer& bytes(std::span<const std::uint8_t> bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    const Bytes& all() const { return bytes_; }

  private:
    Bytes bytes_;
};

}  // namespace

void Capture::add(std::uint32_t link_type, Bytes bytes, std::size_t length) {
    if (link_type_ != 0 && link_type_ != link_type) {
        throw std::logic_error("a capture has one link type");
    }
    link_type_ = link_type;
    frames_.push_back({std::move(bytes), length});
}

void Capture::add_transfer(std::uint8_t endpoint, std::span<const std::uint8_t> bytes,
                           std::optional<std::size_t> length, std::uint8_t device) {
    const std::size_t whole = length.value_or(bytes.size());
    const std::size_t number = frames_.size();
    Writer event;
    event
        .little(number + 1, 8)  // the request
        .little((endpoint & kInput) != 0 ? 'C' : 'S', 1)
        .little(kBulk, 1)
        .little(endpoint, 1)
        .little(device, 1)
        .little(1, 2)       // bus
        .little('-', 1)     // no setup packet
        .little(0, 1)       // with data
        .little(number, 8)  // seconds
        .little(0, 4)       // microseconds
        .little(0, 4)       // status
        .little(whole, 4)
        .little(bytes.size(), 4)
        .little(0, 24);  // nothing that a bulk transfer has
    add(kUsbmon, event.bytes(bytes).all(), kUsbmonHeader + whole);
}

void Capture::add_datagram(std::uint16_t source, std::uint16_t destination,
                           std::span<const std::uint8_t> bytes,
                           std::optional<std::size_t> captured) {
    constexpr std::size_t kUdpHeader = 8;
    constexpr std::size_t kIpHeader = 20;
    constexpr std::uint32_t kLoopback = 0x7F000001;
    Writer packet;
    packet.big(0x45, 1)
        .big(0, 1)
        .big(kIpHeader + kUdpHeader + bytes.size(), 2)
        .big(0, 4)   // one fragment
        .big(64, 1)  // hops
        .big(17, 1)  // UDP
        .big(0, 2)   // no sum
        .big(kLoopback, 4)
        .big(kLoopback, 4)
        .big(source, 2)
        .big(destination, 2)
        .big(kUdpHeader + bytes.size(), 2)
        .big(0, 2)  // no sum
        .bytes(bytes.first(captured.value_or(bytes.size())));
    add(kRawIp, packet.all(), kIpHeader + kUdpHeader + bytes.size());
}

void Capture::write(const std::string& path) const {
    constexpr std::uint32_t kLargestFrame = 262144;
    Writer file;
    file.little(0xA1B2C3D4, 4).little(2, 2).little(4, 2).little(0, 8);
    file.little(kLargestFrame, 4).little(link_type_, 4);
    for (std::size_t i = 0; i < frames_.size(); ++i) {
        file.little(i, 4).little(0, 4);
        file.little(frames_[i].bytes.size(), 4).little(frames_[i].length, 4);
        file.bytes(frames_[i].bytes);
    }
    std::ofstream stream(path, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(file.all().data()),
                 static_cast<std::streamsize>(file.all().size()));
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::vector<Bytes> pieces(std::span<const std::uint8_t> bytes, std::size_t size) {
    std::vector<Bytes> all;
    for (std::size_t at = 0; at < bytes.size(); at += size) {
        const auto piece = bytes.subspan(at, std::min(size, bytes.size() - at));
        all.emplace_back(piece.begin(), piece.end());
    }
    return all;
}
