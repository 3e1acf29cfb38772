// Layout of the shared video ring. All fields little-endian.
//
//   ring header, 24 bytes                        slot, 300,018 bytes
//   0   u16  clear request                       0   u32  part length in bytes
//   2   u16  sequence number of the latest part  4   u16  sequence number of the part
//   4   u16  slot of the next part, 0..199       6   2 x 00
//   6   18 x 00                                  8   10 x 01
//   24  slot 0, slot 1, ...                      18  the part's bytes
//
// The transcoding object has the same header and shorter slots; it is the main application's own.
#pragma once

#include <cstddef>

inline constexpr std::size_t kRingHeaderSize = 24;
inline constexpr std::size_t kClearRequestOffset = 0;
inline constexpr std::size_t kLatestSequenceOffset = 2;
inline constexpr std::size_t kNextSlotOffset = 4;

inline constexpr std::size_t kSlotCount = 200;
inline constexpr std::size_t kSlotLengthOffset = 0;
inline constexpr std::size_t kSlotSequenceOffset = 4;
inline constexpr std::size_t kSlotHeaderSize = 18;
inline constexpr std::size_t kMaxPartSize = 300000;
inline constexpr std::size_t kSlotSize = kSlotHeaderSize + kMaxPartSize;
inline constexpr std::size_t kFrameBufferSize = kRingHeaderSize + kSlotCount * kSlotSize;

inline constexpr std::size_t kTranscodingSlotSize = 65018;
inline constexpr std::size_t kTranscodingBufferSize =
    kRingHeaderSize + kSlotCount * kTranscodingSlotSize;

static_assert(kFrameBufferSize == 60003624);
static_assert(kTranscodingBufferSize == 13003624);
