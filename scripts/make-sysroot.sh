#!/usr/bin/env bash
# Makes what the presets arm64 and armhf build against: scripts/make-sysroot.sh arm64|armhf
# Debian's libraries of that architecture, in build/sysroot, with the records of which package each is from; made
# again when the list changes.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/debian-root.sh
. scripts/lib/debian-root.sh

architecture=${1:-}
case "$architecture" in
    arm64 | armhf) ;;
    *) sed -n '2,4s/^# //p' "scripts/${0##*/}"; exit 2 ;;
esac
need_packages mmdebstrap

sysroot=build/sysroot/$architecture
stamp=$({ cat "scripts/${0##*/}" scripts/lib/debian-root.sh; echo "${sysroot_packages[@]}"; } | sha256sum)
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

# Packages of ours that are built against it depend on its packages. Nothing is installed here, so that dpkg has no
# records; these are what it would have, of each download's newest version.
records=$fresh/kept/var/lib/dpkg
mkdir -p "$records/info" "$records/updates"
echo 1 >"$records/info/format"
declare -A newest=()
while IFS= read -r package; do
    newest[${package%%_*}]=$package
done < <(cd "build/downloads/$architecture" && printf '%s\n' *.deb | sort -V)
while IFS= read -r package; do
    archive=build/downloads/$architecture/$package
    name=${package%%_*}
    [ "$(dpkg-deb -f "$archive" Multi-Arch)" != same ] || name+=:$architecture
    dpkg-deb -f "$archive" | sed '1a Status: install ok installed' >>"$records/status"
    echo >>"$records/status"
    dpkg-deb --fsys-tarfile "$archive" | tar -t | sed -e 's|^\.||' -e 's|/$||' -e 's|^$|/.|' >"$records/info/$name.list"
    for part in symbols shlibs; do
        dpkg-deb -I "$archive" "$part" >"$records/info/$name.$part" 2>/dev/null || rm "$records/info/$name.$part"
    done
done < <(printf '%s\n' "${newest[@]}" | sort)
echo "$stamp" >"$fresh/kept/stamp"
rm -rf "$sysroot"
mv "$fresh/kept" "$sysroot"
