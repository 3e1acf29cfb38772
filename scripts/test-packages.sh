#!/usr/bin/env bash
# Installs the Debian packages where they belong and takes them away again: scripts/test-packages.sh [--twice|--no-build] [ARCH...]
# Those for arm64 and armhf on virtual boards with systemd, those for amd64 in a folder; without ARCH all three. The
# packages are made first (--twice: those for armhf twice, as in scripts/package.sh), or are those of build/packages as
# they are (--no-build). Ends with one line, "N passed, N failed, N skipped"; the exit status says the same.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

architectures=() twice='' build=yes
while [ $# -gt 0 ]; do
    case "$1" in
        --twice) twice=armhf; shift ;;
        --no-build) build=''; shift ;;
        amd64 | arm64 | armhf) architectures+=("$1"); shift ;;
        *) sed -n '2,5s/^# //p' "scripts/${0##*/}"; exit 2 ;;
    esac
done
[ "${#architectures[@]}" -gt 0 ] || architectures=(arm64 armhf amd64)

# What all of them need, before they go side by side.
need_packages "${video_packages[@]}" "${board_packages[@]}" "${install_packages[@]}" "${build_packages[@]}" \
    "${package_packages[@]}" "${cross_packages[@]}"
scripts/make-board.sh
scripts/make-clip.sh build/clips/small.h264 640x480 90 2 bitrate=1000:vbv-maxrate=1000:vbv-bufsize=1000

# Each architecture is a group of processes, so that an interruption ends all of them.
results=$(mktemp -d)
groups=()
finish() {
    trap - EXIT INT TERM HUP
    local group
    for group in "${groups[@]}"; do
        kill -- "-$group" 2>/dev/null || true
    done
    wait
    rm -rf "$results"
}
trap finish EXIT
trap 'exit 1' INT TERM HUP
set -m

# make_system ARCHITECTURE [COMMAND...]: by that command the packages, and beside them the Debian for them.
make_system() {
    local architecture=$1 options=() debian
    shift
    [ "$twice" != "$architecture" ] || options=(--twice)
    "$@" scripts/make-install-root.sh "$architecture" &
    debian=$!
    [ -z "$build" ] || "$@" scripts/package.sh "${options[@]}" "$architecture" || { wait; return 1; }
    wait "$debian"
}

# What an architecture has to say comes out in one piece, each line behind its name.
test_architecture() {
    set +m
    local architecture=$1 result=$results/$1 politely=(nice -n 19) test
    case "$architecture" in
        # The longest, which goes ahead of the others.
        arm64) test=(tests/install/on-board.sh arm64 install work); politely=() ;;
        # That the service does its work is told by the other board.
        armhf) test=(tests/install/on-board.sh armhf install) ;;
        amd64) test=(tests/install/on-pc.sh) ;;
    esac
    if ! make_system "$architecture" "${politely[@]}"; then
        echo "FAILED to make the packages or the Debian for them" >"$result"
    elif ! "${test[@]}" >"$result" 2>&1; then
        echo "FAILED ${test[*]}" >>"$result"
    fi
    sed -E "s/^(passed|FAILED) /\\1 $architecture: /" "$result"
}
for architecture in "${architectures[@]}"; do
    test_architecture "$architecture" </dev/null &
    groups+=($!)
done
wait
groups=()
for architecture in "${architectures[@]}"; do
    if ! grep -qE '^(passed|FAILED) ' "$results/$architecture" 2>/dev/null; then
        echo "FAILED $architecture, which said nothing" | tee -a "$results/$architecture"
    fi
done

count() { cat "$results"/* | grep -c "^$1 " || true; }
passed=$(count passed) failed=$(count FAILED)
echo "$passed passed, $failed failed, 0 skipped"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
