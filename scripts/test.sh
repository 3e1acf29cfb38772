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

need_packages "${build_packages[@]}" "${test_packages[@]}" "${video_packages[@]}"
case "$preset" in
    arm64 | armhf)
        need_packages "${cross_packages[@]}"
        scripts/make-sysroot.sh "$preset"
        ;;
esac

cmake --preset "$preset" -DRECEIVER_TESTS=ON
cmake --build --preset "$preset"

report=build/$preset/tests.xml
rm -f "$report"
status=0
# Most tests wait more than they work.
ctest --preset "$preset" -j "$((2 * $(nproc)))" --output-junit "$PWD/$report" || status=$?
print_counts "$report" || status=1
exit "$status"
