#!/usr/bin/env bash
# The page tests' clip: make-clip.sh FILE. Along its upper edge stands each picture's number, which a test reads
# back from the screen: twelve squares, black for 0 and white for 1, the lowest bit on the left, and a white one and
# a black one ahead of them.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
side=40 bits=12
filter="drawbox=x=0:y=0:w=$(((bits + 2) * side)):h=$side:color=black:t=fill"
filter+=",drawbox=x=0:y=0:w=$side:h=$side:color=white:t=fill"
for ((bit = 0; bit < bits; bit++)); do
    filter+=",drawbox=x=$(((bit + 2) * side)):y=0:w=$side:h=$side:color=white:t=fill:enable='mod(floor(n/$((1 << bit))),2)'"
done
"$here/../../scripts/make-clip.sh" "$1" 1280x720 600 1 "bitrate=4000:vbv-maxrate=4000:vbv-bufsize=4000" "$filter"
