# shellcheck shell=sh
# On a PC, in a folder that is made the root: PACKAGES and CLIP are where they say.
# shellcheck source=tests/install/guest/story.sh
. "$STORY/story.sh"
# shellcheck source=tests/install/guest/packages.sh
. "$STORY/packages.sh"

TheSystemIsUp() {
    apt_get update
    inventory >"$kept/before"
}

TheCheckSaysThatThisIsNoRaspberryPi() {
    fails 1 camera-usb-receiver-check >"$notes/check"
    grep -q '^problem  board: this computer does not say what board it is' "$notes/check"
    grep -q '^problem  service: systemd does not answer' "$notes/check"
    grep -q '^[0-9]* of these points keep the receiver from working' "$notes/check"
}

TheReceiverRefusesThisBoard() {
    fails 1 camera-usb-receiver >"$notes/receiver" 2>&1
    grep -qx 'Board not supported' "$notes/receiver"
}

TheSimulatorPlaysToTheInstalledReceiver() {
    timeout 60 camera-simulator --h264 "$CLIP" --loop --seconds 3 -- /usr/sbin/camera-usb-receiver >"$notes/simulator" 2>&1
    grep -q 'Live stream video resolution changed to 640x480' "$notes/simulator"
    grep -q '^commands refused: 0' "$notes/simulator"
}

TheMonitorBringsItsPages() {
    for page in receiver-monitor receiver-ctl; do
        zcat "/usr/share/man/man1/$page.1.gz" | grep -q '^\.SH EXIT STATUS'
    done
    for page in monitor streaming wireshark; do
        [ -s "/usr/share/doc/camera-usb-receiver-monitor/$page.md" ]
    done
    [ -s /usr/share/bash-completion/completions/receiver-ctl ]
    [ -s "$(echo /usr/lib/*/wireshark/plugins/vantarel.lua)" ]
}

# get PATH: what the monitor answers.
get() {
    perl -MIO::Socket::INET -e '
        my $monitor = IO::Socket::INET->new("127.0.0.1:8080") or die "no monitor";
        print $monitor "GET $ARGV[0] HTTP/1.0\r\nHost: 127.0.0.1:8080\r\n\r\n";
        print <$monitor>' "$1"
}

TheMonitorShowsTheInstalledReceiversCamera() {
    receiver-monitor --run-directory "$notes/board/run/vantarel" >"$notes/monitor" 2>&1 &
    monitor=$!
    mkdir "$notes/board"
    timeout 60 camera-simulator --root "$notes/board" --h264 "$CLIP" --loop --seconds 20 -- /usr/sbin/camera-usb-receiver \
        >"$notes/simulator" 2>&1 &
    simulator=$!
    within 20 camera_is_shown
    receiver-ctl iso 400 --wait
    receiver-ctl status >"$notes/status"
    grep -q '400' "$notes/status"
    get / >"$notes/page"
    head -n 1 "$notes/page" | grep -q ' 200 '
    # Each file that the page names is there.
    sed -nE 's/.*(src|href)="\/?([a-z][^":]*)".*/\2/p' "$notes/page" >"$notes/files"
    grep -q '\.js$' "$notes/files"
    while read -r file; do
        get "/$file" | head -n 1 | grep -q ' 200 '
    done <"$notes/files"
    kill "$monitor"
    wait "$monitor"
    kill "$simulator"
    wait "$simulator" || true # however it ends
}
# By pictures and, which is another road, by reports: before the first of those no command is taken.
camera_is_shown() {
    get /api/state >"$notes/state" &&
        grep -q '"video_width":640' "$notes/state" &&
        grep -q '"receiver":"present"' "$notes/state" &&
        grep -q '"camera":"present"' "$notes/state"
}

tell TheSystemIsUp AptInstallsThePackagesWithWhatTheyNeed ThePackagesBringTheirPages TheProgramsTellTheirOptions \
    TheCheckSaysThatThisIsNoRaspberryPi TheReceiverRefusesThisBoard TheSimulatorPlaysToTheInstalledReceiver \
    TheMonitorBringsItsPages TheMonitorShowsTheInstalledReceiversCamera PurgingLeavesNothingBehind
