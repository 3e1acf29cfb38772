// A well-formed stream of the camera's, made by the fuzzer's bytes: envelopes back to back, with
// nothing between them.
#pragma once

#include "fuzz/input.h"

// One byte says the envelope's kind, further ones its content:
//
//   0  video chunk      length(8 bits), bytes
//   1  long chunk       length(16 bits), 16 bytes that are repeated
//   2  packets          count(8 bits), for each: length(8 bits), bytes; both sums are put in
//   3  control bytes    length(8 bits), bytes
//   4  filler chunk
//   5  strange chunk    its two check bytes
//
// One byte follows the last envelope, which completes it.
Bytes stream_of_recipe(Input& recipe);
