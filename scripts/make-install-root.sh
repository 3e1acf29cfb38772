#!/usr/bin/env bash
# Makes a Debian in which our packages are installed: scripts/make-install-root.sh amd64|arm64|armhf
# In build/install, with the packages that ours depend on in a folder that apt takes them from: as an archive for amd64,
# else as the disk of a virtual board. It is made once, and again when a file it is made of changes.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/debian-root.sh
. scripts/lib/debian-root.sh

architecture=${1:-}
case "$architecture" in
    amd64) system=root.tar included=(diffutils) ;;
    arm64 | armhf) system=disk included=(systemd-sysv udev kmod iproute2) ;;
    *) sed -n '2,5s/^# //p' "scripts/${0##*/}"; exit 2 ;;
esac
need_packages "${board_packages[@]}" "${install_packages[@]}"
[ "$system" = root.tar ] || scripts/make-board.sh

place=build/install/$architecture
board_root=tests/install/root
stamp=$({
    cat "scripts/${0##*/}" scripts/lib/debian-root.sh tests/install/finish-root.sh
    [ "$system" = root.tar ] || { find "$board_root" -type f -exec cat {} +; cat build/board/stamp; }
} | sha256sum)
if [ "$(cat "$place/stamp" 2>/dev/null)" = "$stamp" ]; then
    exit 0
fi

# Unlike where packages are only unpacked, their scripts run, in that architecture. The kernel is told by whom where
# the system has not done so when qemu was installed; a user cannot.
if ! arch-test "$architecture" >/dev/null 2>&1; then
    binfmt=/proc/sys/fs/binfmt_misc
    echo "Letting the kernel run programs for $architecture with qemu, until the next start"
    [ -e "$binfmt/register" ] || mount -t binfmt_misc none "$binfmt" || [ -e "$binfmt/register" ]
    case "$architecture" in
        arm64) cat /usr/lib/binfmt.d/qemu-aarch64.conf ;;
        armhf) cat /usr/lib/binfmt.d/qemu-arm.conf ;;
    esac >"$binfmt/register"
fi

echo "Making a Debian for $architecture in $place"
mkdir -p build/install
# Beside its place, so that an interrupted run leaves nothing that looks whole.
fresh=$(mktemp -d "$place.XXXXXX")
trap 'rm -rf "$fresh"' EXIT
chmod 755 "$fresh"
hook=("$PWD/tests/install/finish-root.sh")
[ "$system" = root.tar ] || hook+=("$PWD/$board_root" "$PWD/build/board/root.cpio")
mapfile -t settings < <(debian_proxy_options)
mirror=$(debian_mirror)
# /usr is merged from the start: what turns an unmerged one into that needs perl, which takes long to install. And
# nothing is waited for until it is on this machine's disk.
mmdebstrap --quiet --variant=minbase --architectures="$architecture" --skip=cleanup/reproducible \
    --hook-dir=/usr/share/mmdebstrap/hooks/merged-usr --dpkgopt=force-unsafe-io \
    --include="$(IFS=,; echo "${included[*]}")" "${settings[@]}" \
    --customize-hook="$(printf '%q ' "${hook[@]}")\"\$1\"" \
    bookworm "$fresh/root.tar" ${mirror:+"$mirror"} >"$fresh/log" 2>&1 || { cat "$fresh/log" >&2; exit 1; }
rm "$fresh/log"

if [ "$system" = disk ]; then
    # The owners of the files are those of the archive, also where a user makes the disk.
    # shellcheck disable=SC2016  # expanded by the shell inside
    fakeroot bash -c 'mkdir "$1/root" && bsdtar -xpf "$1/root.tar" -C "$1/root" &&
        PATH=$PATH:/usr/sbin mke2fs -q -t ext4 -d "$1/root" "$1/disk" 1G' make-disk "$fresh"
    rm -rf "$fresh/root" "$fresh/root.tar"
fi
echo "$stamp" >"$fresh/stamp"
rm -rf "$place"
mv "$fresh" "$place"
