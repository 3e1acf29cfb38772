#!/usr/bin/env bash
# Makes the Debian packages: scripts/package.sh [--twice] [ARCH...], of amd64, arm64 and armhf; without ARCH all three.
# They go to build/packages and depend on nothing but the sources: with --twice each is made in two folders and
# compared. Those for ARM are made by cross compilers. lintian has the last word.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

architectures=() twice=''
while [ $# -gt 0 ]; do
    case "$1" in
        --twice) twice=yes; shift ;;
        amd64 | arm64 | armhf) architectures+=("$1"); shift ;;
        *) sed -n '2,4s/^# //p' "scripts/${0##*/}"; exit 2 ;;
    esac
done
[ "${#architectures[@]}" -gt 0 ] || architectures=(amd64 arm64 armhf)

need_packages "${build_packages[@]}" "${monitor_packages[@]}" "${package_packages[@]}"
need_npm
own=$(dpkg --print-architecture)
for architecture in "${architectures[@]}"; do
    [ "$architecture" != "$own" ] || continue
    if [ "$architecture" = amd64 ]; then
        echo "The packages for amd64 are made on amd64" >&2
        exit 1
    fi
    need_packages "${cross_packages[@]}"
    scripts/make-sysroot.sh "$architecture"
done

version=$(sed -nE 's/^project\(camera-usb-receiver VERSION ([0-9.]+) .*/\1/p' CMakeLists.txt)
released=$(sed -nE '0,/^## /s/^## \[([0-9.]+)\] - ([0-9-]+)$/\1 \2/p' CHANGELOG.md)
if [ -z "$version" ] || [ "${released% *}" != "$version" ]; then
    echo "CMakeLists.txt has version '$version', CHANGELOG.md begins with '$released'" >&2
    exit 1
fi
# The day of the release is the time of everything in the packages.
SOURCE_DATE_EPOCH=$(date -u -d "${released#* }" +%s)
export SOURCE_DATE_EPOCH TZ=UTC LC_ALL=C.UTF-8 own

# debian_changelog: CHANGELOG.md in dpkg's form.
debian_changelog() {
    local maintainer
    maintainer=$(sed -n 's/^Maintainer: //p' debian/control)
    while read -r release day; do
        printf 'camera-usb-receiver (%s) bookworm; urgency=medium\n\n' "$release"
        awk -v heading="## [$release] - $day" '
            /^## / { inside = $0 == heading }
            inside && /^- / { print item; item = substr($0, 3) }
            inside && /^  [^ ]/ { item = item " " substr($0, 3) }
            END { print item }' CHANGELOG.md |
            sed '/^$/d' | while read -r item; do
                fold -s -w 74 <<<"$item" | sed -e '1s/^/  * /' -e '2,$s/^/    /' -e 's/ *$//'
            done
        printf '\n -- %s  %s\n\n' "$maintainer" "$(date -u -R -d "$day")"
    done < <(sed -nE 's/^## \[([0-9.]+)\] - ([0-9-]+)$/\1 \2/p' CHANGELOG.md)
}

# make_packages ARCHITECTURE FOLDER: the packages and their .changes file end up in FOLDER/ARCHITECTURE.
make_packages() {
    set -euo pipefail
    local architecture=$1 folder=$2/$1 tree=$2/$1/camera-usb-receiver
    echo "Making the packages for $architecture in $folder"
    rm -rf "$folder"
    mkdir -p "$tree/build/sysroot"
    cp -r CHANGELOG.md CMakeLists.txt CMakePresets.json README.md client cmake completions debian docs man monitor simulator src \
        system tools "$tree"
    debian_changelog >"$tree/debian/changelog"
    find "$tree" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +
    # What npm has fetched stays for the next time.
    mkdir -p build/npm
    ln -s "$PWD/build/npm" "$tree/build/npm"
    local options=(-us -uc -b -d)
    if [ "$architecture" != "$own" ]; then
        ln -s "$PWD/build/sysroot/$architecture" "$tree/build/sysroot/$architecture"
        options+=("-a$architecture")
    fi
    if ! (umask 022 && cd "$tree" && dpkg-buildpackage "${options[@]}") >"$folder/build.log" 2>&1; then
        tail -n 40 "$folder/build.log" >&2
        return 1
    fi
    # The program's, the tools', the monitor's, and the debugger's for each.
    if [ "$(find "$folder" -maxdepth 1 -name '*.deb' | wc -l)" -ne 6 ]; then
        echo "Not six packages for $architecture:" "$folder"/*.deb >&2
        return 1
    fi
    [ "$2" != build/package ] || lintian --allow-root --fail-on error,warning "$folder"/*.changes
}
export -f debian_changelog make_packages

# As many at a time as there are processors: steps that keep one of them busy meet those that could use more.
places=(build/package)
[ -z "$twice" ] || places+=(build/package/once-more-in-another-place)
builds=$((${#architectures[@]} * ${#places[@]}))
CMAKE_BUILD_PARALLEL_LEVEL=$((($(nproc) + builds - 1) / builds))
export CMAKE_BUILD_PARALLEL_LEVEL
for architecture in "${architectures[@]}"; do
    printf '%s\n' "${places[@]/#/$architecture }"
done | xargs -P "$(nproc)" -L 1 bash -c 'make_packages "$@"' make_packages

mkdir -p build/packages
for architecture in "${architectures[@]}"; do
    folder=build/package/$architecture
    if [ -n "$twice" ]; then
        for package in "$folder"/*.deb; do
            cmp "$package" "build/package/once-more-in-another-place/$architecture/${package##*/}"
        done
        echo "Both times the same $architecture packages, byte for byte"
    fi
    rm -f build/packages/*"_$architecture.deb"
    cp "$folder"/*.deb build/packages
    (cd build/packages && sha256sum -- *"_$architecture.deb")
done
