#!/usr/bin/env bash
# Lets the receiver work for long on the simulated board: scripts/soak.sh --hours H [--sample SECONDS] [--build DIR]
# Half of the time is one process's; in the other half it ends in every way in turn and is started again. Leaves
# samples.tsv, summary.txt and soak.png in build/soak. Fails where memory or descriptors grow, a thread is missing or
# one too many, or a video part or a command is lost. DIR is a build that is ready (otherwise build/release is made).
# Other receivers on this machine are not met: it has a network and shared memory of its own.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/own-names.sh
. scripts/lib/own-names.sh

hours='' sample=5 build=''
while [ $# -gt 0 ]; do
    case "$1" in
        --hours) hours=${2:?--hours needs a number}; shift 2 ;;
        --sample) sample=${2:?--sample needs a number}; shift 2 ;;
        --build) build=${2:?--build needs a folder}; shift 2 ;;
        *) sed -n '2,6s/^# //p' "scripts/${0##*/}"; exit 2 ;;
    esac
done
for number in "$hours" "$sample"; do
    if ! [[ $number =~ ^[0-9]*\.?[0-9]+$ ]] || [[ $number =~ ^[0.]+$ ]]; then
        echo "--hours and --sample take a number above 0; fractions are allowed" >&2
        exit 2
    fi
done
need_packages "${build_packages[@]}" "${test_packages[@]}" "${video_packages[@]}" "${soak_packages[@]}"

if [ -z "$build" ]; then
    build=build/release
    cmake --preset release -DRECEIVER_TESTS=ON >/dev/null
    cmake --build --preset release --target receiver-soak camera-usb-receiver gadgetfs-sim
fi

output=build/soak
clip=$output/ten-seconds-8-mbit.h264
mkdir -p "$output"
rm -f "$output/samples.tsv" "$output/summary.txt" "$output/soak.png"
scripts/make-clip.sh "$clip" 1920x1080 300 4 "bitrate=8000:vbv-maxrate=8000:vbv-bufsize=8000"

seconds=$(awk -v hours="$hours" 'BEGIN { print hours * 3600 }')
status=0
"${own_names[@]}" "$build/tests/soak/receiver-soak" --seconds "$seconds" --sample "$sample" \
    --clip "$clip" --output "$output" || status=$?
gnuplot -c tests/soak/plot.gp "$output/samples.tsv" "$output/soak.png"
echo "Samples, table and plot: $output/samples.tsv, summary.txt, soak.png"
exit "$status"
