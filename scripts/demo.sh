#!/usr/bin/env bash
# Shows the receiver at work without a camera: scripts/demo.sh [--seconds N [--output FILE]]
# A simulated camera plays a 1080p clip, encoded for the occasion, into the receiver, and a page shows it in the browser,
# with the camera's values and its controls, until Ctrl-C. With --seconds the clip is played once and written, as it
# comes out of shared memory, to FILE (demo-video.h264), which must be the clip; if there are 16 seconds, the camera is
# commanded from here.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

seconds='' output=demo-video.h264
while [ $# -gt 0 ]; do
    case "$1" in
        --seconds) seconds=${2:?--seconds needs a number}; shift 2 ;;
        --output) output=${2:?--output needs a file}; shift 2 ;;
        *) sed -n '2,6s/^# //p' "scripts/${0##*/}"; exit 2 ;;
    esac
    case "$seconds" in
        *[!0-9]*) seconds=0 ;;
    esac
    if [ -n "$seconds" ] && [ "$((10#$seconds))" -eq 0 ]; then
        echo "--seconds takes a whole number above 0" >&2
        exit 2
    fi
done
seconds=${seconds:+$((10#$seconds))}

# A PC has no device tree, and so no model.
model=$(tr -d '\0' 2>/dev/null </sys/firmware/devicetree/base/model || true)
case "$model" in
    *"Raspberry Pi 3 Model A"* | *"Raspberry Pi 4 Model B"*)
        cat <<TEXT
This is a $model: it can run the real thing.
    sudo apt-get install ./camera-usb-receiver_*_$(dpkg --print-architecture).deb
    sudo camera-usb-receiver-check
The package is made on a Debian 12 PC with scripts/package.sh $(dpkg --print-architecture). Plug the camera's handle into
the board's device port; docs/install-pi.md has every step.
TEXT
        exit 0
        ;;
esac
need_packages "${build_packages[@]}" "${monitor_packages[@]}" "${video_packages[@]}" procps
need_npm
if pgrep -x camera-usb-rece >/dev/null; then
    echo "A receiver runs on this machine already; the demo would take its shared memory." >&2
    exit 1
fi

cmake --preset release -DRECEIVER_TESTS=OFF -DRECEIVER_MONITOR=ON -DRECEIVER_MONITOR_PAGE_BUILD=ON >/dev/null
cmake --build --preset release

clip=build/clips/demo-${seconds:-30}.h264
frames=$((${seconds:-30} * 30))
echo "Encoding ${seconds:-30} seconds of 1080p video"
scripts/make-clip.sh "$clip" 1920x1080 "$frames" 4 "bitrate=12000:vbv-maxrate=12000:vbv-bufsize=12000"

run=$(mktemp -d /tmp/receiver-demo.XXXXXX)
recordings=build/recordings
mkdir -p "$recordings"
shared_memory=(/dev/shm/vantarel_framebuffer /dev/shm/vantarel_framebuffer_transcoding /dev/shm/shared_rc_raw)
rm -f "${shared_memory[@]}"
camera='' monitor='' commands=''
# stop PID: it may have ended by itself, and ends with a status of its own in either case.
stop() {
    [ -n "$1" ] || return 0
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}
finish() {
    trap - EXIT INT TERM
    stop "$commands"
    stop "$camera"
    stop "$monitor"
    rm -rf "$run"
    rm -f "${shared_memory[@]}"
}
trap finish EXIT
trap 'echo; echo "Stopped."; exit 130' INT TERM

# start_monitor ADDRESS:PORT: *address* is then the page's.
start_monitor() {
    build/release/monitor/receiver-monitor --listen "$1" --run-directory "$run/run/vantarel" \
        --recordings "$recordings" >"$run/address" 2>"$run/monitor-errors" &
    monitor=$!
    until [ -s "$run/address" ]; do
        kill -0 "$monitor" 2>/dev/null || return 1
        sleep 0.1
    done
    address=$(cat "$run/address")
}
if ! start_monitor 127.0.0.1:8080 && ! start_monitor 127.0.0.1:0; then
    cat "$run/monitor-errors" >&2
    exit 1
fi
tell() {
    echo "control  | receiver-ctl $*"
    build/release/monitor/receiver-ctl --monitor "${address%/}" "$@"
}

# The camera starts the receiver on its board. The receiver's own lines go to standard error.
play() {
    exec build/release/simulator/camera-simulator --root "$run" --h264 "$clip" --pace realtime --enumerate short "$@" \
        -- build/release/camera-usb-receiver --verbose \
        2> >(grep --line-buffered -v '^delta ' | sed -u 's/^/receiver | /') > >(sed -u 's/^/camera   | /')
}

cat <<TEXT

    The camera's page:  $address

TEXT
if [ -z "$seconds" ]; then
    echo "Recordings go to $recordings. Ctrl-C ends it."
    # As on a Raspberry Pi, where the service starts the receiver anew: after its camera was switched off, for example.
    # How the one before ended is in its lines.
    while :; do
        (play --loop) &
        camera=$!
        wait "$camera" || true # also a camera that failed is started anew
        sleep 2
    done
fi

(play) &
camera=$!

# What a user does. A step that waits goes on when the camera says that it is done.
give_commands() {
    set -e
    for _ in {1..50}; do
        ! build/release/monitor/receiver-ctl --monitor "${address%/}" --json status | grep -q '"camera":"present"' || break
        sleep 0.2
    done
    tell --wait mode photo
    tell shot
    sleep 2
    tell --wait mode video
    tell --wait iso 400
    tell --wait wb cloudy
    tell --wait resolution 3840x2160@25
    tell --wait resolution 1920x1080@30
    tell --wait record start
    tell gimbal abs 0 1 0
    sleep 2
    tell gimbal normal
    tell --wait record stop
}
if [ "$seconds" -ge 16 ]; then
    give_commands &
    commands=$!
fi

recorder_status=0
build/release/simulator/video-ring-recorder --output "$output" --run-directory "$run/run/vantarel" \
    --idle 2 --seconds $((seconds + 30)) || recorder_status=$?

commands_status=0
[ -z "$commands" ] || wait "$commands" || commands_status=$?
commands=''
stop "$camera"
camera=''
sleep 0.2 # for the last lines of them all
echo
echo "The clip has $frames frames; the file has $(ffprobe -v error -count_frames -show_entries \
    stream=nb_read_frames -of csv=p=0 -f h264 "$output" | tr -d ',') frames, $(stat -c %s "$output") bytes."
if [ "$recorder_status" -ne 0 ] || ! cmp "$clip" "$output"; then
    echo "The video that came back is not the clip." >&2
    exit 1
fi
if [ "$commands_status" -ne 0 ]; then
    echo "The camera did not do what it was told." >&2
    exit 1
fi
echo "It is the clip, bit for bit: play it with  ffplay $output"
