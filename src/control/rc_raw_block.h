// The remote control's channels, as another process publishes them in shared memory.
//
// Writer: the remote-control receiver, a process of its own, at any moment and without a lock or a
// sequence number. Reader: the remote-control thread. A channel is nominally -1.0 .. +1.0; of
// buttons, switches and rockers only the sign counts, so that a value seen half written presses a
// button one cycle early or late at worst. Native (little-endian) numbers.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

// A double as two words, each of which every processor reads in one piece. One that is being
// written may be seen half old and half new.
struct RcChannel {
    std::uint32_t low;
    std::uint32_t high;
};

struct RcRawBlock {
    std::uint8_t writers_own[1056];
    RcChannel pan;
    RcChannel tilt;
    RcChannel dutch;
    RcChannel unused_1080;
    RcChannel position;
    RcChannel lock;   // while lock_enable is not 0
    RcChannel lock2;  // always
    RcChannel record;
    RcChannel mode;
    RcChannel focus_type;
    RcChannel focus_in;
    RcChannel focus_out;
    RcChannel focus_abs;  // while focus_abs_enable is not 0
    RcChannel zoom_in;
    RcChannel zoom_out;
    RcChannel zoom;
    RcChannel dzoom_in;
    RcChannel dzoom_out;
    RcChannel dzoom;
    RcChannel ae_lock;
    RcChannel unused_1216;
    RcChannel image_mode;
    RcChannel image_mode_next;
    RcChannel image_mode_prev;
    RcChannel iso;
    RcChannel iso_next;
    RcChannel iso_prev;
    RcChannel shutter;
    RcChannel shutter_next;
    RcChannel shutter_prev;
    RcChannel aperture;
    RcChannel aperture_next;
    RcChannel aperture_prev;
    RcChannel color;
    RcChannel color_next;
    RcChannel color_prev;
    RcChannel wb;
    RcChannel wb_next;
    RcChannel wb_prev;
    RcChannel ev_abs;  // while ev_abs_enable is not 0
    RcChannel ev;
    RcChannel ev_next;
    RcChannel ev_prev;
    std::uint8_t unused_1400[22];
    std::uint8_t lock_enable;
    std::uint8_t unused_1423[13];
    std::uint16_t focus_abs_enable;
    std::uint8_t unused_1438[52];
    std::uint8_t ev_abs_enable;
    std::uint8_t unused_1491[13];
};

inline constexpr std::size_t kRcRawBlockSize = 1504;

static_assert(sizeof(RcRawBlock) == kRcRawBlockSize);
static_assert(std::endian::native == std::endian::little && sizeof(double) == 8);
// clang-format off
static_assert(offsetof(RcRawBlock, pan)              == 1056);
static_assert(offsetof(RcRawBlock, tilt)             == 1064);
static_assert(offsetof(RcRawBlock, dutch)            == 1072);
static_assert(offsetof(RcRawBlock, position)         == 1088);
static_assert(offsetof(RcRawBlock, lock)             == 1096);
static_assert(offsetof(RcRawBlock, lock2)            == 1104);
static_assert(offsetof(RcRawBlock, record)           == 1112);
static_assert(offsetof(RcRawBlock, mode)             == 1120);
static_assert(offsetof(RcRawBlock, focus_type)       == 1128);
static_assert(offsetof(RcRawBlock, focus_in)         == 1136);
static_assert(offsetof(RcRawBlock, focus_out)        == 1144);
static_assert(offsetof(RcRawBlock, focus_abs)        == 1152);
static_assert(offsetof(RcRawBlock, zoom_in)          == 1160);
static_assert(offsetof(RcRawBlock, zoom_out)         == 1168);
static_assert(offsetof(RcRawBlock, zoom)             == 1176);
static_assert(offsetof(RcRawBlock, dzoom_in)         == 1184);
static_assert(offsetof(RcRawBlock, dzoom_out)        == 1192);
static_assert(offsetof(RcRawBlock, dzoom)            == 1200);
static_assert(offsetof(RcRawBlock, ae_lock)          == 1208);
static_assert(offsetof(RcRawBlock, image_mode)       == 1224);
static_assert(offsetof(RcRawBlock, image_mode_next)  == 1232);
static_assert(offsetof(RcRawBlock, image_mode_prev)  == 1240);
static_assert(offsetof(RcRawBlock, iso)              == 1248);
static_assert(offsetof(RcRawBlock, iso_next)         == 1256);
static_assert(offsetof(RcRawBlock, iso_prev)         == 1264);
static_assert(offsetof(RcRawBlock, shutter)          == 1272);
static_assert(offsetof(RcRawBlock, shutter_next)     == 1280);
static_assert(offsetof(RcRawBlock, shutter_prev)     == 1288);
static_assert(offsetof(RcRawBlock, aperture)         == 1296);
static_assert(offsetof(RcRawBlock, aperture_next)    == 1304);
static_assert(offsetof(RcRawBlock, aperture_prev)    == 1312);
static_assert(offsetof(RcRawBlock, color)            == 1320);
static_assert(offsetof(RcRawBlock, color_next)       == 1328);
static_assert(offsetof(RcRawBlock, color_prev)       == 1336);
static_assert(offsetof(RcRawBlock, wb)               == 1344);
static_assert(offsetof(RcRawBlock, wb_next)          == 1352);
static_assert(offsetof(RcRawBlock, wb_prev)          == 1360);
static_assert(offsetof(RcRawBlock, ev_abs)           == 1368);
static_assert(offsetof(RcRawBlock, ev)               == 1376);
static_assert(offsetof(RcRawBlock, ev_next)          == 1384);
static_assert(offsetof(RcRawBlock, ev_prev)          == 1392);
static_assert(offsetof(RcRawBlock, lock_enable)      == 1422);
static_assert(offsetof(RcRawBlock, focus_abs_enable) == 1436);
static_assert(offsetof(RcRawBlock, ev_abs_enable)    == 1490);
// clang-format on

// What stands in a field of the block at this moment.
template <typename Word>
Word read_rc_word(Word& word) {
    return std::atomic_ref<Word>(word).load(std::memory_order_relaxed);
}

inline double read_rc_channel(RcChannel& channel) {
    const std::uint64_t low = read_rc_word(channel.low);
    const std::uint64_t high = read_rc_word(channel.high);
    return std::bit_cast<double>(high << 32 | low);
}
