#!/usr/bin/env bash
# Our packages for amd64 in a Debian of its own, which is a folder: on-pc.sh
# A line for each test of the chapter pc.sh.
set -euo pipefail
cd "$(dirname "$0")/../.."

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
chmod 755 "$place"
# With processes, mounts, network and shared memory of its own, and the users of a range that is the user's own.
alone=(unshare --mount --net --ipc --pid --fork)
[ "$(id -u)" -eq 0 ] || alone+=(--map-root-user --map-auto)
# shellcheck disable=SC2016  # expanded by the shell inside
"${alone[@]}" -- bash -c 'set -e
    mount -t tmpfs tmpfs "$1"
    bsdtar -xpf build/install/amd64/root.tar -C "$1" --exclude "./dev/*"
    mkdir -p "$1/srv/story" "$1/dev/shm"
    cp -r tests/install/guest/*.sh build/clips/small.h264 "$1/srv/story"
    cp build/packages/camera-usb-receiver{,-tools,-monitor}_*_amd64.deb "$1/srv/story"
    mount -t proc proc "$1/proc"
    for device in null zero full random urandom; do
        : >"$1/dev/$device"
        mount --bind "/dev/$device" "$1/dev/$device"
    done
    mount -t tmpfs tmpfs "$1/dev/shm"
    PATH=$PATH:/usr/sbin ip link set lo up
    exec env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
        STORY=/srv/story PACKAGES=/srv/story CLIP=/srv/story/small.h264 \
        /usr/sbin/chroot "$1" sh /srv/story/pc.sh' on-pc "$place"
