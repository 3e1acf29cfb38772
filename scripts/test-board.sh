#!/usr/bin/env bash
# Runs the arm64 receiver on a real kernel with a real USB host: scripts/test-board.sh [TESTS]
# The board is a virtual one, made on the first call; each test runs on a freshly booted one. TESTS is a regular
# expression of their names. Ends with one line, "N passed, N failed, N skipped"; the exit status says the same.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/counts.sh
. scripts/lib/counts.sh

case "${1:-}" in
    -*) sed -n '2,4s/^# //p' "scripts/${0##*/}"; exit 2 ;;
esac

need_packages "${build_packages[@]}" "${cross_packages[@]}" "${board_packages[@]}" "${video_packages[@]}"
scripts/make-sysroot.sh arm64
scripts/make-board.sh

cmake --preset arm64 -DRECEIVER_TESTS=ON
cmake --build --preset arm64 --target board-suite

report=build/arm64/board-tests.xml
rm -f "$report"
status=0
ctest --preset board ${1:+-R "$1"} -j "$(nproc)" --output-junit "$PWD/$report" || status=$?
print_counts "$report" || status=1
exit "$status"
