#!/usr/bin/env bash
# Installs the Debian packages where they belong and takes them away again: scripts/test-packages.sh [--twice|--no-build] [ARCH...]
# Those for arm64 and armhf on virtual boards with systemd, those for amd64 in a folder; without ARCH all three. The
# packages are made first (--twice as in scripts/package.sh), or are those of build/packages as they are (--no-build).
# Ends with one line, "N passed, N failed, N skipped"; the exit status says the same.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

architectures=() build=(scripts/package.sh)
while [ $# -gt 0 ]; do
    case "$1" in
        --twice) build+=(--twice); shift ;;
        --no-build) build=(true); shift ;;
        amd64 | arm64 | armhf) architectures+=("$1"); shift ;;
        *) sed -n '2,5s/^# //p' "$0"; exit 2 ;;
    esac
done
[ "${#architectures[@]}" -gt 0 ] || architectures=(amd64 arm64 armhf)

need_packages "${video_packages[@]}" "${board_packages[@]}" "${install_packages[@]}"
"${build[@]}" "${architectures[@]}"
for architecture in "${architectures[@]}"; do
    scripts/make-install-root.sh "$architecture"
done
scripts/make-clip.sh build/clips/small.h264 640x480 90 2 bitrate=1000:vbv-maxrate=1000:vbv-bufsize=1000

# One beside the other; what each has to say comes out in one piece, each line behind its architecture.
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
for architecture in "${architectures[@]}"; do
    case "$architecture" in
        amd64) command=(tests/install/on-pc.sh) ;;
        *) command=(tests/install/on-board.sh "$architecture") ;;
    esac
    {
        "${command[@]}" >"$results/$architecture" 2>&1 || echo "FAILED ${command[*]}" >>"$results/$architecture"
        sed -E "s/^(passed|FAILED) /\\1 $architecture: /" "$results/$architecture"
    } &
done
wait

count() { cat "$results"/* | grep -c "^$1 " || true; }
passed=$(count passed) failed=$(count FAILED)
echo "$passed passed, $failed failed, 0 skipped"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
