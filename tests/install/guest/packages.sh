# shellcheck shell=sh disable=SC2154  # what story.sh has set
# Sourced by the chapters: what holds for the packages on every system. They are in the folder PACKAGES.

is_installed() { [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

# Everything that an installation could leave behind, without what apt, dpkg and systemd write about themselves.
inventory() {
    echo '-- files'
    find / -xdev \( -path /proc -o -path /sys -o -path /run -o -path /dev -o -path /tmp -o -path /var/tmp \
        -o -path /var/log -o -path /var/cache -o -path /var/backups -o -path /var/lib/apt \
        -o -path '/var/lib/dpkg/*-old' -o -path '/var/lib/dpkg/lock*' -o -path /var/lib/systemd/random-seed \) -prune \
        -o -printf '%y %p\n' | sort
    echo '-- in memory'
    find /run/vantarel /dev/shm /dev/gadget 2>/dev/null | sort
    find /boot | sort
    echo '-- mounts'
    cut -d' ' -f1-3 /proc/mounts | grep -v -e ' autofs$' -e ' /run/' -e binfmt_misc | sort
    echo '-- modules'
    grep -o '^gadgetfs ' /proc/modules || true
    echo '-- users and groups'
    cat /etc/passwd /etc/group
    if [ -d /run/systemd/system ]; then
        echo '-- units'
        systemctl list-units --all --no-legend --no-pager --plain | grep -i -e camera -e gadget -e udc || true
        systemctl --failed --no-legend --no-pager
    fi
}

apt_get() { apt-get --quiet=2 --yes "$@" </dev/null; }

AptInstallsThePackagesWithWhatTheyNeed() {
    not is_installed libcjson1
    not is_installed libinih1
    cd "$PACKAGES" || return
    apt_get install ./camera-*.deb
    # On a board the monitor's is not among them.
    ours=$(echo camera-*.deb | sed 's/_[^ ]*//g')
    for package in $ours; do
        is_installed "$package"
    done
    is_installed libcjson1
    is_installed libinih1
    # shellcheck disable=SC2086  # names without blanks
    dpkg --verify $ours >"$notes/changed"
    [ ! -s "$notes/changed" ]
}

ThePackagesBringTheirPages() {
    for page in man8/camera-usb-receiver.8 man8/camera-usb-receiver-check.8 man1/camera-simulator.1; do
        zcat "/usr/share/man/$page.gz" | grep -q '^\.SH EXIT STATUS'
    done
    for page in install-pi troubleshooting protocol known-limits; do
        [ -s "/usr/share/doc/camera-usb-receiver/$page.md" ]
    done
}

TheProgramsTellTheirOptions() {
    camera-usb-receiver-check --help | grep -q '^Exit status: 0 no problem'
    camera-simulator --help | grep -q -e '--h264'
}

PurgingLeavesNothingBehind() {
    # shellcheck disable=SC2046  # names without blanks
    apt_get purge --autoremove $(dpkg-query --show --showformat='${Package} ' 'camera-usb-*')
    not dpkg-query --show 'camera-usb-*'
    inventory >"$notes/after"
    diff "$kept/before" "$notes/after"
}
