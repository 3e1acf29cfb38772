#include "monitor/access_units.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::uint8_t kSlice = 1;
constexpr std::uint8_t kIdrSlice = 5;
constexpr std::uint8_t kSei = 6;
constexpr std::uint8_t kSps = 7;
constexpr std::uint8_t kPps = 8;
constexpr std::uint8_t kDelimiter = 9;

constexpr int kMostUntilTrusted = 1 << 20;
// Far above any picture: bytes that never become a unit must not fill the memory.
constexpr std::size_t kLargestUnit = std::size_t{8} * 1024 * 1024;

bool is_slice(std::uint8_t type) {
    return type == kSlice || type == kIdrSlice;
}

// Whether a unit of the stream that begins with this header and byte is the first of a picture's.
// A slice begins with the number of its first macroblock, and 0 is a single bit of 1.
bool begins_picture(std::uint8_t type, std::uint8_t next) {
    return is_slice(type) ? (next & 0x80) != 0 : type >= kSei && type <= kDelimiter;
}

bool begins_with_picture(std::span<const std::uint8_t> part) {
    std::size_t zeros = 0;
    while (zeros < part.size() && zeros < 3 && part[zeros] == 0) {
        ++zeros;
    }
    return zeros >= 2 && part.size() > zeros + 2 && part[zeros] == 1 &&
           begins_picture(part[zeros + 1] & 0x1F, part[zeros + 2]);
}

// A set ends with a bit of 1: zeros behind it belong to the next start code.
void end_set(std::vector<std::uint8_t>* sets) {
    while (!sets->empty() && sets->back() == 0) {
        sets->pop_back();
    }
}

}  // namespace

std::vector<std::uint8_t> parameter_sets(std::span<const std::uint8_t> picture) {
    std::vector<std::uint8_t> sets;
    bool in_set = false;
    for (std::size_t i = 0; i < picture.size(); ++i) {
        if (i + 3 < picture.size() && picture[i] == 0 && picture[i + 1] == 0 &&
            picture[i + 2] == 1) {
            const std::uint8_t type = picture[i + 3] & 0x1F;
            end_set(&sets);
            in_set = type == kSps || type == kPps;
            if (is_slice(type)) {
                break;  // behind the first slice there are none
            }
            if (in_set) {
                sets.insert(sets.end(), {0, 0, 0, 1});
            }
            i += 2;
        } else if (in_set) {
            sets.push_back(picture[i]);
        }
    }
    return sets;
}

void AccessUnits::take(std::span<const std::uint8_t> part) {
    if (part.empty()) {
        return;
    }
    judge_expectation(part);
    largest_part_ = std::max(largest_part_, part.size());
    smaller_part_ = part.size() < largest_part_;
    if (pending_.size() + part.size() > kLargestUnit) {
        lose();
    }
    pending_.insert(pending_.end(), part.begin(), part.end());
    scan();
    expected_end_.reset();
    if (has_picture_ && smaller_part_) {
        if (right_in_a_row_ >= right_until_trusted_) {
            hand_on(pending_.size());
            ended_early_ = true;
        } else {
            expected_end_ = pending_.size();
        }
    }
}

void AccessUnits::judge_expectation(std::span<const std::uint8_t> part) {
    if (ended_early_) {
        ended_early_ = false;
        if (!begins_with_picture(part)) {
            right_in_a_row_ = 0;
            right_until_trusted_ = std::min(4 * right_until_trusted_, kMostUntilTrusted);
            lose();
        }
    } else if (expected_end_) {
        right_in_a_row_ = begins_with_picture(part) ? right_in_a_row_ + 1 : 0;
    }
}

// A start code may lie across two parts: one whose four bytes behind it, up to a parameter set's
// level, are not there yet is looked at again with the next part.
void AccessUnits::scan() {
    std::size_t at = scanned_;
    while (at + 6 < pending_.size()) {
        const auto* from = pending_.data() + at + 2;
        const auto* one =
            static_cast<const std::uint8_t*>(memchr(from, 1, pending_.size() - at - 6));
        if (one == nullptr) {
            at = pending_.size() - 6;
            break;
        }
        at = static_cast<std::size_t>(one - pending_.data()) - 2;
        if (one[-1] != 0 || one[-2] != 0) {
            ++at;
            continue;
        }
        const std::uint8_t type = one[1] & 0x1F;
        if (begins_picture(type, one[2]) && (has_picture_ || !in_unit_)) {
            const std::size_t start = at > 0 && pending_[at - 1] == 0 ? at - 1 : at;
            const std::size_t left = at - start;
            hand_on(start);
            in_unit_ = true;
            at = left;
        }
        if (in_unit_) {
            begin_unit_type(type, at + 3);
        }
        at += 3;
    }
    scanned_ = at;
}

void AccessUnits::begin_unit_type(std::uint8_t type, std::size_t header) {
    has_pps_ = has_pps_ || type == kPps;
    has_idr_ = has_idr_ || type == kIdrSlice;
    has_picture_ = has_picture_ || is_slice(type);
    if (type == kSps && !has_sps_) {
        has_sps_ = true;
        char text[16];
        snprintf(text, sizeof text, "avc1.%02x%02x%02x", pending_[header + 1], pending_[header + 2],
                 pending_[header + 3]);
        codec_ = text;
    }
}

void AccessUnits::hand_on(std::size_t size) {
    if (in_unit_ && has_picture_) {
        const bool key = has_sps_ && has_pps_ && has_idr_;
        synced_ = synced_ || key;
        if (synced_) {
            handler_({std::span(pending_).first(size), key, key ? codec_ : std::string()});
        } else {
            ++dropped_;
        }
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(size));
    forget_unit();
}

void AccessUnits::forget_unit() {
    scanned_ = 0;
    in_unit_ = has_sps_ = has_pps_ = has_idr_ = has_picture_ = false;
    codec_.clear();
}

void AccessUnits::lose() {
    if (has_picture_) {
        ++dropped_;
    }
    pending_.clear();
    forget_unit();
    synced_ = false;
    ended_early_ = false;
    expected_end_.reset();
}

void AccessUnits::pause() {
    if (smaller_part_) {
        long_pause();
    }
}

void AccessUnits::long_pause() {
    if (has_picture_) {
        hand_on(pending_.size());
        ended_early_ = true;
    }
}
