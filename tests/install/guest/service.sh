# shellcheck shell=sh disable=SC2154  # what story.sh has set
# Sourced by the chapters of a board: the service, and the hand on camera, cable and main application.

property() { systemctl show "$unit" --property="$1" --value; }
is() { [ "$(property "$1")" = "$2" ]; }

system_is_running() { [ "$(systemctl is-system-running)" = running ]; }
TheSystemIsStillWell() {
    system_is_running
    journalctl --dmesg >"$notes/kernel"
    not grep -E '(WARNING|BUG|Oops): ' "$notes/kernel"
}

# run_says TEXT: the process that runs, or the last one.
run_says() {
    journalctl --quiet --no-pager --output=cat "_SYSTEMD_INVOCATION_ID=$(property InvocationID)" >"$notes/run"
    grep -qF -- "$1" "$notes/run"
}

# has_ended RESULT STATUS...: it is between two runs, the one before ended so, as systemd sees it.
has_ended() {
    state=$(systemctl show "$unit" --property=SubState,Result,ExecMainStatus | sort | tr '\n' ' ')
    result=$1
    shift
    for status in "$@"; do
        [ "$state" != "ExecMainStatus=$status Result=$result SubState=auto-restart " ] || return 0
    done
    return 1
}

# comes_back NUMBER: from that number of restarts on.
comes_back() { within 15 is_started_again "$1"; }
is_started_again() { is SubState running && [ "$(property NRestarts)" -gt "$1" ]; }

# --- the camera's end of the cable

# The handle stays switched on, whatever the receiver does.
camera_on() {
    # shellcheck disable=SC2016  # expanded there
    systemd-run --quiet --unit=camera /bin/sh -c 'while sleep 0.2; do
        camera-simulator --usb --h264 /mnt/run/clip.h264 --loop --record /tmp/record; done'
}
camera_off() { systemctl stop camera; }

port_power() { echo "$((1 - $1))" >'/sys/bus/usb/devices/usb1/1-0:1.0/usb1-port1/disable'; }

# The ring's sequence number.
part_number() { od -An -tu2 -j2 -N2 /dev/shm/vantarel_framebuffer; }
parts_arrive() {
    number=$(part_number)
    sleep 1
    [ "$(part_number)" -ne "$number" ]
}
# The host has about five seconds from a start on; where the machine is busy, it gets another, and more.
streams() {
    within 120 run_says 'Live stream video resolution changed to 640x480'
    parts_arrive
}
# With a ring, and no other run's words.
streams_anew() {
    comes_back "$1"
    streams
}

# --- who talks to it

# datagram ADDRESS HEX: to port 6000, from another address of this computer's network where another_computer stands
# in front.
datagram() {
    # shellcheck disable=SC2016  # these are perl's
    perl -MSocket -e 'socket(S, PF_INET, SOCK_DGRAM, 0);
        send(S, pack("H*", $ARGV[1]), 0, sockaddr_in(6000, inet_aton($ARGV[0]))) or die' "$1" "$2"
}
camera_has_got() { grep -qx "$1" /tmp/record; }

# command_of_application JSON: as the main application, which answers a report.
command_of_application() {
    # shellcheck disable=SC2016
    timeout 20 perl -MSocket -e 'socket(S, PF_INET, SOCK_DGRAM, 0);
        bind(S, sockaddr_in(5000, inet_aton("127.0.0.1"))) or die; my $from = recv(S, my $report, 65536, 0) or die;
        send(S, "!$ARGV[0]", 0, $from) or die' "$1"
}

boot_options() { awk '$2 == "/boot" { options = $4 } END { print options }' /proc/mounts; }
boot_is_read_only() { boot_options | grep -qE '^ro(,|$)'; }
