# shellcheck shell=bash disable=SC2034  # the lists are for the scripts that source this
# Sourced by the scripts: installs the Debian packages that are missing, and says so.

# need_packages PACKAGE...
need_packages() {
    local missing=() package
    for package in "$@"; do
        # "installed" at the end of the status: a removed package whose settings stay does not count.
        case "$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null)" in
            *" installed") ;;
            *) missing+=("$package") ;;
        esac
    done
    [ "${#missing[@]}" -gt 0 ] || return 0

    echo "Installing what is missing: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "This needs root, and there is no sudo: apt-get install ${missing[*]}" >&2
            return 1
        fi
        as_root=(sudo)
    fi
    # Two at once wait for each other.
    local wait_for_lock=(-o DPkg::Lock::Timeout=300)
    "${as_root[@]}" apt-get "${wait_for_lock[@]}" update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get "${wait_for_lock[@]}" install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# For the live page and its tests. npm may be another's than Debian's, whose package would not stand beside it.
need_npm() {
    command -v npm >/dev/null || need_packages nodejs npm
}

# What the program is built from, what the tests need on top (a network of their own among it), and what only the checks use.
build_packages=(g++ cmake ninja-build pkg-config libcjson-dev libinih-dev
                libusb-1.0-0-dev)
# What receiver-monitor and receiver-ctl are built from on top.
monitor_packages=(libavformat-dev libcivetweb-dev libcurl4-openssl-dev libmosquitto-dev)
video_packages=(ffmpeg)
test_packages=(libgtest-dev libgmock-dev libbenchmark-dev iproute2)
lint_packages=(clang clang-format clang-tidy shellcheck man-db mandoc systemd)
# The fuzzers: the library, what reads their coverage, and the clips that their first inputs are cut from.
fuzz_packages=(clang libclang-rt-14-dev llvm)
# The cross builds: the compilers, and what runs their tests here; the sysroot's own list is of their
# architecture.
cross_packages=(g++-aarch64-linux-gnu g++-arm-linux-gnueabihf mmdebstrap qemu-user-static)
sysroot_packages=(libc6-dev libcjson-dev libinih-dev libusb-1.0-0-dev libgtest-dev libgmock-dev
                  libbenchmark-dev "${monitor_packages[@]}")
# The virtual board: its root is unpacked, its kernel is emulated.
board_packages=(mmdebstrap kmod libarchive-tools device-tree-compiler qemu-system-arm qemu-user-static)
# Roots in which our packages are installed: systems that boot, with a card for /boot.
install_packages=(arch-test dosfstools dpkg-dev e2fsprogs fakeroot fdisk iproute2 qemu-user-static uidmap)
# The soak's plot.
soak_packages=(gnuplot-nox)
# Debian packages of our own, and what checks them.
package_packages=(debhelper lintian)
# What reads captures, for the tests of the Wireshark plugin.
wireshark_packages=(tshark)
# A broker, for the tests of the monitor's telemetry.
mqtt_test_packages=(curl iproute2 mosquitto mosquitto-clients python3)
# What the recipes for the live video are made of, and what tests them.
recipe_packages=(curl ffmpeg gstreamer1.0-plugins-bad gstreamer1.0-plugins-base gstreamer1.0-plugins-good
                 gstreamer1.0-tools iproute2 mosquitto mosquitto-clients python3 python3-prometheus-client
                 systemd)
# The browser that the tests of receiver-monitor's page drive.
page_test_packages=(chromium ffmpeg iproute2)
