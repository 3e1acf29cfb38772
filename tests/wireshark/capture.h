// Captures for tshark, put together in memory and written as a file of libpcap's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "simulator/camera_stream.h"

// What usbmon sees of a bus. Device 5 has the camera at its endpoints, 02 from it and 86 to it.
inline constexpr std::uint8_t kFromCamera = 0x02;
inline constexpr std::uint8_t kToCamera = 0x86;
inline constexpr std::uint8_t kDevice = 5;

class Capture {
  public:
    // A bulk transfer: what goes out is seen as it is submitted, what comes in as it is completed.
    // Of a transfer of more bytes than were captured `length` says how many.
    void add_transfer(std::uint8_t endpoint, std::span<const std::uint8_t> bytes,
                      std::optional<std::size_t> length = {}, std::uint8_t device = kDevice);

    // A datagram over IPv4 on the loopback, of which so much is captured.
    void add_datagram(std::uint16_t source, std::uint16_t destination,
                      std::span<const std::uint8_t> bytes,
                      std::optional<std::size_t> captured = {});

    std::size_t size() const { return frames_.size(); }
    void write(const std::string& path) const;

  private:
    struct Frame {
        Bytes bytes;
        std::size_t length;
    };
    void add(std::uint32_t link_type, Bytes bytes, std::size_t length);

    std::uint32_t link_type_ = 0;
    std::vector<Frame> frames_;
};

// Pieces of that size, the last one smaller.
std::vector<Bytes> pieces(std::span<const std::uint8_t> bytes, std::size_t size);

inline Bytes joined(const std::vector<Bytes>& all) {
    Bytes bytes;
    for (const Bytes& each : all) {
        bytes.insert(bytes.end(), each.begin(), each.end());
    }
    return bytes;
}
