#!/usr/bin/env bash
# Makes the virtual board: scripts/make-board.sh. A Raspberry Pi 4 by its device tree, with Debian's own arm64
# kernel and a root file system in memory, in build/board. It is made once, and again when a file it is made of changes.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/debian-root.sh
. scripts/lib/debian-root.sh
need_packages "${board_packages[@]}"

board=build/board
guest=tests/board/guest
# What runs on the board: a shell, the tools of the receiver's start, and the libraries of the programs. libgcc_s is
# loaded when the first thread is cancelled.
guest_packages=(linux-image-arm64 dash busybox kmod libc6 libgcc-s1 libstdc++6 libcjson1 libinih1 libusb-1.0-0)

stamp=$(cat "$0" scripts/lib/debian-root.sh "$guest"/* | sha256sum)
if [ "$(cat "$board/stamp" 2>/dev/null)" = "$stamp" ]; then
    exit 0
fi

echo "Making the virtual board in $board"
rm -rf "$board"
mkdir -p "$board/parts"
unpack_debian arm64 "$board/root.tar" "${guest_packages[@]}" -- --extract-hook="$guest/finish-root.sh \"\$1\""
bsdtar -xf "$board/root.tar" -C "$board/parts" 'boot/vmlinuz-*'
mv "$board"/parts/boot/vmlinuz-* "$board/kernel"
bsdtar -cf "$board/root.cpio" --format newc --exclude '^./boot/*' --exclude '^./var/*' "@$board/root.tar"
rm -rf "$board/parts" "$board/root.tar"

# The receiver asks the device tree which board it is on.
"$guest/board.sh" "$board" -machine virt,gic-version=3,dumpdtb="$board/board.dtb" 2>/dev/null
fdtput -t s "$board/board.dtb" / model "Raspberry Pi 4 Model B Rev 1.4"
echo "$stamp" >"$board/stamp"
