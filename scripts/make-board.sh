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

stamp=$(cat "scripts/${0##*/}" scripts/lib/debian-root.sh "$guest"/* | sha256sum)
if [ "$(cat "$board/stamp" 2>/dev/null)" = "$stamp" ]; then
    exit 0
fi

echo "Making the virtual board in $board"
mkdir -p build
# Beside its place, so that an interrupted run leaves the old one.
fresh=$(mktemp -d "$board.XXXXXX")
trap 'rm -rf "$fresh"' EXIT
mkdir "$fresh/parts"
unpack_debian arm64 "$fresh/root.tar" "${guest_packages[@]}" -- --extract-hook="$guest/finish-root.sh \"\$1\""
bsdtar -xf "$fresh/root.tar" -C "$fresh/parts" 'boot/vmlinuz-*'
mv "$fresh"/parts/boot/vmlinuz-* "$fresh/kernel"
bsdtar -cf "$fresh/root.cpio" --format newc --exclude '^./boot/*' --exclude '^./var/*' "@$fresh/root.tar"
rm -rf "$fresh/parts" "$fresh/root.tar"

# The receiver asks the device tree which board it is on.
"$guest/board.sh" "$fresh" -machine virt,gic-version=3,dumpdtb="$fresh/board.dtb"
fdtput -t s "$fresh/board.dtb" / model "Raspberry Pi 4 Model B Rev 1.4"
echo "$stamp" >"$fresh/stamp"
chmod 755 "$fresh"
rm -rf "$board"
mv "$fresh" "$board"
