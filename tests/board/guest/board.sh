#!/usr/bin/env bash
# The virtual board's hardware: board.sh BOARD-DIRECTORY QEMU-OPTIONS... It has no disk and no network. Not KVM: where
# /dev/kvm is itself emulated it starts and then does not boot.
set -euo pipefail
board=$1
shift
exec qemu-system-aarch64 -machine virt,gic-version=3 -accel tcg -cpu cortex-a72 -smp 2 -m 1024 -display none \
    -no-reboot -nodefaults -kernel "$board/kernel" -initrd "$board/root.cpio" "$@"
