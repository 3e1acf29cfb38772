#include "fuzz/sps_reference.h"

#include <set>
#include <string>

namespace {

struct SetEndsEarly {};

class BitText {
  public:
    explicit BitText(std::span<const std::uint8_t> bytes) {
        for (const std::uint8_t byte : bytes) {
            for (int bit = 7; bit >= 0; --bit) {
                bits_ += (byte & 1 << bit) != 0 ? '1' : '0';
            }
        }
        bits_ += '0';  // the one bit behind the data that may still be asked for
    }

    std::uint64_t number(std::size_t count) {
        std::uint64_t value = 0;
        for (const char bit : take(count)) {
            value = value * 2 + (bit == '1' ? 1 : 0);
        }
        return value;
    }
    bool flag() { return take(1) == "1"; }
    // Reduced to 32 bits.
    std::uint32_t exp_golomb() {
        std::size_t zeros = 0;
        while (zeros < 32 && take(1) == "0") {
            ++zeros;
        }
        const std::uint64_t suffix = number(zeros);
        return static_cast<std::uint32_t>((std::uint64_t{1} << zeros) - 1 + suffix);
    }

  private:
    std::string take(std::size_t count) {
        if (count > bits_.size() - next_) {
            throw SetEndsEarly{};
        }
        next_ += count;
        return bits_.substr(next_ - count, count);
    }

    std::string bits_;
    std::size_t next_ = 0;
};

void skip_scaling_list(BitText& set, int size) {
    std::int64_t last = 8;
    std::int64_t next = 8;
    for (int i = 0; i < size; ++i) {
        if (next != 0) {
            const std::int64_t code = set.exp_golomb();
            const std::int64_t delta = code % 2 == 1 ? (code + 1) / 2 : -(code / 2);
            next = ((last + delta) % 256 + 256) % 256;
        }
        last = next == 0 ? last : next;
    }
}

void skip_chroma_and_scaling(BitText& set) {
    if (set.exp_golomb() == 3) {  // chroma_format_idc
        set.flag();
    }
    set.exp_golomb();
    set.exp_golomb();
    set.flag();
    if (!set.flag()) {
        return;
    }
    for (int list = 0; list < 8; ++list) {
        if (set.flag()) {
            skip_scaling_list(set, list < 6 ? 16 : 64);
        }
    }
}

void skip_order_count(BitText& set) {
    const std::uint32_t type = set.exp_golomb();
    if (type == 0) {
        set.exp_golomb();
    }
    if (type != 1) {
        return;
    }
    set.flag();
    set.exp_golomb();
    set.exp_golomb();
    const std::uint32_t cycle = set.exp_golomb();
    // As a signed number, of which a negative one means none.
    for (std::uint32_t i = 0; cycle <= 0x7FFFFFFF && i < cycle; ++i) {
        set.exp_golomb();
    }
}

std::int32_t low_word(std::uint64_t value) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

PictureSize read_set(BitText set) {
    static const std::set<std::uint64_t> kWithChroma = {44, 83, 86, 100, 110, 118, 122, 244};
    const std::uint64_t profile = set.number(8);
    set.number(16);
    set.exp_golomb();
    if (kWithChroma.count(profile) > 0) {
        skip_chroma_and_scaling(set);
    }
    set.exp_golomb();
    skip_order_count(set);
    set.exp_golomb();
    set.flag();
    const std::uint64_t width_in_mbs_minus1 = set.exp_golomb();
    const std::uint64_t height_in_units_minus1 = set.exp_golomb();
    const bool frames_only = set.flag();
    if (!frames_only) {
        set.flag();
    }
    set.flag();
    std::uint64_t left = 0;
    std::uint64_t right = 0;
    std::uint64_t top = 0;
    std::uint64_t bottom = 0;
    if (set.flag()) {
        left = set.exp_golomb();
        right = set.exp_golomb();
        top = set.exp_golomb();
        bottom = set.exp_golomb();
    }
    set.flag();
    // The camera's pairing: what is cropped at top and bottom comes off the width.
    const std::uint64_t fields = frames_only ? 1 : 2;
    return {low_word(width_in_mbs_minus1 * 16 + 16 - 2 * (top + bottom)),
            low_word((height_in_units_minus1 + 1) * fields * 16 - 2 * (left + right))};
}

}  // namespace

std::optional<PictureSize> reference_picture_size(std::span<const std::uint8_t> sps) {
    try {
        return read_set(BitText(sps));
    } catch (const SetEndsEarly&) {
        return std::nullopt;
    }
}
