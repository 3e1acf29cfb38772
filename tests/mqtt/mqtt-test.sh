#!/usr/bin/env bash
# receiver-monitor and a real MQTT broker: mqtt-test.sh MONITOR TEST, one of the functions below that begin with a
# capital. In a network of their own.
set -euo pipefail
# shellcheck source=tests/until-true.sh
. "$(dirname "$(realpath "$0")")/../until-true.sh"
PATH=$PATH:/usr/sbin
monitor=$1
home=$(mktemp -d)
broker='' watcher=''
finish() {
    local pid
    # A test that passed has ended them.
    for pid in $broker $watcher; do
        kill -9 "$pid" 2>/dev/null || true
    done
    wait
    rm -rf "$home"
}
trap finish EXIT

start_broker() {
    if [ ! -e "$home/mosquitto.conf" ]; then
        printf 'listener 1883 127.0.0.1\nallow_anonymous true\nuser root\n' >"$home/mosquitto.conf"
    fi
    mosquitto -c "$home/mosquitto.conf" >"$home/broker.log" 2>&1 &
    broker=$!
    local i
    for i in $(seq 100); do
        if (: <>/dev/tcp/127.0.0.1/1883) 2>/dev/null; then return 0; fi
        sleep 0.05
    done
    echo "no broker:" "$i" && cat "$home/broker.log"
    return 1
}
stop_broker() {
    kill "$broker"
    wait "$broker" || true # however it ends
    broker=
}
start_monitor() {
    "$monitor" --listen 127.0.0.1:8080 --mqtt-host 127.0.0.1 "$@" >"$home/monitor.log" 2>&1 &
    watcher=$!
    until_true 10 curl -sf -o "$home/state" http://127.0.0.1:8080/api/state
}
# The retained message of a topic; nothing where there is none, or no broker.
retained() {
    mosquitto_sub -h 127.0.0.1 -t "$1" -C 1 -W 2 "${credentials[@]}" 2>/dev/null || true
}
credentials=()
retains() {
    [ "$(retained "$1")" = "$2" ]
}
state_has() {
    retained camera/state | grep -qF -- "$1"
}
# A status record of that yaw, 0 to 127.
report() {
    local zeros
    zeros=$(printf '\\x00%.0s' $(seq 33))
    # shellcheck disable=SC2059  # the bytes are the format
    printf "\\x06\\x00\\x01\\x$(printf %02x "$1")$zeros" >/dev/udp/127.0.0.1/5000
}
StateIsRetainedAsTheApiHasIt() {
    start_broker
    start_monitor
    until_true 5 retains camera/presence online
    report 17
    until_true 5 state_has '"yaw":"17"'
    until_true 5 state_has '"receiver":"present"'
    retained camera/state | python3 -c 'import json, sys; assert json.load(sys.stdin)["yaw"] == "17"'
}

ChangesAreAtMostTwoASecond() {
    start_broker
    start_monitor
    until_true 5 retains camera/presence online
    mosquitto_sub -h 127.0.0.1 -t camera/state >"$home/states" &
    local listener=$! i count begun=$SECONDS
    until_true 10 test -s "$home/states"
    for i in $(seq 40); do
        report "$i"
        sleep 0.1
    done
    until_true 5 grep -qF '"yaw":"40"' "$home/states"
    kill "$listener"
    count=$(wc -l <"$home/states")
    echo "$count states"
    [ "$count" -ge 5 ] && [ "$count" -le $((2 * (SECONDS - begun + 1) + 1)) ]
}

TopicIsTheOneThatIsGiven() {
    start_broker
    start_monitor --mqtt-topic stage/left/camera
    until_true 5 retains stage/left/camera/presence online
    [ -z "$(retained camera/presence)" ]
}

LastWillTellsOfAMonitorThatIsKilled() {
    start_broker
    start_monitor
    until_true 5 retains camera/presence online
    kill -9 "$watcher"
    until_true 20 retains camera/presence offline
}

MonitorThatEndsSaysSo() {
    start_broker
    start_monitor
    until_true 5 retains camera/presence online
    kill "$watcher"
    wait "$watcher"
    watcher=
    retains camera/presence offline
}

BrokerThatComesLaterOrAgainIsFound() {
    start_monitor
    sleep 1
    start_broker
    until_true 15 retains camera/presence online
    stop_broker
    sleep 1
    report 5
    start_broker
    until_true 20 retains camera/presence online
    until_true 5 state_has '"yaw":"5"'
}

# Also where nothing has changed since: a broker that keeps nothing has forgotten all.
BrokerThatForgotIsToldAll() {
    start_broker
    start_monitor
    report 5
    until_true 20 state_has '"receiver":"lost"'
    sleep 1
    stop_broker
    start_broker
    until_true 20 state_has '"yaw":"5"'
}

PasswordOpensTheBrokerAndAWrongOneDoesNot() {
    printf 'listener 1883 127.0.0.1\nallow_anonymous false\nuser root\npassword_file %s\n' "$home/passwords" \
        >"$home/mosquitto.conf"
    mosquitto_passwd -b -c "$home/passwords" monitor right
    credentials=(-u monitor -P right)
    echo wrong >"$home/password"
    start_broker
    start_monitor --mqtt-user monitor --mqtt-password-file "$home/password"
    sleep 2
    [ -z "$(retained camera/presence)" ]
    grep -q 'not authori[sz]ed' "$home/broker.log"
    # The rest of the monitor minds nothing of it.
    curl -sf http://127.0.0.1:8080/healthz
    kill "$watcher"
    wait "$watcher"
    echo right >"$home/password"
    start_monitor --mqtt-user monitor --mqtt-password-file "$home/password"
    until_true 5 retains camera/presence online
}

# It takes connections and never answers: everything else goes on, and the monitor ends when it is told to.
SilentBrokerStopsNothing() {
    python3 -c '
import socket, time
s = socket.create_server(("127.0.0.1", 1883)); c = s.accept(); time.sleep(60)' &
    broker=$!
    until_true 5 bash -c 'ss -ltn | grep -q :1883'
    start_monitor
    report 9
    sleep 1
    curl -sf http://127.0.0.1:8080/api/state | grep -qF '"yaw":"9"'
    local begun=$SECONDS
    kill "$watcher"
    wait "$watcher"
    watcher=
    [ $((SECONDS - begun)) -le 4 ]
}

WithoutAHostThereIsNoBroker() {
    start_broker
    "$monitor" --listen 127.0.0.1:8080 >"$home/monitor.log" 2>&1 &
    watcher=$!
    until_true 10 curl -sf http://127.0.0.1:8080/healthz
    sleep 1
    mosquitto_pub -h 127.0.0.1 -t other/topic -m something -r
    retains other/topic something
    [ -z "$(retained camera/presence)" ]
    # Nobody but the three of these lines.
    [ "$(grep -c 'New client connected' "$home/broker.log")" -eq 3 ]
    curl -sf http://127.0.0.1:8080/healthz
}

WrongOptionsAreNamed() {
    local words status
    for words in "--mqtt-port 0" "--mqtt-port 1x" "--mqtt-topic a/#" "--mqtt-topic a/" "--mqtt-password-file /dev/null"; do
        status=0
        # shellcheck disable=SC2086  # two words
        "$monitor" --mqtt-host 127.0.0.1 $words >"$home/said" 2>&1 || status=$?
        [ "$status" -eq 2 ]
        grep -qF "is no value of ${words% *}" "$home/said"
    done
}

"$2"
