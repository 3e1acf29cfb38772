#!/usr/bin/env bash
# Builds everything and runs every suite: scripts/test.sh [--preset release|asan|tsan|debug|arm64|armhf]
# Those for ARM are built by cross compilers, and only their unit tests are run, emulated.
# Ends with one line, "N passed, N failed, N skipped"; the exit status says the same.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/counts.sh
. scripts/lib/counts.sh

preset=release
while [ $# -gt 0 ]; do
    case "$1" in
        --preset) preset=${2:?--preset needs a name}; shift 2 ;;
        *) sed -n '2,4s/^# //p' "scripts/${0##*/}"; exit 2 ;;
    esac
done

need_packages "${build_packages[@]}" "${monitor_packages[@]}" "${test_packages[@]}" "${video_packages[@]}"
options=(-DRECEIVER_TESTS=ON)
case "$preset" in
    arm64 | armhf)
        need_packages "${cross_packages[@]}"
        scripts/make-sysroot.sh "$preset"
        # Its unit tests are sockets and processes, which say nothing new when they are emulated.
        options+=(-DRECEIVER_MONITOR=OFF)
        ;;
    asan | tsan)
        need_packages "${mqtt_test_packages[@]}"
        # Neither the page nor what reads captures is of the code that they watch.
        options+=(-DRECEIVER_MONITOR=ON -DRECEIVER_MONITOR_PAGE_BUILD=OFF)
        ;;
    *)
        need_packages "${wireshark_packages[@]}" "${mqtt_test_packages[@]}" "${recipe_packages[@]}" \
            "${page_test_packages[@]}"
        need_npm
        options+=(-DRECEIVER_MONITOR=ON -DRECEIVER_MONITOR_PAGE_BUILD=ON)
        ;;
esac

cmake --preset "$preset" "${options[@]}"
cmake --build --preset "$preset"

report=build/$preset/tests.xml
rm -f "$report"
status=0
# Most tests wait more than they work.
ctest --preset "$preset" -j "$((3 * $(nproc)))" --output-junit "$PWD/$report" || status=$?
print_counts "$report" || status=1
exit "$status"
