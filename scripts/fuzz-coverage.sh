#!/usr/bin/env bash
# What of src/ the fuzzers' inputs reach: scripts/fuzz-coverage.sh [--tests]
# Replays corpus, regressions and what fuzzing has added; prints a table for each fuzzer, and the lines
# that none reaches. With --tests the unit tests count too, and the list is of what neither reaches.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh

tests=OFF
while [ $# -gt 0 ]; do
    case "$1" in
        --tests) tests=ON; shift ;;
        *) sed -n '2,4s/^# //p' "scripts/${0##*/}"; exit 2 ;;
    esac
done

need_packages "${build_packages[@]}" "${test_packages[@]}" "${video_packages[@]}" "${fuzz_packages[@]}"
build=build/fuzz-coverage profiles=build/fuzz-coverage/profiles
cmake --preset fuzz -B "$build" -DRECEIVER_SANITIZE=OFF -DRECEIVER_TESTS="$tests" \
    -DCMAKE_CXX_FLAGS="-fprofile-instr-generate -fcoverage-mapping" >/dev/null
targets=(fuzz/all)
[ "$tests" = OFF ] || targets+=(tests/unit/all)
cmake --build "$build" --target "${targets[@]}"
mapfile -t fuzzers <"$build/fuzz/fuzzers.txt"
rm -rf "$profiles"
mkdir -p "$profiles"

TMPDIR=$(mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

# Program and library write a profile each, of all their processes together.
merge() { llvm-profdata merge -sparse -o "$profiles/$1.profdata" "$profiles/$1"-*.profraw; }

objects=()
for name in "${fuzzers[@]}"; do
    inputs=()
    for directory in build/fuzz/corpus/"$name" build/fuzz/grown/"$name" fuzz/regressions/"$name"; do
        [ ! -d "$directory" ] || inputs+=("$directory")
    done
    [ "${#inputs[@]}" -gt 0 ] || { echo "No inputs for $name: first scripts/fuzz.sh $name" >&2; exit 1; }
    LLVM_PROFILE_FILE="$profiles/$name-%m.profraw" "$build/fuzz/$name" -runs=0 "${inputs[@]}" \
        >"$profiles/$name.log" 2>&1 || { tail "$profiles/$name.log"; exit 1; }
    merge "$name"
    objects+=("$build/fuzz/$name")
    echo "== $name"
    llvm-cov report "$build/fuzz/$name" -instr-profile="$profiles/$name.profdata" \
        --show-region-summary=0 --show-branch-summary=0 src |
        awk 'NR <= 2 || (/^src\// && $4 != "0.00%")'  # not what is only linked
done

reached_by="fuzzer"
if [ "$tests" = ON ]; then
    reached_by="fuzzer and no unit test"
    LLVM_PROFILE_FILE="$PWD/$profiles/unit-%m.profraw" \
        ctest --test-dir "$build" -R '^unit\.' -j "$(nproc)" --output-on-failure >"$profiles/unit.log" 2>&1 ||
        { tail -n 40 "$profiles/unit.log"; exit 1; }
    merge unit
    for program in "$build"/tests/unit/*_test; do
        objects+=("$program")
    done
fi

llvm-profdata merge -sparse -o "$profiles/all.profdata" "$profiles"/*.profdata
more=()
for object in "${objects[@]:1}"; do
    more+=(-object "$object")
done
llvm-cov export -format=lcov "${objects[0]}" "${more[@]}" -instr-profile="$profiles/all.profdata" src \
    >"$profiles/all.lcov"
echo "== Lines that no $reached_by reaches"
awk -F '[:,]' '
    $1 == "SF" { file = $2; sub(/^.*\/src\//, "src/", file) }
    $1 == "DA" && file ~ /^src\// { lines++; if ($3 == 0) print file ":" $2; else reached++ }
    END { printf "%d of %d lines are reached\n", reached, lines }' "$profiles/all.lcov" |
    while IFS=: read -r file line; do
        if [ -n "$line" ]; then
            printf '%s:%s:%s\n' "$file" "$line" "$(sed -n "${line}p" "$file")"
        else
            echo "$file"
        fi
    done
