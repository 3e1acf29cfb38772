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

tell TheSystemIsUp AptInstallsThePackagesWithWhatTheyNeed ThePackagesBringTheirPages TheProgramsTellTheirOptions \
    TheCheckSaysThatThisIsNoRaspberryPi TheReceiverRefusesThisBoard TheSimulatorPlaysToTheInstalledReceiver \
    PurgingLeavesNothingBehind
