#!/usr/bin/env bash
# Our packages on a virtual board with a Debian of its own on a disk: on-board.sh arm64|armhf CHAPTER...
# Tells the chapters, install and work, with a restart of the board in between; a line for each test. A run that fails
# leaves its files - console, journal, disk - in build/install-runs; one that is interrupted leaves nothing.
set -euo pipefail
cd "$(dirname "$0")/../.."
architecture=$1
shift
guest=tests/install/guest
PATH=$PATH:/usr/sbin

mkdir -p build/install-runs
run=$(mktemp -d "$PWD/build/install-runs/$architecture.XXXXXX")
qemu=''
interrupted() {
    trap - INT TERM HUP
    if [ -n "$qemu" ]; then
        kill "$qemu" 2>/dev/null || true
        wait "$qemu" || true
    fi
    rm -rf "$run"
    exit 1
}
trap interrupted INT TERM HUP
# What the board sees of it.
shared=$run/shared
mkdir -p "$shared/packages"
cp "$guest"/*.sh "$shared"
cp build/clips/small.h264 "$shared/clip.h264"
cp build/packages/camera-usb-receiver{,-tools}_*_"$architecture".deb "$shared/packages"
cp --sparse=always "build/install/$architecture/disk" "$run/disk"
# The card is as a Raspberry Pi's: its first partition is /boot, which fstab has by the partition's number.
truncate -s 64M "$run/card"
printf 'label: dos\nlabel-id: 0x5a2c0001\nstart=2048, type=c\n' | sfdisk --quiet "$run/card"
mkfs.vfat -F 32 -n BOOT --offset 2048 "$run/card" $((63 * 1024)) >/dev/null

# chapter NAME: a start of the board that runs it, until the system has ended by itself.
chapter() {
    local ended=0
    cp "$guest/$1.sh" "$shared/chapter"
    rm -f "$shared/output" "$shared/status"
    # The quirk leaves out strings that a host has time for on a board that is as fast as it should be.
    timeout 1200 tests/board/guest/board.sh build/board -dtb build/board/board.dtb \
        -append "console=ttyAMA0 loglevel=5 oops=panic panic=-1 rdinit=/start-disk usbcore.quirks=18d1:2d01:d" \
        -serial "file:$run/console-$1" \
        -drive "if=none,id=disk,format=raw,cache=unsafe,file=$run/disk" -device virtio-blk-pci,drive=disk \
        -drive "if=none,id=card,format=raw,file=$run/card" -device sdhci-pci -device sd-card,drive=card \
        -virtfs "local,path=$shared,mount_tag=run,security_model=none" </dev/null &
    qemu=$!
    wait "$qemu" || ended=$?
    qemu=''
    cat "$shared/output" 2>/dev/null || true
    if [ "$(cat "$shared/status" 2>/dev/null)" != 0 ] || [ "$ended" -ne 0 ]; then
        echo "FAILED chapter $1, which did not come to its end (QEMU's status $ended); the end of its console:"
        tail -n 40 "$run/console-$1" | sed 's/^/    /'
        return
    fi
    if grep -E '(WARNING|BUG|Oops): ' "$run/console-$1"; then
        echo "FAILED the kernel, which has complained in chapter $1"
    fi
}

# In this shell, which knows how to end a board.
for name in "$@"; do
    chapter "$name" >"$run/results-$name"
    cat "$run/results-$name"
done
if grep -q '^FAILED' "$run"/results-*; then
    echo "The run's files are in $run"
else
    rm -rf "$run"
fi
