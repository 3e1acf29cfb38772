#!/usr/bin/env bash
# Runs a fuzzer for a while, or all of them, two at a time: scripts/fuzz.sh TARGET|--all [--seconds N]
# It starts from build/fuzz/corpus, fuzz/regressions and what earlier runs have added to build/fuzz/grown;
# inputs that are findings go to build/fuzz/found. Any finding is a failure: a crash, an expectation that
# does not hold, a leak, more than 5 seconds or 1 GB for one input.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

target="" seconds=60
while [ $# -gt 0 ]; do
    case "$1" in
        --seconds) seconds=${2:?--seconds needs a number}; shift 2 ;;
        --all) target=--all; shift ;;
        -*) sed -n '2,5s/^# //p' "scripts/${0##*/}"; exit 2 ;;
        *) target=$1; shift ;;
    esac
done
[ -n "$target" ] || { sed -n '2,5s/^# //p' "scripts/${0##*/}"; exit 2; }

need_packages "${build_packages[@]}" "${video_packages[@]}" "${fuzz_packages[@]}"
build=build/fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
mapfile -t fuzzers <$build/fuzz/fuzzers.txt

clips=()
for slices in 1 5; do
    for size in 320x240 1920x1080; do
        clips+=("$build/clips/$size-$slices.h264")
        scripts/make-clip.sh "${clips[-1]}" "$size" 3 "$slices"
    done
done
rm -rf "$build/corpus"
"$build/fuzz/make-corpus" "$build/corpus" "${clips[@]}"

# The fuzzers' files are in memory where there is some: they are written thousands of times a second.
memory=/dev/shm
[ -w "$memory" ] || memory=${TMPDIR:-/tmp}
TMPDIR=$(mktemp -d "$memory/receiver-fuzz.XXXXXX")
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
export UBSAN_OPTIONS=print_stacktrace=1

# fuzz_one TARGET: its log goes to build/fuzz/logs.
fuzz_one() {
    local name=$1 inputs=()
    mkdir -p "$build/grown/$name" "$build/found/$name" "$build/logs"
    for inputs_of in "$build/corpus/$name" "fuzz/regressions/$name"; do
        [ ! -d "$inputs_of" ] || inputs+=("$inputs_of")
    done
    "$build/fuzz/$name" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=1024 -print_final_stats=1 \
        -dict="fuzz/$name.dict" -artifact_prefix="$build/found/$name/" \
        "$build/grown/$name" "${inputs[@]}" >"$build/logs/$name.log" 2>&1
}

stat_of() { sed -n "s/^stat::$2: *//p" "$build/logs/$1.log" | tail -n 1; }
edges_of() { sed -nE 's/.* cov: ([0-9]+) .*/\1/p' "$build/logs/$1.log" | tail -n 1; }

if [ "$target" != --all ]; then
    printf '%s\n' "${fuzzers[@]}" | grep -qx -e "$target" || { echo "No fuzzer $target: ${fuzzers[*]}" >&2; exit 2; }
    status=0
    fuzz_one "$target" || status=$?
    [ "$status" -eq 0 ] || tail -n 60 "$build/logs/$target.log"
    echo "$target: $(stat_of "$target" number_of_executed_units) executions, exit status $status"
    exit "$status"
fi

declare -A names=() results=()
# collect_one: waits for the end of any fuzzer that runs.
collect_one() {
    local process status=0
    wait -n -p process || status=$?
    results[${names[$process]}]=$status
    unset "names[$process]"
}
for name in "${fuzzers[@]}"; do
    [ "${#names[@]}" -lt 2 ] || collect_one
    fuzz_one "$name" &
    names[$!]=$name
done
while [ "${#names[@]}" -gt 0 ]; do collect_one; done

passed=0 failed=0
printf '\n%-14s %12s %10s %8s %8s  %s\n' fuzzer executions a-second edges grown result
for name in "${fuzzers[@]}"; do
    result=passed
    if [ "${results[$name]}" -eq 0 ]; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1)) result="FAILED, see $build/logs/$name.log"
    fi
    printf '%-14s %12s %10s %8s %8s  %s\n' "$name" "$(stat_of "$name" number_of_executed_units)" \
        "$(stat_of "$name" average_exec_per_sec)" "$(edges_of "$name")" \
        "$(find "$build/grown/$name" -type f | wc -l)" "$result"
done
echo "$passed passed, $failed failed, 0 skipped"
[ "$failed" -eq 0 ]
