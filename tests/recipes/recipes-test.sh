#!/usr/bin/env bash
# docs/streaming.md is true, and what docs/monitor.md has of the kind: recipes-test.sh PROGRAMS TEST runs the commands as
# they stand there, with the simulated camera, and compares what arrives. PROGRAMS is a build directory; in a network of
# their own.
set -euo pipefail
programs=$(realpath "$1")
source_directory=$(dirname "$(dirname "$(dirname "$(realpath "$0")")")")
page=$source_directory/docs/streaming.md
# shellcheck source=tests/until-true.sh
. "$source_directory/tests/until-true.sh"
PATH=$programs/monitor:$PATH:/usr/sbin
export SDL_VIDEODRIVER=dummy SDL_AUDIODRIVER=dummy SDL_RENDER_DRIVER=software LC_ALL=C.UTF-8
home=$(mktemp -d)
cd "$home"
started=()
finish() {
    local pid
    # Some have ended by themselves.
    for pid in "${started[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
    wait
    rm -rf "$home"
}
trap finish EXIT

# The commands behind a comment of the page.
block() {
    awk -v mark="<!-- $1 -->" '$0 == mark {seen = 1} seen && /^```$/ {exit} seen && inside {print}
        seen && /^```(sh|ini)$/ {inside = 1}' "$page"
}

state_has() { curl -s http://127.0.0.1:8080/api/state | grep -qE "$1"; }

clip=$programs/clips/recipes-1280x720.h264
camera() {
    exec "$programs/simulator/camera-simulator" --root "$home/board" --seconds 80 --h264 "$clip" --loop -- \
        "$programs/camera-usb-receiver" >camera.log 2>&1
}
start_camera() {
    camera &
    started+=($!)
}
start_monitor() {
    mkdir -p board
    receiver-monitor --run-directory "$home/board/run/vantarel" "$@" >monitor.log 2>&1 &
    started+=($!)
}
start_all() {
    mkdir -p board
    start_camera
    start_monitor "$@"
}
video_comes() { until_true 30 state_has '"video_pictures":[0-9]{2}'; }

# The far end of a recipe: what comes as a plain byte stream, arrived.h264, and with its times, arrived.ts.
far_end() {
    ffmpeg -nostdin -v fatal -y "$@" -c copy -f h264 arrived.h264 -c copy -f mpegts arrived.ts &
    started+=($!)
    far=$!
}
# What arrived is what counts: its sender is ended in the middle, and the far end says of that what it likes.
await_far_end() { wait "$far" || true; }
listens() { ss -ltnu | grep -q ":$1 "; }

# recipe NAME FILES [SED-COMMAND]: until a clip's bytes are in the files that it makes; it says nothing.
recipe() {
    local commands running status=0
    commands=$(block "shell: $1" | sed "${3:-}")
    [ -n "$commands" ] || { echo "no block '$1' on the page"; return 1; }
    echo "$commands"
    # One signal: of a second one ffmpeg dies at once. The last command takes bash's place, unless it is redirected.
    local to=(--foreground)
    case $commands in *' >'*) to=() ;; esac
    timeout "${to[@]}" -k 5 -s INT "${longest:-20}" bash -c "$commands" </dev/null >said 2>&1 &
    running=$!
    # shellcheck disable=SC2086  # a pattern
    until [ "$(cat $2 2>/dev/null | wc -c)" -ge "$(stat -c %s "$clip")" ] || ! kill -0 "$running" 2>/dev/null; do
        sleep 0.2
    done
    # Its time is up. Where it has ended by itself its status tells.
    kill -ALRM "$running" || true
    wait "$running" || status=$?
    cat said
    [ "$status" -eq 124 ] && [ ! -s said ]
}

same_pictures() { "$source_directory/tests/recipes/same_pictures.py" "$clip" "$@"; }

# Times in files: in each of them they rise, and over all of them they go as the clock does.
times_are_right() {
    local file
    for file in "$@"; do
        echo begin
        ffprobe -v error -show_entries packet=dts_time -of csv=p=0 "$file" | tr -d , || exit 1
    done | awk '
        NF == 0 { next }
        $1 == "begin" { fresh = 1; next }
        fresh { fresh = 0; last = $1; next }
        $1 <= last { print "not behind the one before:", $1; wrong = 1 }
        { time += $1 - last; last = $1; ++steps }
        END { rate = steps / time; print steps, "steps,", rate, "a second"
              exit wrong || rate < 24 || rate > 36 }'
}

# The time at the head of the lines that ffplay draws one over the other.
clock_runs() { [ "$(tr '\r' '\n' <said | grep -aE '^ *[0-9.]+ M-V:' | sort -u -k 1,1 | wc -l)" -gt 20 ]; }
# plays COMMANDS: of which the last is ffplay.
plays() {
    echo "$1"
    timeout -s INT 40 bash -c "$1" </dev/null >said 2>&1 &
    local running=$! status=0
    until_true 30 clock_runs || status=1
    # Its time is up, and its status that of the signal; whether it played is in what it said.
    kill -ALRM "$running" || true
    wait "$running" || true
    tr '\r' '\n' <said | tail -n 5
    grep -q 'Stream #0:0: Video: h264 (Main), yuv420p(progressive), 1280x720' said
    return "$status"
}

PlayerShowsIt() {
    start_all
    video_comes
    plays "$(block "shell: play")"
}

PlayerTakesTheStreamFromCurl() {
    start_all
    video_comes
    plays "$(sed -n 's/^    \(curl .* | ffplay .*\)/\1/p' "$source_directory/docs/monitor.md")"
}

MetricsAreWhatPrometheusReads() {
    start_all
    video_comes
    until_true 30 state_has '"camera":"present"'
    curl -s -D answer http://127.0.0.1:8080/metrics >metrics
    tr -d '\r' <answer | grep -qix 'content-type: text/plain; version=0.0.4.*'
    "$source_directory/tests/recipes/read_metrics.py" metrics
}

FilesHaveThePicturesAndTheirTimes() {
    start_all
    video_comes
    # A file for each second: each begins with a key frame, and nothing is missing between two.
    recipe files 'camera-2*.mp4' 's/-segment_time 600/-segment_time 1/'
    local file count=0
    for file in camera-2*.mp4; do
        ffmpeg -nostdin -v error -y -i "$file" -c copy -bsf:v h264_mp4toannexb -f h264 one.h264 2>/dev/null
        same_pictures one.h264 1
        cat one.h264 >>arrived.h264
        count=$((count + 1))
    done
    [ "$count" -ge 2 ]
    # The last file is cut off where the recipe was: a few pictures alone have no rate.
    times_are_right camera-2*.mp4
    same_pictures arrived.h264
}

BytesAreTheCameras() {
    start_all
    video_comes
    recipe bytes camera.h264
    same_pictures camera.h264
}

RtmpServerGetsThePictures() {
    start_all
    far_end -listen 1 -i rtmp://127.0.0.1:1935/live/camera
    until_true 10 listens 1935
    video_comes
    recipe rtmp arrived.h264
    await_far_end
    same_pictures arrived.h264
    times_are_right arrived.ts
}

RtspServerGetsThePictures() {
    start_all
    far_end -rtsp_flags listen -i rtsp://127.0.0.1:8554/camera
    until_true 10 listens 8554
    video_comes
    recipe rtsp arrived.h264
    await_far_end
    same_pictures arrived.h264
    times_are_right arrived.ts
}

SrtServerGetsThePictures() {
    start_all
    far_end -i 'srt://127.0.0.1:8890?mode=listener'
    until_true 10 listens 8890
    video_comes
    recipe srt arrived.h264
    await_far_end
    same_pictures arrived.h264
    times_are_right arrived.ts
}

HlsDirectoryHasThePictures() {
    start_all
    video_comes
    recipe hls 'hls/*.ts'
    ffmpeg -nostdin -v fatal -i hls/live.m3u8 -c copy -f h264 arrived.h264
    same_pictures arrived.h264
    times_are_right hls/live.m3u8
}

GstreamerSendsThePictures() {
    start_all
    video_comes
    # It ends when nothing has come for that many microseconds.
    far_end -i 'udp://127.0.0.1:5600?timeout=6000000'
    until_true 10 listens 5600
    recipe gstreamer arrived.h264
    await_far_end
    same_pictures arrived.h264
    times_are_right arrived.ts
}

TokenIsTakenFromItsFile() {
    echo 0123456789abcdef >token
    start_all --token-file "$home/token"
    until_true 30 test -e board/run/vantarel/video_width
    recipe token camera.h264
    same_pictures camera.h264
}

# What the page says of the others' token, put where it says.
TokenIsTakenByTheOthersToo() {
    echo 0123456789abcdef >token
    start_all --token-file "$home/token"
    until_true 30 test -e board/run/vantarel/video_width
    local form
    # shellcheck disable=SC2016  # the page's own marks
    form=$(tr '\n' ' ' <"$page" | grep -o '`-headers [^`]*`' | tr -d '`' |
        sed 's/TOKEN/0123456789abcdef/; s/\\/\\\\/g')
    recipe hls 'hls/*.ts' "s|-i http|$form -i http|"
    ffmpeg -nostdin -v fatal -i hls/live.m3u8 -c copy -f h264 arrived.h264
    same_pictures arrived.h264
    # shellcheck disable=SC2016  # the page's own marks
    form=$(tr '\n' ' ' <"$page" | grep -o "\`'extra-headers=[^\`]*\`" | tr -d '`' |
        sed 's/TOKEN/0123456789abcdef/; s/\\/\\\\/g')
    far_end -i 'udp://127.0.0.1:5600?timeout=6000000'
    until_true 10 listens 5600
    rm arrived.h264
    recipe gstreamer arrived.h264 "s|souphttpsrc |&$form |"
    await_far_end
    same_pictures arrived.h264
}

# The receiver ends and another one begins: the recipe waits, and goes on with a key frame.
RecipeOutlivesTheReceiver() {
    start_all
    video_comes
    local commands
    commands=$(block "shell: bytes")
    timeout -s INT 25 bash -c "$commands" </dev/null &
    local running=$!
    sleep 3
    kill "${started[0]}"
    wait "${started[0]}" || true # however it ends
    local before
    before=$(stat -c %s camera.h264)
    [ "$before" -gt 10000 ]
    start_camera
    until_true 15 bash -c "[ \$(stat -c %s camera.h264) -gt $((before + 10000)) ]"
    kill -0 "$running"
    kill "$running"
    wait "$running" || true # however it ends
}

# begun_early NAME SECONDS: the recipe is there for a while before camera and receiver are, and delivers when they come.
begun_early() {
    start_monitor
    until_true 10 state_has '"receiver":"waiting"'
    (
        until_true 10 state_has '"viewers":1'
        sleep "$2"
        [ ! -s arrived.h264 ] || touch too-early
        camera
    ) &
    started+=($!)
    longest=$((20 + $2)) recipe "$1" arrived.h264
    [ ! -e too-early ]
}

RecipeThatIsBegunBeforeTheCameraDeliversWhenItComes() {
    far_end -listen 1 -i rtmp://127.0.0.1:1935/live/camera
    until_true 10 listens 1935
    begun_early rtmp 4
    await_far_end
    same_pictures arrived.h264
    times_are_right arrived.ts
}

GstreamerThatIsBegunBeforeTheCameraDeliversWhenItComes() {
    far_end -i 'udp://127.0.0.1:5600?timeout=16000000'
    until_true 10 listens 5600
    begun_early gstreamer 4
    await_far_end
    same_pictures arrived.h264
    times_are_right arrived.ts
}

UnitIsOneForSystemd() {
    block "unit: camera-rtmp.service" >camera-rtmp.service
    [ "$(wc -l <camera-rtmp.service)" -gt 10 ]
    systemd-analyze verify --man=no ./camera-rtmp.service 2>said || { cat said; return 1; }
    cat said
    if grep camera-rtmp said; then return 1; fi
    # It is the recipe.
    local line
    for line in rtmp service; do
        case $line in
            rtmp) block "shell: rtmp" ;;
            service) sed -n '/^ExecStart/,/^Restart=/p' camera-rtmp.service | grep -v '^Restart=' ;;
        esac | tr -d '\\\n' | sed 's|ExecStart=/usr/bin/||; s| -nostdin||' | tr -s ' ' >"$line.words"
    done
    cmp rtmp.words service.words
}

BrokerHasTheTelemetry() {
    mkdir -p board
    printf 'listener 1883 127.0.0.1\nallow_anonymous true\nuser root\n' >mosquitto.conf
    mosquitto -c mosquitto.conf >broker.log 2>&1 &
    started+=($!)
    until_true 10 listens 1883
    start_camera
    bash -c "exec $(block "shell: mqtt")" >monitor.log 2>&1 &
    started+=($!)
    until_true 30 state_has '"camera":"present"'
    # It would listen for ever, so the time-out's status is the right one.
    bash -c "timeout 3 $(block "shell: subscribe")" >told || true
    cat told
    grep -qx 'stage/camera/presence online' told
    grep -q '^stage/camera/state {.*"battery_level":"[0-9]*".*}$' told
}

# It is a line that apt-get takes, and each program of the page is of one of its packages.
InstallLineHasWhatThePageNeeds() {
    local line program place package
    line=$(block "shell: install")
    bash -c "sudo() { \"\$1\" -s \"\${@:2}\"; }; $line" >said 2>&1 || { cat said; return 1; }
    for program in ffplay ffmpeg curl gst-launch-1.0 mosquitto_sub souphttpsrc h264parse mpegtsmux udpsink; do
        place=$(command -v "$program" || gst-inspect-1.0 "$program" | sed -n 's/^ *Filename *//p')
        # The linker may name a plugin by way of /lib.
        package=$(dpkg -S "*${place#/usr}" | sed 's/:.*//')
        echo "$program: $place of $package"
        grep -qE "(^| )$package( |\$)" <<<"$line"
    done
}

# The first of them: what the others need.
Clip() { "$source_directory/scripts/make-clip.sh" "$clip" 1280x720 90 1; }

"$2"
