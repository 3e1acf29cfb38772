#!/usr/bin/env bash
# The last step of scripts/make-board.sh: makes the unpacked packages at ROOT (the only argument) a root file system
# that fits into memory, with the modules that the board needs and no others.
set -euo pipefail
root=$1
guest=$(dirname "$0")
PATH=$PATH:/usr/sbin:/sbin

# virtio: the way to the files of the tests. dummy_hcd: a USB host and a USB device controller, wired together.
modules=(virtio_pci 9pnet_virtio 9p gadgetfs dummy_hcd)
# Of a board with a system on a disk, which has a card with a boot partition, too, a network to another computer, and a
# list that names the Raspberry Pi's own controller.
modules+=(virtio_blk ext4 crc32c_generic sdhci_pci mmc_block vfat nls_cp437 nls_ascii veth dwc2)

version=$(basename "$root"/lib/modules/*)
depmod -b "$root" "$version"
kept=$(mktemp -d)
for module in "${modules[@]}"; do
    modprobe -d "$root" -S "$version" --show-depends "$module" | sed -n 's/^insmod \([^ ]*\).*/\1/p'
done | sort -u | while read -r file; do
    mkdir -p "$kept/$(dirname "${file#"$root"}")"
    cp "$file" "$kept/${file#"$root"}"
done
cp "$root/lib/modules/$version"/modules.{order,builtin,builtin.modinfo} "$kept/lib/modules/$version/"
rm -rf "${root:?}/lib/modules"
mv "$kept/lib/modules" "$root/lib/modules"
rm -rf "$kept"
depmod -b "$root" "$version"

rm -rf "${root:?}"/usr/share/* "${root:?}"/usr/lib/*/gconv "${root:?}"/lib/udev
mkdir -p "$root"/{proc,sys,run,mnt/build,mnt/run,boot/overlays,board/bin}
cp "$guest/init" "$guest/start-disk" "$root"
cp "$guest/mount" "$root/board/bin/mount"
