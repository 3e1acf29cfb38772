#!/usr/bin/env bash
# Makes what the presets arm64 and armhf build against: scripts/make-sysroot.sh arm64|armhf
# Debian's libraries of that architecture, in build/sysroot; made again when the list changes.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/debian-root.sh
. scripts/lib/debian-root.sh

architecture=${1:-}
case "$architecture" in
    arm64 | armhf) ;;
    *) sed -n '2,3s/^# //p' "$0"; exit 2 ;;
esac
need_packages mmdebstrap

sysroot=build/sysroot/$architecture
stamp=$({ cat "$0" scripts/lib/debian-root.sh; echo "${sysroot_packages[@]}"; } | sha256sum)
if [ "$(cat "$sysroot/stamp" 2>/dev/null)" = "$stamp" ]; then
    exit 0
fi

echo "Making $sysroot"
mkdir -p build/sysroot
# Beside its place, so that an interrupted run leaves nothing that looks whole.
fresh=$(mktemp -d "$sysroot.XXXXXX")
trap 'rm -rf "$fresh"' EXIT
unpack_debian "$architecture" "$fresh/root" "${sysroot_packages[@]}"

# Only what is compiled, linked or run against. A link to an absolute place would lead out of here.
mkdir "$fresh/kept"
mv "$fresh/root/lib" "$fresh/kept"
mkdir "$fresh/kept/usr"
mv "$fresh/root/usr/include" "$fresh/root/usr/lib" "$fresh/kept/usr"
find "$fresh/kept" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    ln -sfnr "$fresh/kept$(readlink "$link")" "$link"
done
# An emulated program would otherwise look up its libraries in this system's list.
mkdir "$fresh/kept/etc"
: >"$fresh/kept/etc/ld.so.cache"
echo "$stamp" >"$fresh/kept/stamp"
rm -rf "$sysroot"
mv "$fresh/kept" "$sysroot"
