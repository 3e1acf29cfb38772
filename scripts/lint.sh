#!/usr/bin/env bash
# Format, lint and the second compiler's warnings: scripts/lint.sh. Changes nothing.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
need_packages "${build_packages[@]}" "${monitor_packages[@]}" "${test_packages[@]}" "${lint_packages[@]}" git

step() { printf '\n== %s (%s s)\n' "$1" "$SECONDS"; }

step "Format"
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

step "Shell scripts"
git grep -lE -e '^#!/.*sh$' -e '^# shellcheck shell=' | xargs shellcheck -x

step "Manual pages"
mandoc -T lint -W warning man/*
for page in man/*; do
    warnings=$(man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || { echo "$warnings"; exit 1; }
done

# Each of the service's relaxations costs; more of them than these would be an oversight.
step "What the service may do"
systemd-analyze security --offline=true --threshold=40 debian/camera-usb-receiver.service | tail -n 1

# A file and its headers are one; nothing may include itself round a circle of others. tsort names it.
step "Includes"
git grep -E '^#include "' -- 'src/*.cpp' 'src/*.h' |
    sed -E 's|^src/([^:]*)\.[a-z]*:#include "([^"]*)\.h"$|\1 \2|; s|-internal||g' |
    awk '$1 != $2' | tsort >/dev/null

step "One definition of each name"
cmake --preset odr -DRECEIVER_MONITOR_PAGE_BUILD=OFF >/dev/null
cmake --build --preset odr -- --quiet

# clang-tidy reports the second compiler's warnings as well; this shows that it makes the program, too.
step "clang"
cmake --preset clang -DRECEIVER_MONITOR_PAGE_BUILD=OFF >/dev/null
cmake --build --preset clang --target camera-usb-receiver -- --quiet

step "clang-tidy, with clang's warnings"
tidy_one() {
    local checks=()
    # Each expectation of a test forks the analyzer's paths, which takes longer than all else; and
    # what it looks for the sanitizers see when the tests run, and with them the simulator.
    case "$1" in
        src/*) ;;
        *) checks=(--checks='-clang-analyzer-*') ;;
    esac
    # Standard error only counts the warnings of system headers; findings are on standard output.
    clang-tidy -p build/clang --quiet "${checks[@]}" "$1" 2>/dev/null || { echo "clang-tidy: $1"; return 1; }
}
export -f tidy_one
git ls-files '*.cpp' | xargs -P "$(nproc)" -I{} bash -c 'tidy_one {}'
