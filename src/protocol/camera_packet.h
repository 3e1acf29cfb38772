// The camera's packet: its layout, checksums and seal.
//
//   byte:  0    1    2    3     4      5     6    7    8    9    10   11 ..   n-2 n-1
//          55   len  04   crc8  sender recvr  seq(le)  type set  id   payload  crc16(le)
//
// len is n, the whole packet; crc8 covers bytes 0..2, crc16 bytes 0..n-3.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

inline constexpr std::uint8_t kCameraPacketStart = 0x55;
inline constexpr std::uint8_t kCameraCrc8Seed = 0x77;
inline constexpr std::uint16_t kCameraCrc16Seed = 0x3692;

// Both are reflected sums without a final XOR: CRC-8 of polynomial 0x31 (reflected 0x8C), CRC-16 of
// polynomial 0x1021 (reflected 0x8408). Reentrant.
std::uint8_t camera_crc8(const std::uint8_t* bytes, std::size_t count, std::uint8_t seed);
std::uint16_t camera_crc16(const std::uint8_t* bytes, std::size_t count, std::uint16_t seed);

// Sequence number of the next packet, shared by all who build one. Taken and raised without a lock:
// two threads may now and then send the same number, which the camera does not mind.
extern std::atomic<std::uint16_t> camera_packet_seq;

// Last step of building a packet: writes the sequence number and the CRC-16 of a packet of
// `length` bytes, and raises the counter. The header's CRC-8 comes with the template. Thread-safe.
void camera_packet_seal(std::uint8_t* packet, std::size_t length);
