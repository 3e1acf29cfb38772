#!/usr/bin/env bash
# Shows the receiver at work without a camera: scripts/demo.sh [--seconds N] [--output FILE]
# A simulated camera plays a 1080p clip, encoded for the occasion, into the receiver; another process reads
# the video back from shared memory and writes it to FILE (demo-video.h264), which any player opens. A small
# main application shows the camera's telemetry as it changes, and commands the camera if there are 16 seconds.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

seconds=20
output=demo-video.h264
port=5000
while [ $# -gt 0 ]; do
    case "$1" in
        --seconds) seconds=${2:?--seconds needs a number}; shift 2 ;;
        --output) output=${2:?--output needs a file}; shift 2 ;;
        *) sed -n '2,5s/^# //p' "scripts/${0##*/}"; exit 2 ;;
    esac
done
case "$seconds" in
    '' | *[!0-9]*) seconds=0 ;;
esac
seconds=$((10#$seconds))
if [ "$seconds" -eq 0 ]; then
    echo "--seconds takes a whole number above 0" >&2
    exit 2
fi

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
need_packages "${build_packages[@]}" "${video_packages[@]}" procps
if pgrep -x camera-usb-rece >/dev/null; then
    echo "A receiver runs on this machine already; the demo would take its shared memory." >&2
    exit 1
fi

cmake --preset release -DRECEIVER_TESTS=OFF >/dev/null
cmake --build --preset release

clip=build/clips/demo-$seconds.h264
frames=$((seconds * 30))
echo "Encoding $seconds seconds of 1080p video"
scripts/make-clip.sh "$clip" 1920x1080 "$frames" 4 "bitrate=12000:vbv-maxrate=12000:vbv-bufsize=12000"

run=$(mktemp -d /tmp/receiver-demo.XXXXXX)
shared_memory=(/dev/shm/vantarel_framebuffer /dev/shm/vantarel_framebuffer_transcoding /dev/shm/shared_rc_raw)
rm -f "${shared_memory[@]}"
camera='' application=''
# stop PID: it may have ended by itself, and ends with a status of its own in either case.
stop() {
    [ -n "$1" ] || return 0
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}
finish() {
    trap - EXIT INT TERM
    stop "$application"
    stop "$camera"
    rm -rf "$run"
    rm -f "${shared_memory[@]}"
}
trap finish EXIT
trap 'echo; echo "Stopped; $output holds what had come by then."; exit 130' INT TERM

# The main application's script takes 14 seconds; a shorter demo only listens.
commands=()
if [ "$seconds" -ge 16 ]; then
    commands=(--script simulator/demo-app.script)
fi
build/release/simulator/scripted-main-application --port "$port" "${commands[@]}" \
    --seconds $((seconds < 16 ? seconds : seconds - 1)) &
application=$!

# The camera starts the receiver on its board. The receiver's own lines go to standard error.
build/release/simulator/camera-simulator --root "$run" --h264 "$clip" --pace realtime --enumerate short \
    -- build/release/camera-usb-receiver --verbose --dst-port "$port" \
    2> >(grep --line-buffered -v '^delta ' | sed -u 's/^/receiver | /') > >(sed -u 's/^/camera   | /') &
camera=$!

recorder_status=0
build/release/simulator/video-ring-recorder --output "$output" --run-directory "$run/run/vantarel" \
    --idle 2 --seconds $((seconds + 30)) || recorder_status=$?

application_status=0
wait "$application" || application_status=$?
application=
stop "$camera"
camera=
sleep 0.2 # for the last lines of them all
echo
echo "The clip has $frames frames; the file has $(ffprobe -v error -count_frames -show_entries \
    stream=nb_read_frames -of csv=p=0 -f h264 "$output" | tr -d ',') frames, $(stat -c %s "$output") bytes."
if [ "$recorder_status" -ne 0 ] || ! cmp "$clip" "$output"; then
    echo "The video that came back is not the clip." >&2
    exit 1
fi
if [ "$application_status" -ne 0 ]; then
    echo "The main application did not see what it expected." >&2
    exit 1
fi
echo "It is the clip, bit for bit: play it with  ffplay $output"
