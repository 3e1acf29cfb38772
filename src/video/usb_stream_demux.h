// Splits the camera's byte stream into its two kinds of traffic. USB reader thread only.
//
// Envelope, multi-byte fields little-endian:
//
//   byte:  0    1    2     3    4   5    6   7    8 ..
//          55   CC   type  57   length   check    payload of that length
//
//   type 49 "I": bytes of the camera's control protocol; bytes 6 and 7 are not looked at
//   type 4A "J": a chunk of the live H.264 video; bytes 6 and 7 must be 0
#pragma once

#include <cstddef>
#include <cstdint>

// Hands every complete envelope in the buffer on - camera bytes to camera_packet_scan(), video to
// frame_queue_part() - and moves what is left to the buffer's start. An envelope is complete once a
// byte behind it is held. Updates the fill count. Always 0.
int usb_stream_demux(std::uint8_t* buffer, std::size_t* fill_count);
