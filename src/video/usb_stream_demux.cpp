#include "video/usb_stream_demux.h"

#include <cstdio>
#include <cstring>

#include "protocol/camera_packet_scan.h"
#include "protocol/little_endian.h"
#include "video/frame_buffers.h"
#include "video/priming_frame.h"

namespace {

constexpr std::size_t kEnvelopeHeaderSize = 8;
constexpr std::size_t kEnvelopeMarkSize = 4;

constexpr std::uint8_t kTypeCamera = 0x49;  // "I"
constexpr std::uint8_t kTypeVideo = 0x4A;   // "J"

// The camera fills pauses with chunks of this length that begin like this.
constexpr std::size_t kFillerSize = 12;
constexpr std::uint8_t kFillerStart[] = {0x00, 0x00, 0x01, 0xFF};

// 1 until the first live video has been passed on.
int priming_pending = 1;

bool has_envelope_frame(const std::uint8_t* p) {
    return p[0] == 0x55 && p[1] == 0xCC && p[3] == 0x57;
}

bool is_envelope_start(const std::uint8_t* p) {
    return has_envelope_frame(p) && (p[2] == kTypeCamera || p[2] == kTypeVideo);
}

// Offset of the first envelope header that at least one more byte follows, or 0: where there is
// none, what stands at the front is judged as if it were one.
std::size_t find_envelope(const std::uint8_t* buffer, std::size_t held) {
    for (std::size_t p = 0; p + kEnvelopeMarkSize < held; ++p) {
        if (is_envelope_start(buffer + p)) {
            return p;
        }
    }
    return 0;
}

void take_video(const std::uint8_t* envelope, std::size_t length) {
    if (envelope[6] != 0 || envelope[7] != 0) {
        fprintf(stderr, "Strange video packet %02X %02X\n", envelope[6], envelope[7]);
        return;
    }
    const std::uint8_t* const payload = envelope + kEnvelopeHeaderSize;
    if (length == kFillerSize && memcmp(payload, kFillerStart, sizeof kFillerStart) == 0) {
        return;
    }
    if (priming_pending != 0) {
        frame_queue_part(kPrimingFrame.data(), kPrimingFrame.size());
    }
    priming_pending = 0;
    frame_queue_part(payload, length);
}

// Kept out of the loop below: nearly every call finds an envelope that is still to be completed,
// and that look should cost nothing.
[[gnu::noinline]] void take_envelope(const std::uint8_t* envelope, std::uint16_t length) {
    if (!has_envelope_frame(envelope)) {
        fprintf(stderr, "Wrong packet %02X %02X %02X %02X\n", envelope[0], envelope[1], envelope[2],
                envelope[3]);
    } else if (envelope[2] == kTypeVideo) {
        take_video(envelope, length);
    } else if (envelope[2] == kTypeCamera) {
        camera_packet_scan(nullptr, envelope + kEnvelopeHeaderSize, length);
    } else {
        fprintf(stderr, "Unknown packet type %02X\n", envelope[2]);
    }
}

}  // namespace

int usb_stream_demux(std::uint8_t* buffer, std::size_t* fill_count) {
    while (*fill_count > kEnvelopeMarkSize) {
        const std::size_t start = find_envelope(buffer, *fill_count);
        // Without a byte behind the header the envelope is not complete whatever its length, and
        // the length itself may not have been received yet.
        if (start + kEnvelopeHeaderSize >= *fill_count) {
            break;
        }
        const std::uint16_t length = read_le16(buffer + start + 4);
        const std::size_t end = start + kEnvelopeHeaderSize + length;
        // Kept: an envelope waits for the first byte of what follows it.
        if (end >= *fill_count) {
            break;
        }
        take_envelope(buffer + start, length);
        *fill_count -= end;  // with what stood before the envelope
        memmove(buffer, buffer + end, *fill_count);
    }
    return 0;
}
