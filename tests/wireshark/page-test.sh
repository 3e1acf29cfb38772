#!/usr/bin/env bash
# docs/wireshark.md is true: page-test.sh TEST runs its commands as a user would.
set -euo pipefail
source_directory=$(dirname "$(dirname "$(dirname "$(realpath "$0")")")")
page=$source_directory/docs/wireshark.md
test_home=$(mktemp -d)
trap 'rm -rf "$test_home"' EXIT
# shellcheck source=tests/until-true.sh
. "$source_directory/tests/until-true.sh"
export HOME=$test_home LC_ALL=C.UTF-8
unset XDG_CONFIG_HOME

# What a user's machine would ask for: here the packages are installed, and the user may do everything.
sudo() {
    if [ "$1" != apt-get ]; then "$@"; fi
}

# The commands behind a comment of the page.
block() {
    awk -v mark="<!-- shell: $1 -->" '$0 == mark {seen = 1} seen && /^```$/ {exit} seen && inside {print}
        seen && /^```sh$/ {inside = 1}' "$page"
}

run_block() {
    local commands
    commands=$(block "$1")
    [ -n "$commands" ] || { echo "no block '$1' on the page"; return 1; }
    echo "$commands"
    eval "$commands"
}

install_plugin() {
    cd "$source_directory"
    run_block install
    cd "$test_home"
}

# The parts are loaded as plugins as well, and must not mind.
InstalledPluginIsLoadedWithoutAWord() {
    install_plugin
    tshark -G fields >all-fields 2>said
    cat said
    if grep -i lua said; then return 1; fi
    [ "$(grep -c -P '^P\t.*\tvantarel_' all-fields)" = 3 ]
}

EachFilterOfThePageIsThere() {
    install_plugin
    tshark -G fields 2>/dev/null | cut -f 3 | sort -u >known
    grep -o 'vantarel[._][a-z0-9_.]*[a-z0-9]' "$page" | grep -v -e '\.lua$' | sort -u >named
    [ "$(wc -l <named)" -gt 30 ]
    comm -13 known named >unknown
    cat unknown
    [ ! -s unknown ]
}

# Every warning of the plugin is explained.
EachMarkIsOnThePage() {
    grep -oh 'warning("[a-z0-9_.]*"' "$source_directory"/tools/wireshark/vantarel/*.lua | cut -d '"' -f 2 | sort -u >"$test_home/marks"
    [ "$(wc -l <"$test_home/marks")" -gt 15 ]
    local mark missing=0
    while read -r mark; do
        grep -qF "\`vantarel.$mark\`" "$page" || { echo "not on the page: $mark"; missing=1; }
    done <"$test_home/marks"
    return "$missing"
}

both_are_captured() {
    # Nobody listens there; the next one may be told so, and is captured all the same.
    printf '\x06\x00\x01\x84\x03\x6A\xFF\x0C\x00' >/dev/udp/127.0.0.1/5000 || true
    printf '\x55\x0E\x04\x66\x02\x01\xDE\x2F\x40\x02\x02\x01\x04\x32' >/dev/udp/127.0.0.1/6000 || true
    # The end of the file may be half a packet.
    tshark -r reports.pcapng -Y 'udp and not icmp' -T fields -e udp.dstport >ports 2>/dev/null || true
    grep -q 5000 ports && grep -q 6000 ports
}

# In a network of its own: the loopback has nobody else's datagrams.
ReportsAreCapturedAsThePageSays() {
    install_plugin
    run_block capture >captured 2>&1 &
    local capture=$! capturing
    until_true 20 test -s reports.pcapng
    # Whoever has only just begun to capture may miss the first: they are sent until both are in the file.
    until_true 20 both_are_captured
    capturing=$(pgrep -P "$capture" dumpcap || echo "$capture")
    kill -INT "$capturing"
    wait "$capture" || true # what it says of its end is not the page's
    cat captured
    run_block read | tee shown
    grep -q 'status record: yaw 900, pitch -150, roll 12' shown
    grep -q -P '\t900\t' shown
    grep -q 'should be 37' shown
    tshark -r reports.pcapng -Y vantarel_packet | grep -q 'to the camera: record start'
}

"$1"
