#!/usr/bin/env bash
# What a newcomer sees of scripts/demo.sh: scripts/test-demo.sh
# It takes the receiver's real names of this machine, as the demo does. Ends with one line, "N passed, N failed, N
# skipped"; the exit status says the same.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=tests/until-true.sh
. tests/until-true.sh
need_packages curl

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

TheCameraDoesWhatItIsToldAndTheVideoIsTheClip() {
    scripts/demo.sh --seconds 16 --output "$place/video.h264" >"$place/said" 2>&1
    is_said 'control  \| receiver-ctl --wait iso 400'
    is_said 'receiver \| Camera set iso 400'
    is_said 'camera   \| commands refused: 0'
    is_said "It is the clip, bit for bit: play it with  ffplay $place/video.h264"
}

is_said() { grep -qxE "$1" "$place/said"; }
# get PATH [OPTION...]: what curl gets there at the page's address.
get() { curl -sf "$address$1" "${@:2}"; }
# is_there PATH TEXT. All is read, for curl fails where it cannot write.
is_there() { get "$1" | grep -E "$2" >/dev/null; }
demo_has_ended() { ! kill -0 "$demo" 2>/dev/null; }
state_has() { is_there api/state "$1"; }

ThePageIsAtTheAddressThatIsToldUntilCtrlC() {
    # What the test before has left there is not to be taken for this one's.
    : >"$place/said"
    # As at a terminal: a group of its own, which Ctrl-C ends.
    set -m
    env --default-signal=INT scripts/demo.sh >"$place/said" 2>&1 &
    demo=$!
    set +m
    trap 'kill -- "-$demo" 2>/dev/null || true' EXIT
    until_true 300 is_said "    The camera's page:  http://127\.0\.0\.1:[0-9]+/"
    address=$(sed -n "s/^    The camera's page:  //p" "$place/said")
    [ "$(get healthz)" = ok ]
    is_there '' '<title>'
    until_true 20 state_has '"camera":"present"'
    until_true 20 state_has '"video_pictures":[0-9]{2}'
    get api/command -d '{"cmd":"iso","param":"1600"}'
    until_true 10 state_has '"iso_set":"1600"'
    get api/record -d '{"record":"start"}'
    until_true 20 state_has '"recording":"camera-[^"]*\.mp4"'
    until_true 20 state_has '"recording_bytes":[1-9]'
    get api/record -d '{"record":"stop"}'
    until_true 10 is_there api/recordings '"name":"camera-[^"]*\.mp4"'

    kill -INT -- "-$demo"
    until_true 30 demo_has_ended
    status=0
    wait "$demo" || status=$?
    [ "$status" -eq 130 ]
    is_said 'Stopped\.'
    # As the kernel cuts their names.
    for program in camera-usb-rece camera-simulato receiver-monito; do
        if pgrep -x "$program"; then
            return 1
        fi
    done
    [ ! -e /dev/shm/vantarel_framebuffer ]
}

passed=0 failed=0
for test in TheCameraDoesWhatItIsToldAndTheVideoIsTheClip ThePageIsAtTheAddressThatIsToldUntilCtrlC; do
    # Where its status is asked for, "-e" would not hold within.
    set +e
    (set -ex; "$test") >"$place/log" 2>&1
    status=$?
    set -e
    if [ "$status" -eq 0 ]; then
        echo "passed $test"
        passed=$((passed + 1))
    else
        echo "FAILED $test"
        tail -n 40 "$place/said" "$place/log" | sed 's/^/    /'
        failed=$((failed + 1))
    fi
done
echo "$passed passed, $failed failed, 0 skipped"
[ "$failed" -eq 0 ]
