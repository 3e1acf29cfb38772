#!/usr/bin/env bash
# The last step of scripts/make-install-root.sh: finish-root.sh [FILES BOARD-ARCHIVE] ROOT
# Puts what our packages depend on where apt finds it without a network; for a virtual board, also the board's own
# files and the modules of its kernel.
set -euo pipefail
files='' board=''
if [ $# -eq 3 ]; then
    files=$1 board=$2
    shift 2
fi
root=$1
PATH=$PATH:/usr/sbin:/sbin

# A list, not what our packages say: where they depend on something else, apt does not find it.
dependencies=(libc6 libcjson1 libgcc-s1 libinih1 libstdc++6 libusb-1.0-0 kmod mount)
# The monitor's are many; on an emulated board they would take longer than all else.
[ -n "$board" ] || dependencies+=(libavcodec59 libavformat59 libavutil57 libcivetweb1 libcurl4 libmosquitto1)
APT_CONFIG=$MMDEBSTRAP_APT_CONFIG apt-get -qq --yes --download-only --no-install-recommends \
    install "${dependencies[@]}" >/dev/null
mkdir -p "$root/srv/packages"
mv "$root"/var/cache/apt/archives/*.deb "$root/srv/packages"
(cd "$root/srv/packages" && dpkg-scanpackages --multiversion . >Packages 2>/dev/null)
rm -f "$root"/etc/apt/sources.list.d/*
echo 'deb [trusted=yes] file:/srv/packages ./' >"$root/etc/apt/sources.list"
[ -n "$board" ] || exit 0

cp -r "$files/." "$root"
mkdir -p "$root/mnt/run"
echo board >"$root/etc/hostname"
echo '127.0.0.1 localhost board' >"$root/etc/hosts"
# With a number of its own from the start, this is no first start, which would apply presets.
echo 00000000000000000000000000000001 >"$root/etc/machine-id"
systemctl --quiet --root="$root" enable chapter.service
systemctl --quiet --root="$root" mask apt-daily.timer apt-daily-upgrade.timer dpkg-db-backup.timer \
    e2scrub_all.timer e2scrub_reap.service fstrim.timer systemd-tmpfiles-clean.timer

modules=$(mktemp -d)
trap 'rm -rf "$modules"' EXIT
bsdtar -xf "$board" -C "$modules" --include '*lib/modules/*'
mv "$modules/lib/modules" "$root/usr/lib/modules"

# The receiver knows its controller by the name, and takes the first endpoints whose names fit. dummy_hcd's controller
# gets a name that is as long, and its general endpoints one that begins with another letter: in this copy of the
# module, so that all else on the board is as on a Raspberry Pi. The signature does not hold for it; with something
# behind it, it is none.
controller=$(find "$root/usr/lib/modules" -name dummy_hcd.ko)
perl -0777 -pi -e 's/(?<!\w)dummy_udc(?=\0)/musb-hdrc/g or die "no controller in it";
    s/(?<!\w)ep(?=-[a-p](in|out)\0)/xp/g or die "no general endpoints in it"; $_ .= "\n"' "$controller"
