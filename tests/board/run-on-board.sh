#!/usr/bin/env bash
# Runs a program of the arm64 build on a virtual board of its own: run-on-board.sh PROGRAM ARGUMENTS...
# The program's output and exit status are this command's. A list of tests needs no board.
# BOARD_CLOCK=wall gives it this machine's clock, see below. BOARD_CYCLES of this environment is handed on.
set -euo pipefail
program=$(realpath "$1")
shift
build=${program%/arm64/*}
here=$(dirname "$(realpath "$0")")

for argument in "$@"; do
    if [ "$argument" = --gtest_list_tests ]; then
        exec qemu-aarch64-static -L "$build/sysroot/arm64" "$program" "$@"
    fi
done

# The board's clock counts the instructions that it has carried out, 500 million a second - fewer than any Raspberry Pi
# does - and leaps to the next timer while it has nothing to do: other work on this machine slows a test down, but
# changes none, and nobody waits for a timeout. One processor works at a time. By the wall's clock both do.
case "${BOARD_CLOCK:-instructions}" in
    instructions) clock=(-icount "shift=1,sleep=off" -rtc clock=vm) ;;
    wall) clock=() ;;
    *) echo "BOARD_CLOCK is instructions or wall"; exit 2 ;;
esac

mkdir -p "$build/board-runs"
run=$(mktemp -d "$build/board-runs/XXXXXX")
{
    [ -z "${BOARD_CYCLES:-}" ] || printf 'export BOARD_CYCLES=%q\n' "$BOARD_CYCLES"
    printf 'exec %q' "/mnt/build/${program#"$build/arm64/"}"
    printf ' %q' "$@"
    echo
} >"$run/command"

# Longer than any run of `ctest`; 100 cycles by hand take a quarter of an hour.
timeout 3000 "$here/guest/board.sh" "$build/board" "${clock[@]}" -dtb "$build/board/board.dtb" \
    -append "console=ttyAMA0 loglevel=5 oops=panic panic=-1 rdinit=/init" -serial "file:$run/console" \
    -virtfs "local,path=$build/arm64,mount_tag=build,security_model=none,readonly=on" \
    -virtfs "local,path=$run,mount_tag=run,security_model=none" </dev/null || true

cat "$run/output" 2>/dev/null || true
if [ ! -s "$run/status" ]; then
    echo "The board ended before the program did; the end of its console:"
    tail -n 40 "$run/console"
    exit 1
fi
status=$(cat "$run/status")
if grep -E '(WARNING|BUG|Oops): ' "$run/console"; then
    echo "The kernel has complained."
    status=1
fi
if [ "$status" -eq 0 ]; then
    rm -rf "$run"
else
    echo "The run's files are in $run"
fi
exit "$status"
