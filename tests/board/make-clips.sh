#!/usr/bin/env bash
# The board's clip, into the directory of the argument: a minute of video at 5 Mbit/s. With the camera's messages that
# is about half of what the board carries on an idle machine with two cores.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
"$here/../../scripts/make-clip.sh" "$1/minute.h264" 1920x1080 1800 4 \
    "bitrate=5000:vbv-maxrate=5000:vbv-bufsize=5000"
