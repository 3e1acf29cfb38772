#!/usr/bin/env bash
# Builds everything and runs every suite: scripts/test.sh [--preset release|asan|debug]
# Ends with one line, "N passed, N failed, N skipped"; the exit status says the same.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

preset=release
while [ $# -gt 0 ]; do
    case "$1" in
        --preset) preset=${2:?--preset needs a name}; shift 2 ;;
        *) sed -n '2,3s/^# //p' "$0"; exit 2 ;;
    esac
done

need_packages "${build_packages[@]}" "${test_packages[@]}" "${video_packages[@]}"

cmake --preset "$preset" -DRECEIVER_TESTS=ON
cmake --build --preset "$preset"

# The counts come from the runner's own report, so that a suite that did not run is not counted.
report=build/$preset/tests.xml
rm -f "$report"
status=0
ctest --preset "$preset" -j "$(nproc)" --output-junit "$PWD/$report" || status=$?

attribute() { sed -n "0,/<testsuite/ s/.*\b$1=\"\([0-9]*\)\".*/\1/p" <(tr '\n\t' '  ' <"$report" | head -c 2000); }
tests=$(attribute tests) failed=$(attribute failures) skipped=$(attribute skipped)
disabled=$(attribute disabled)
skipped=$((skipped + disabled))
passed=$((tests - failed - skipped))
if [ "$passed" -le 0 ]; then
    echo "No test passed" >&2
    status=1
fi
echo "$passed passed, $failed failed, $skipped skipped"
exit "$status"
