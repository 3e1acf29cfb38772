// Bit reader over an H.264 parameter set. One thread at a time.
#pragma once

#include <cstdint>

#include "app/process_end.h"

class H264BitReader {
  public:
    std::int32_t m_nLength = 0;             // bytes of data, at most kLongest
    std::int32_t m_nCurrentBit = 0;         // next bit; 0 is the first byte's most significant
    const std::uint8_t* m_pData = nullptr;  // borrowed; emulation-prevention bytes still in place

    // The index of every bit, and of the one behind the last, is a signed 32-bit number.
    static constexpr std::int32_t kLongest = INT32_MAX / 8 - 1;

    std::uint32_t ReadBit() {
        if (m_nCurrentBit > m_nLength * 8) {
            // Whoever watches the receiver's output knows the assertion under this name and line.
            assertion_failed("m_nCurrentBit <= m_nLength * 8", "../../../include/h264parse.h", 14,
                             "ReadBit");
        }
        const std::int32_t bit = m_nCurrentBit++;
        if (bit == m_nLength * 8) {
            return 0;  // the invariant lets one bit behind the data pass, which no memory holds
        }
        return static_cast<std::uint32_t>(m_pData[bit / 8] >> (7 - bit % 8)) & 1U;
    }

    // Up to 32 bits, most significant first.
    std::uint32_t ReadBits(int count) {
        std::uint32_t value = 0;
        for (int i = 0; i < count; ++i) {
            value = value << 1 | ReadBit();
        }
        return value;
    }

    // ue(v). After 32 zeros no 1 is waited for, and 2^32 - 1 + v wraps.
    std::uint32_t ReadExpGolomb() {
        int zeros = 0;
        while (zeros < 32 && ReadBit() == 0) {
            ++zeros;
        }
        const std::uint64_t base = (std::uint64_t{1} << zeros) - 1;
        return static_cast<std::uint32_t>(base + ReadBits(zeros));
    }
};
