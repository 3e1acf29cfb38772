#include "fuzz/demux_model.h"

#include <cstdio>
#include <string_view>

#include "fuzz/sps_reference.h"

namespace {

constexpr std::size_t kMostHeld = 49486;
constexpr unsigned kSlots = 200;

}  // namespace

bool DemuxModel::read(std::span<const std::uint8_t> packet) {
    held_.insert(held_.end(), packet.begin(), packet.end());
    if (held_.size() > kMostHeld) {
        log_ += "Buffer overflowed\n";
        held_.clear();
    }
    while (held_.size() > 4) {
        const std::size_t start = first_header();
        if (start + 6 > held_.size()) {
            break;
        }
        const std::size_t length = held_[start + 4] + std::size_t{256} * held_[start + 5];
        const std::size_t end = start + 8 + length;
        // Complete when a byte behind it is there.
        if (held_.size() <= end) {
            break;
        }
        const Envelope envelope(held_.begin() + static_cast<std::ptrdiff_t>(start),
                                held_.begin() + static_cast<std::ptrdiff_t>(end));
        const bool goes_on = take(envelope);
        held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(end));
        if (!goes_on) {
            return false;
        }
    }
    return true;
}

std::size_t DemuxModel::first_header() const {
    const std::string_view text(reinterpret_cast<const char*>(held_.data()), held_.size());
    for (std::size_t p = text.find("U\xCC"); p != text.npos; p = text.find("U\xCC", p + 1)) {
        // A byte behind the four must be there.
        if (p + 5 <= text.size() && text[p + 3] == 'W' &&
            (text[p + 2] == 'I' || text[p + 2] == 'J')) {
            return p;
        }
    }
    return 0;
}

bool DemuxModel::take(const Envelope& envelope) {
    if (envelope[0] != 'U' || envelope[1] != 0xCC || envelope[3] != 'W') {
        say("Wrong packet", {envelope[0], envelope[1], envelope[2], envelope[3]});
        return true;
    }
    if (envelope[2] == 'I') {
        return true;
    }
    if (envelope[2] != 'J') {
        say("Unknown packet type", {envelope[2]});
        return true;
    }
    if (envelope[6] != 0 || envelope[7] != 0) {
        say("Strange video packet", {envelope[6], envelope[7]});
        return true;
    }
    const std::vector<std::uint8_t> part(envelope.begin() + 8, envelope.end());
    const std::vector<std::uint8_t> filler = {0x00, 0x00, 0x01, 0xFF};
    if (part.size() == 12 && std::vector(part.begin(), part.begin() + 4) == filler) {
        return true;
    }
    return publish(part);
}

bool DemuxModel::publish(const std::vector<std::uint8_t>& part) {
    if (part.empty()) {
        log_ += "Queue part len is zero\n";
        return true;
    }
    if (!measure(part)) {
        return false;
    }
    if (ring_.clear_request != 0) {
        ring_.clear_request = 0;
        ring_.next_slot = 0;
        parts_.clear();  // the ring has none of them
        log_ += "Clear frame shared memory\n";
    }
    const unsigned slot = ring_.next_slot < kSlots ? ring_.next_slot : 0;
    parts_.push_back({slot, ring_.sequence, part});
    ring_.next_slot = (slot + 1) % kSlots;
    ring_.sequence = (ring_.sequence + 1) % 65536;
    return true;
}

bool DemuxModel::measure(const std::vector<std::uint8_t>& part) {
    if (part.size() < 5 || part[0] != 0 || part[1] != 0 || part[2] != 0 || part[3] != 1 ||
        part[4] % 16 != 7) {
        return true;
    }
    auto size = reference_picture_size(std::span(part).subspan(5));
    if (!size) {
        return false;
    }
    size->width = size->width == 1912 ? 1920 : size->width;
    size->height = size->height == 1088 ? 1080 : size->height;
    if (size->width != ring_.width || size->height != ring_.height) {
        ring_.width = size->width;
        ring_.height = size->height;
        log_ += "Live stream video resolution changed to " + std::to_string(size->width) + "x" +
                std::to_string(size->height) + "\n";
    }
    return true;
}

void DemuxModel::say(const char* text, std::initializer_list<unsigned> bytes) {
    log_ += text;
    for (const unsigned byte : bytes) {
        char digits[8];
        snprintf(digits, sizeof digits, " %02X", byte);
        log_ += digits;
    }
    log_ += '\n';
}
