#!/usr/bin/env bash
# The board's clip, into the directory of the argument: a minute of video at 8 Mbit/s. With the
# camera's messages that is what the board carries in real time on a machine with two cores.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
"$here/../../scripts/make-clip.sh" "$1/minute-8-mbit.h264" 1920x1080 1800 4 \
    "bitrate=8000:vbv-maxrate=8000:vbv-bufsize=8000"
