#!/usr/bin/env bash
# Tests of camera-usb-receiver-check: check-test.sh TEST, one of the functions below that begin with a capital. Each
# makes the files of a board where all is well, spoils one thing, and looks at what is said about it.
set -euo pipefail
here=$(dirname "$(realpath "$0")")
program=$here/../../system/camera-usb-receiver-check
board=$(mktemp -d)
trap 'rm -rf "$board"' EXIT

# write PATH: standard input as that file of the board.
write() {
    mkdir -p "$board/$(dirname "$1")"
    cat >"$board/$1"
}

# stand_in COMMAND: standard input as a script that is found in its place.
stand_in() {
    { echo '#!/bin/sh'; cat; } | write "bin/$1"
    chmod +x "$board/bin/$1"
}

# process NUMBER NAME LINK: has one file open.
process() {
    echo "$2" | write "proc/$1/comm"
    mkdir -p "$board/proc/$1/fd"
    ln -sfn "$3" "$board/proc/$1/fd/3"
}

# unit PROPERTY=VALUE...: in place of those that a running service has.
unit() {
    printf '%s\n' LoadState=loaded UnitFileState=enabled ActiveState=active SubState=running ConditionResult=yes \
        NRestarts=3 Result=success ExecMainStatus=0 IPAddressDeny='::/0 0.0.0.0/0' \
        IPAddressAllow='127.0.0.0/8 ::1/128' | write unit
    local change
    for change in "$@"; do
        sed -i "s|^${change%%=*}=.*|$change|" "$board/unit"
    done
}

healthy_board() {
    printf 'Raspberry Pi 4 Model B Rev 1.4\0' | write sys/firmware/devicetree/base/model
    printf '[cm4]\notg_mode=1\n\n[all]\ndtoverlay=dwc2\n' | write boot/firmware/config.txt
    mkdir -p "$board"/sys/class/udc/fe980000.usb "$board"/sys/module/{dwc2,gadgetfs} "$board"/run/vantarel
    printf '%s\n' '/dev/mmcblk0p2 / ext4 rw,noatime 0 0' '/dev/mmcblk0p1 /boot/firmware vfat rw 0 0' \
        'none /dev/gadget gadgetfs rw 0 0' | write proc/mounts
    printf '%s\n' 'PARTUUID=1-02 / ext4 defaults 0 1' 'PARTUUID=1-01 /boot/firmware vfat defaults 0 2' | write etc/fstab
    write proc/net/udp <<'TEXT'
  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode ref pointer drops
  17: 00000000:1770 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 4711 2 0 0
  18: 0100007F:1388 00000000:0000 07 00000000:00000000 00:00000000 00000000  1000        0 4712 2 0 0
TEXT
    process 210 camera-usb-rece 'socket:[4711]'
    process 211 main-app 'socket:[4712]'
    echo 'RECEIVER_OPTIONS=""' | write etc/default/camera-usb-receiver
    unit
    : | write journal
    stand_in systemctl <<<"[ \"\$1 \$2\" = 'show camera-usb-receiver' ] && cat '$board/unit'"
    stand_in journalctl <<<"case \"\$*\" in *--reverse*) tac '$board/journal' ;; *) cat '$board/journal' ;; esac"
    stand_in modprobe <<<"[ \"\$*\" = '--dry-run --quiet gadgetfs' ] && [ -e '$board/modprobe-finds-it' ]"
    stand_in df <<<"printf 'Filesystem 1024-blocks Used Available Capacity Mounted\nx 9 1 %s 1%% /\n' 8000"
    stand_in id <<<'echo 0'
}

# expect STATUS LINE...: exit status, and lines, or parts of them, that are there.
expect() {
    local status=0 line output
    output=$(PATH=$board/bin:$PATH "$program" --root "$board") || status=$?
    if [ "$status" -ne "$1" ]; then
        printf 'exit status %s, expected %s\n%s\n' "$status" "$1" "$output"
        return 1
    fi
    shift
    for line in "$@"; do
        if ! grep -qF -- "$line" <<<"$output"; then
            printf 'no line with: %s\n%s\n' "$line" "$output"
            return 1
        fi
    done
}

# expect_problem LINE ADVICE: it is the only one, and its advice follows.
expect_problem() {
    expect 1 "problem  $1" '1 of these points'
    local output
    output=$(PATH=$board/bin:$PATH "$program" --root "$board" || true)
    if ! grep -F -A 1 -- "problem  $1" <<<"$output" | tail -n 1 | grep -F 'what to do: ' | grep -qF -- "$2"; then
        printf 'no advice with: %s\n%s\n' "$2" "$output"
        return 1
    fi
}

NothingIsWrongOnAHealthyBoard() {
    expect 0 'Nothing is wrong here.'
    ! PATH=$board/bin:$PATH "$program" --root "$board" | grep -E '^(problem|note)'
}
WrongUseIsStatusTwo() {
    local status=0
    "$program" --verbose >/dev/null 2>&1 || status=$?
    [ "$status" -eq 2 ]
}
HelpNamesTheExitStatuses() { "$program" --help | grep -qF 'Exit status: 0 no problem, 1 at least one, 2 wrong use.'; }

BoardPi4IsSupported() { expect 0 'ok       board: Raspberry Pi 4 Model B Rev 1.4'; }
BoardPi3APlusIsSupported() {
    printf 'Raspberry Pi 3 Model A Plus Rev 1.0\0' | write sys/firmware/devicetree/base/model
    echo 'dtoverlay=dwc2,dr_mode=peripheral' | write boot/firmware/config.txt
    expect 0 'ok       board: Raspberry Pi 3 Model A Plus Rev 1.0'
}
BoardOfAnotherModelIsRefused() {
    printf 'Raspberry Pi 5 Model B Rev 1.0\0' | write sys/firmware/devicetree/base/model
    expect_problem 'board: Raspberry Pi 5 Model B Rev 1.0 is not supported' 'Raspberry Pi 4 Model B or 3 Model A+'
}
BoardWithoutDeviceTreeIsNone() {
    rm "$board/sys/firmware/devicetree/base/model"
    expect_problem 'board: this computer does not say' 'camera-simulator'
}

OverlayIsFoundInTheOldPlace() {
    mv "$board/boot/firmware/config.txt" "$board/boot/config.txt"
    expect 0 'ok       overlay: "dtoverlay=dwc2" in /boot/config.txt'
}
OverlayInFrontOfAllSectionsCounts() {
    printf 'dtoverlay=dwc2,dr_mode=peripheral\r\n[cm4]\r\n' | write boot/firmware/config.txt
    expect 0 'ok       overlay: "dtoverlay=dwc2,dr_mode=peripheral" in /boot/firmware/config.txt'
}
OverlayThatIsMissingIsNamed() {
    rmdir "$board/sys/class/udc/fe980000.usb"
    echo '#dtoverlay=dwc2' | write boot/firmware/config.txt
    expect 1 'problem  overlay: /boot/firmware/config.txt has no line "dtoverlay=dwc2"' \
        'what to do: add a line "[all]" and a line "dtoverlay=dwc2" to the end of /boot/firmware/config.txt'
}
OverlayOfThePi3APlusIsAPeripheral() {
    printf 'Raspberry Pi 3 Model A Plus Rev 1.0\0' | write sys/firmware/devicetree/base/model
    rmdir "$board/sys/class/udc/fe980000.usb"
    : | write boot/firmware/config.txt
    expect 1 'what to do: add a line "[all]" and a line "dtoverlay=dwc2,dr_mode=peripheral"'
}
OverlayOfThePi3APlusNeedsItsMode() {
    printf 'Raspberry Pi 3 Model A Plus Rev 1.0\0' | write sys/firmware/devicetree/base/model
    expect_problem 'overlay: "dtoverlay=dwc2" in /boot/firmware/config.txt leaves this board' \
        'make it "dtoverlay=dwc2,dr_mode=peripheral"'
}
OverlayOfAnotherBoardDoesNotCount() {
    rmdir "$board/sys/class/udc/fe980000.usb"
    printf '[cm5]\ndtoverlay=dwc2,dr_mode=host\n' | write boot/firmware/config.txt
    expect 1 'problem  overlay: "[cm5] dtoverlay=dwc2,dr_mode=host" in /boot/firmware/config.txt does not hold'
}
OverlayOfAHostIsNamed() {
    rmdir "$board/sys/class/udc/fe980000.usb"
    echo 'dtoverlay=dwc2,dr_mode=host' | write boot/firmware/config.txt
    expect 1 'problem  overlay: "dtoverlay=dwc2,dr_mode=host" in /boot/firmware/config.txt makes the USB controller a host'
}
OverlayIsNoMatterWhereTheControllerIsThere() {
    : | write boot/firmware/config.txt
    expect 0 'note     overlay: ' 'in device mode all the same'
}

ControllerInDeviceModeIsNamed() { expect 0 'ok       controller: in device mode: fe980000.usb'; }
ControllerWithANumberIsKnown() {
    mv "$board/sys/class/udc/fe980000.usb" "$board/sys/class/udc/musb-hdrc.1.auto"
    expect 0 'ok       controller: in device mode: musb-hdrc.1.auto'
}
ControllerThatIsMissingIsAProblem() {
    rmdir "$board/sys/class/udc/fe980000.usb"
    expect_problem 'controller: no USB controller is in device mode' 'take away what is plugged into the port'
}
ControllerAsAHostIsTold() {
    rmdir "$board/sys/class/udc/fe980000.usb"
    printf 'host\0' | write sys/firmware/devicetree/base/soc/usb@7e980000/dr_mode
    expect_problem 'controller: no USB controller is in device mode' 'it was started as a host'
}
ControllerWithoutItsDriverIsTold() {
    rm -r "$board/sys/class/udc/fe980000.usb" "$board/sys/module/dwc2"
    expect_problem 'controller: no USB controller is in device mode' 'sudo modprobe dwc2'
}
ControllerOfAnotherKindIsUnknown() {
    mv "$board/sys/class/udc/fe980000.usb" "$board/sys/class/udc/dummy_udc.0"
    expect_problem 'controller: the receiver does not know the controller that is in device mode: dummy_udc.0' 'port'
}

GadgetfsMountedIsSeen() { expect 0 'ok       gadgetfs: mounted on /dev/gadget'; }
GadgetfsThatCanBeLoadedIsEnough() {
    sed -i /gadget/d "$board/proc/mounts"
    rmdir "$board/sys/module/gadgetfs"
    : | write modprobe-finds-it
    expect 0 'ok       gadgetfs: the module is there'
}
GadgetfsThatTheKernelLacksIsAProblem() {
    sed -i /gadget/d "$board/proc/mounts"
    rmdir "$board/sys/module/gadgetfs"
    expect_problem 'gadgetfs: this kernel has no module gadgetfs' 'install the kernel'
}

HolderMayBeTheReceiver() {
    process 210 camera-usb-rece /dev/gadget/fe980000.usb
    sed -i '/:1770 /d' "$board/proc/net/udp"
    expect 0 'ok       holder: the receiver has the controller'
}
HolderMayBeNobody() { expect 0 'ok       holder: nobody else has the controller'; }
HolderIsAnotherProgram() {
    process 300 other-gadget /dev/gadget/fe980000.usb
    expect_problem 'holder: the program other-gadget (process 300) has the controller' 'sudo kill 300'
}
HolderIsAKernelModule() {
    mkdir "$board/sys/module/g_ether"
    expect_problem 'holder: the kernel module g_ether has taken the controller' 'sudo modprobe -r g_ether'
}
HolderIsAConfigfsGadget() {
    echo fe980000.usb | write sys/kernel/config/usb_gadget/serial/UDC
    expect_problem 'holder: the USB gadget serial (configfs) has taken the controller' 'usb_gadget/serial/UDC'
}
HolderIsNoIdleConfigfsGadget() {
    echo | write sys/kernel/config/usb_gadget/serial/UDC
    expect 0 'ok       holder: '
}

HolderThatEndsMeanwhile() {
    process 410 camera-usb-rece /dev/gadget/fe980000.usb
    stand_in find <<<"/usr/bin/find \"\$@\"; rm -rf '$board/proc/410'"
    expect 0 'ok       holder: nobody else has the controller'
}

PortIsTheReceivers() { expect 0 "ok       port: UDP port 6000 is the receiver's"; }
PortIsFree() {
    sed -i '/:1770 /d' "$board/proc/net/udp"
    expect 0 'ok       port: UDP port 6000 is free'
}
PortIsTakenByAnotherProgram() {
    process 210 nc 'socket:[4711]'
    expect_problem 'port: UDP port 6000 is taken by nc (process 210)' 'end that program'
}
PortOfASocketForBothProtocolsCounts() {
    sed -i '/:1770 /d' "$board/proc/net/udp"
    echo '  1: 00000000000000000000000000000000:1770 0:0 07 0:0 0:0 0 0 0 4713 2 0 0' | write proc/net/udp6
    process 310 nc 'socket:[4713]'
    expect_problem 'port: UDP port 6000 is taken by nc (process 310)' 'end that program'
}
PortOfAReceiverThatEndsMeanwhile() {
    rm -r "$board/proc/210"
    stand_in find <<TEXT
case "\$*" in
    *socket*) sed -i '/:1770 /d' '$board/proc/net/udp' ;;
esac
exec /usr/bin/find "\$@"
TEXT
    expect 0 'ok       port: UDP port 6000 is free'
}
PortIsTakenByNoProgram() {
    rm -r "$board/proc/210"
    expect_problem 'port: UDP port 6000 is taken, and no program here has it' 'Give that another one'
}
PortIsTakenAsOnlyRootSees() {
    rm -r "$board/proc/210"
    stand_in id <<<'echo 1000'
    expect 0 'note     port: UDP port 6000 is taken; only root sees by whom'
}

ApplicationListens() { expect 0 'ok       application: a program takes the reports on UDP port 5000'; }
ApplicationIsMissing() {
    sed -i '/:1388 /d' "$board/proc/net/udp"
    expect 0 'note     application: no program takes the reports on UDP port 5000'
}
ApplicationOnAnotherPort() {
    echo 'RECEIVER_OPTIONS="-v --dst-port=5001"' | write etc/default/camera-usb-receiver
    expect 0 'note     application: no program takes the reports on UDP port 5001'
}
ApplicationOnAPortWithLettersInHex() {
    echo "RECEIVER_OPTIONS='-s 5003'" | write etc/default/camera-usb-receiver
    sed -i 's/:1388 /:138B /' "$board/proc/net/udp"
    expect 0 'ok       application: a program takes the reports on UDP port 5003'
}
ApplicationWithANameForAnAddressIsAProblem() {
    echo 'RECEIVER_OPTIONS="-d studio"' | write etc/default/camera-usb-receiver
    unit IPAddressAllow=0.0.0.0/0
    expect_problem 'application: studio is no IPv4 address' 'correct RECEIVER_OPTIONS'
}
ApplicationOnAnotherComputerIsHeldBack() {
    echo 'RECEIVER_OPTIONS="-d 192.168.1.5"' | write etc/default/camera-usb-receiver
    expect_problem 'application: the service may not send to 192.168.1.5' 'Other computers'
}
ApplicationOnAnotherComputerIsLetIn() {
    echo 'RECEIVER_OPTIONS="-d192.168.1.5 -s 6001"' | write etc/default/camera-usb-receiver
    unit IPAddressAllow='127.0.0.0/8 ::1/128 192.168.1.0/24'
    expect 0 'ok       application: the reports go to 192.168.1.5, UDP port 6001'
}

BootHasNoLimitsYet() { expect 0 'ok       boot: no focus limits have been saved yet'; }
BootHasLimits() {
    echo mf_min=1 | write boot/osmo-usb.conf
    expect 0 'ok       boot: focus limits are in /boot/osmo-usb.conf'
}
BootAsAReadOnlyPartitionIsFine() {
    sed -i 's|^.* /boot/firmware .*|/dev/mmcblk0p1 /boot vfat ro 0 0|' "$board/proc/mounts" "$board/etc/fstab"
    expect 0 'ok       boot: '
}
BootThatFstabDoesNotKnowIsAProblem() {
    echo '/dev/sda1 /boot vfat rw 0 0' >>"$board/proc/mounts"
    expect_problem 'boot: /boot is mounted, but /etc/fstab does not have it' 'add /boot to /etc/fstab'
}
BootThatIsNotMountedIsAProblem() {
    echo '/dev/sda1 /boot vfat ro 0 0' >>"$board/etc/fstab"
    expect_problem 'boot: /boot is in /etc/fstab, but is not mounted' 'sudo mount /boot'
}
BootThatIsMountedWhenItIsUsedIsFine() {
    echo 'systemd-1 /boot autofs rw 0 0' >>"$board/proc/mounts"
    echo '/dev/sda1 /boot vfat ro,x-systemd.automount 0 0' >>"$board/etc/fstab"
    expect 0 'ok       boot: '
}
BootOnAReadOnlyRootIsAProblem() {
    sed -i 's/ext4 rw/ext4 ro/' "$board/proc/mounts"
    expect_problem 'boot: /boot is part of a file system that is read-only' 'remount,rw /'
}
BootThatIsFullIsAProblem() {
    stand_in df <<<"printf 'Filesystem 1024-blocks Used Available Capacity Mounted\nx 9 9 0 100%% /\n'"
    expect_problem 'boot: the file system of /boot is full' 'remove'
}
BootThatIsMissingIsAProblem() {
    rm -r "${board:?}/boot"
    expect 1 'problem  boot: there is no directory /boot' 'what to do: sudo mkdir /boot'
}

FilesHaveTheirDirectory() { expect 0 'ok       files: /run/vantarel is there'; }
FilesWithoutTheirDirectoryAreAProblem() {
    rm -r "$board/run/vantarel"
    expect_problem 'files: there is no /run/vantarel' 'sudo systemd-tmpfiles --create camera-usb-receiver.conf'
}

ServiceRuns() { expect 0 'ok       service: running; started again 3 times'; }
ServiceBetweenTwoRunsIsFine() {
    unit ActiveState=activating SubState=auto-restart ExecMainStatus=2
    expect 0 'ok       service: between two runs'
}
ServiceThatIsDisabledIsAProblem() {
    unit UnitFileState=disabled
    expect_problem 'service: running; started again 3 times since it was first started; but it will not start at boot' \
        'sudo systemctl enable camera-usb-receiver'
}
ServiceThatIsStoppedIsAProblem() {
    unit ActiveState=inactive SubState=dead
    expect_problem 'service: it is stopped' 'sudo systemctl start camera-usb-receiver'
}
ServiceThatWaitsForItsControllerIsTold() {
    unit ActiveState=inactive SubState=dead ConditionResult=no
    expect_problem 'service: it was not started' 'starts by itself when the controller is there'
}
ServiceThatFailedIsAProblem() {
    unit ActiveState=failed SubState=failed Result=resources
    expect_problem 'service: it has failed (resources)' 'sudo journalctl -u camera-usb-receiver -n 50'
}
ServiceThatIsMaskedIsAProblem() {
    unit LoadState=masked
    expect_problem 'service: it is masked' 'sudo systemctl unmask camera-usb-receiver'
}
ServiceThatIsNotInstalledIsAProblem() {
    unit LoadState=not-found
    expect_problem 'service: it is not installed' 'apt-get install'
}
ServiceWithoutSystemdIsAProblem() {
    stand_in systemctl <<<'exit 1'
    expect 1 'problem  service: systemd does not answer'
}

LastEndThatIsPartOfTheWork() {
    printf '%s\n' 'delta 5012' 'Camera connection timeout' 'DJI Osmo Pro/RAW Wired USB receiver' | write journal
    expect 0 'ok       last end: "Camera connection timeout": the camera was silent for 5 seconds'
}
LastEndIsTheLastOne() {
    printf '%s\n' 'Board not supported' 'Camera connection timeout' 'USB receiver exit' | write journal
    expect 0 'ok       last end: "USB receiver exit": the USB link ended'
}
LastEndThatIsAProblem() {
    printf '%s\n' 'Destination host or port not set' | write journal
    expect_problem 'last end: "Destination host or port not set"' 'correct RECEIVER_OPTIONS'
}
LastEndByAWrongOption() {
    printf '%s\n' Usage: '-v | --verbose' '-? | --help - show this help' | write journal
    expect_problem 'last end: "Usage:": an option was not understood (status 1)' 'correct RECEIVER_OPTIONS'
}
LastEndIsFoundBehindHoursOfVideo() {
    { echo 'Board not supported'; printf 'delta %s\n' {1..50000}; } | write journal
    expect_problem 'last end: "Board not supported"' 'see the point "board"'
}
LastEndOfEachKindHasFourFields() {
    local fields
    fields=$(sed -n "/<<'TABLE'/,/^TABLE/p" "$program" | sed '1d;$d' | awk -F'|' '{ print NF, $2 }' | sort -u)
    [ "$fields" = '4 ok
4 problem' ]
}
LastEndThatIsHistory() {
    printf '%s\n' "Couldn't open USB device" 'Gadget init failed' 'Gadget init done' | write journal
    expect 0 'note     last end: "Gadget init failed"' 'it has started again since'
}
LastEndBySignal() {
    printf '%s\n' 'signal 11 handler' | write journal
    expect_problem 'last end: "signal 11 handler": it crashed' 'report it'
}
LastEndByASignalThatOnlyStopsIt() {
    local signal
    for signal in 1 2 3 13 15; do
        printf '%s\n' 'Board not supported' "signal $signal handler" | write journal
        expect 0 "ok       last end: \"signal $signal handler\": it"
    done
}
LastEndWithoutAWordOfItsOwn() {
    echo 'camera-usb-receiver.service: Main process exited, code=killed, status=9/KILL' | write journal
    expect_problem 'last end: "code=killed": it was killed' 'out of memory?'
}
LastEndWithACoreFile() {
    echo 'camera-usb-receiver.service: Main process exited, code=dumped, status=7/BUS' | write journal
    expect_problem 'last end: "code=dumped": it crashed' 'report it'
}
LastEndThatTheJournalDoesNotHave() {
    unit ActiveState=activating SubState=auto-restart ExecMainStatus=2
    expect 0 'note     last end: status 2: the camera was silent'
}
LastEndIsNone() { expect 0 'ok       last end: none since the system was started'; }

case "${1:-}" in
    [A-Z]*) ;;
    *) sed -n '2,3s/^# //p' "$0"; exit 2 ;;
esac
healthy_board
"$1"
