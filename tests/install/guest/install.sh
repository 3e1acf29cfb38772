# shellcheck shell=sh
# The first start of the board: a system that has never seen the receiver, and its installation.
# shellcheck source=tests/install/guest/story.sh
. /mnt/run/story.sh
# shellcheck source=tests/install/guest/packages.sh
. /mnt/run/packages.sh
# shellcheck source=tests/install/guest/service.sh
. /mnt/run/service.sh
export PACKAGES=/mnt/run/packages

TheSystemIsUp() {
    within 60 system_is_running
    apt_get update
    inventory >"$kept/before"
}

InstallingStartsTheService() {
    within 20 is ActiveState active
    is UnitFileState enabled
    within 10 run_says 'Gadget init done'
}

TheCheckFindsNothingWrong() {
    within 20 run_says 'Gadget init done'
    camera-usb-receiver-check
}

TheReceiverTellsItsOptions() {
    fails 1 camera-usb-receiver --help >"$notes/help" 2>&1
    grep -q -e '--dst-host' "$notes/help"
}

tell TheSystemIsUp AptInstallsThePackagesWithWhatTheyNeed InstallingStartsTheService TheCheckFindsNothingWrong \
    ThePackagesBringTheirPages TheProgramsTellTheirOptions TheReceiverTellsItsOptions TheSystemIsStillWell
