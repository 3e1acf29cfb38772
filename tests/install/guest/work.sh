# shellcheck shell=sh
# The second start of the board: the receiver is there by itself, at work, and gone again.
# shellcheck source=tests/install/guest/story.sh
. /mnt/run/story.sh
# shellcheck source=tests/install/guest/packages.sh
. /mnt/run/packages.sh
# shellcheck source=tests/install/guest/service.sh
. /mnt/run/service.sh

TheServiceIsUpAfterTheRestart() {
    within 60 system_is_running
    within 20 run_says 'Gadget init done'
    is UnitFileState enabled
    grep -q ' /dev/gadget gadgetfs ' /proc/mounts
    [ "$(cat /run/vantarel/board_supported)" = 1 ]
}

WithoutACameraItEndsAndComesBack() {
    restarts=$(property NRestarts)
    within 20 has_ended success 2
    comes_back "$restarts"
}

TheHostStreams() {
    camera_on
    streams
    [ "$(cat /run/vantarel/video_width)" = 640 ]
    camera-usb-receiver-check
}

ItComesBackAfterAKill() {
    streams
    restarts=$(property NRestarts)
    kill -KILL "$(property MainPID)"
    within 10 has_ended signal 9
    streams_anew "$restarts"
}

ItComesBackAfterUnplugging() {
    streams
    restarts=$(property NRestarts)
    port_power 0
    # Which of the two, the clock decides.
    within 10 has_ended success 1 2
    port_power 1
    streams_anew "$restarts"
}

StoppedItStaysStopped() {
    streams
    systemctl stop "$unit"
    is Result success
    is ActiveState inactive
    sleep 4
    is ActiveState inactive
    systemctl start "$unit"
    streams
}

OtherComputersAreKeptOut() {
    ip netns add elsewhere
    ip link add here type veth peer name there netns elsewhere
    ip address add 192.0.2.1/24 dev here
    ip -netns elsewhere address add 192.0.2.2/24 dev there
    ip link set here up
    ip -netns elsewhere link set there up
    streams
    within 10 from_elsewhere_arrives_nowhere
    datagram 127.0.0.1 0102
    within 10 camera_has_got 0102
    not camera_has_got 0304
}
# The network is up when the neighbour is known.
from_elsewhere_arrives_nowhere() {
    ip netns exec elsewhere sh -c ". /mnt/run/story.sh && . /mnt/run/service.sh && datagram 192.0.2.1 0304"
    ip neighbour show dev here | grep -q 'lladdr'
}

TheDropInLetsThemIn() {
    mkdir -p "/etc/systemd/system/$unit.service.d"
    printf '[Service]\nIPAddressAllow=192.0.2.2\n' >"/etc/systemd/system/$unit.service.d/override.conf"
    systemctl daemon-reload
    systemctl restart "$unit"
    streams
    ip netns exec elsewhere sh -c ". /mnt/run/story.sh && . /mnt/run/service.sh && datagram 192.0.2.1 0506"
    within 10 camera_has_got 0506
    systemctl revert "$unit"
    systemctl restart "$unit"
    ip netns delete elsewhere
}

FocusLimitsAreSavedOnAReadOnlyBoot() {
    streams
    boot_is_read_only
    command_of_application '{"cmd":"updatecameraconfig","param":"focus_limits","value":"10","value2":"90"}'
    within 10 run_says 'Camera config saved'
    within 10 boot_is_read_only
    printf '# Osmo USB config file\r\n\r\nmf_min=10\r\nmf_max=90\r\n' | cmp - /boot/osmo-usb.conf
    not touch /boot/writable
    # On the card, not only in memory.
    umount /boot
    mount /boot
    grep -q '^mf_max=90' /boot/osmo-usb.conf
}

TheNextRunHasTheLimits() {
    systemctl restart "$unit"
    within 20 run_says 'Loading camera config file... done'
}

TheOptionsReachTheCommandLine() {
    sed -i 's/^RECEIVER_OPTIONS=.*/RECEIVER_OPTIONS="-v -s 5001"/' /etc/default/camera-usb-receiver
    systemctl restart "$unit"
    within 20 run_says 'Init connection to main application 127.0.0.1:5001'
    sed -i 's/^RECEIVER_OPTIONS=.*/RECEIVER_OPTIONS=""/' /etc/default/camera-usb-receiver
    systemctl restart "$unit"
}

AControllerThatTurnsUpStartsIt() {
    camera_off
    systemctl stop "$unit"
    umount /dev/gadget
    rmmod gadgetfs dummy_hcd
    systemctl start "$unit"
    is ConditionResult no
    is ActiveState inactive
    modprobe dummy_hcd
    within 30 run_says 'Gadget init done'
}

RemovingLeavesTheSettings() {
    apt_get remove camera-usb-receiver
    is LoadState not-found
    not pgrep_receiver
    not grep -q gadgetfs /proc/mounts
    not grep -q '^gadgetfs ' /proc/modules
    for path in /dev/gadget /run/vantarel /dev/shm/vantarel_framebuffer /dev/shm/vantarel_framebuffer_transcoding; do
        [ ! -e "$path" ]
    done
    [ -e /dev/shm/shared_rc_raw ]
    [ -e /etc/default/camera-usb-receiver ]
    [ -e /boot/osmo-usb.conf ]
}
pgrep_receiver() { grep -x camera-usb-rece /proc/[0-9]*/comm; }

PurgingLeavesBootReadOnly() {
    boot_is_read_only
    not touch /boot/writable
}

tell TheServiceIsUpAfterTheRestart WithoutACameraItEndsAndComesBack TheHostStreams ItComesBackAfterAKill \
    ItComesBackAfterUnplugging StoppedItStaysStopped OtherComputersAreKeptOut TheDropInLetsThemIn \
    FocusLimitsAreSavedOnAReadOnlyBoot TheNextRunHasTheLimits TheOptionsReachTheCommandLine \
    AControllerThatTurnsUpStartsIt TheSystemIsStillWell RemovingLeavesTheSettings PurgingLeavesNothingBehind PurgingLeavesBootReadOnly
journalctl --no-pager --boot >/mnt/run/journal
