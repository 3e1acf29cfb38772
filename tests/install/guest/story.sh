# shellcheck shell=sh disable=SC2034  # for those who source this
# Sourced by the chapters: tests that are told one after the other, each on what the ones before have left.

unit=camera-usb-receiver
# Until the next start of the board, and over it.
notes=/tmp/notes
kept=/var/tmp/kept
mkdir -p "$notes" "$kept"
export LC_ALL=C DEBIAN_FRONTEND=noninteractive

# tell TEST...: functions. A line for each; behind that of one that failed, how it went.
tell() {
    for test in "$@"; do
        began=$(seconds)
        (set -ex; "$test") >"$notes/log" 2>&1
        # A test is more than one condition, for which "-e" would not hold.
        # shellcheck disable=SC2181
        if [ $? -eq 0 ]; then
            echo "passed $test ($(($(seconds) - began)) s)"
        else
            echo "FAILED $test ($(($(seconds) - began)) s)"
            tail -n 60 "$notes/log" | sed 's/^/    /'
        fi
    done
}

seconds() { cut -d. -f1 /proc/uptime; }

# within SECONDS COMMAND...: it succeeds by then.
within() {
    deadline=$(($(seconds) + $1))
    shift
    until "$@"; do
        [ "$(seconds)" -lt "$deadline" ] || return 1
        sleep 0.2
    done
}

# fails STATUS COMMAND...: with that status.
fails() {
    expected=$1 status=0
    shift
    "$@" || status=$?
    [ "$status" -eq "$expected" ]
}

# The shell's own "!" hides a failure from "-e".
not() { ! "$@"; }
