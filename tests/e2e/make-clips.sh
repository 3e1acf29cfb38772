#!/usr/bin/env bash
# The end-to-end tests' clips: every live resolution, whole pictures and five slices a picture.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
for size in 1280x720 1920x1080 2704x1520 3840x2160 4096x2160; do
    for slices in 1 5; do
        "$here/../../scripts/make-clip.sh" "$1/$size-$slices.h264" "$size" 12 "$slices"
    done
done
