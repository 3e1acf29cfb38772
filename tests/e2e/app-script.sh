#!/usr/bin/env bash
# The example of a script for the scripted main application: app-script.sh RECEIVER SIMULATOR APPLICATION SCRIPT
# Succeeds when the scripted main application saw all that it expected, and the simulated camera refused none
# of what it was sent.
set -euo pipefail
receiver=$1 simulator=$2 application=$3 script=$4
port=5997

directory=$(mktemp -d)
shared_memory=(/dev/shm/vantarel_framebuffer /dev/shm/vantarel_framebuffer_transcoding /dev/shm/shared_rc_raw)
rm -f "${shared_memory[@]}"
camera=
finish() {
    # Still there only where something has failed already: that failure is the one to report.
    if [ -n "$camera" ]; then
        kill "$camera" 2>/dev/null || true
        wait "$camera" 2>/dev/null || true
    fi
    rm -rf "$directory" "${shared_memory[@]}"
}
trap finish EXIT

"$simulator" --root "$directory" --seconds 60 -- "$receiver" --dst-port "$port" >"$directory/camera.out" 2>&1 &
camera=$!
"$application" --port "$port" --script "$script" --wait 20

# Ended by hand, the simulator prints its counts and says by its status whether it refused a command.
status=0
kill "$camera"
wait "$camera" || status=$?
camera=
cat "$directory/camera.out"
grep -qx 'commands refused: 0' "$directory/camera.out"
grep -q '^commands taken: .*gimbal_position 1.*record 2.*shot 1' "$directory/camera.out"
[ "$status" -eq 0 ]
