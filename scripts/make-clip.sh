#!/usr/bin/env bash
# Makes an H.264 test clip with a real encoder: scripts/make-clip.sh FILE WIDTHxHEIGHT FRAMES SLICES [x264 options] [filter]
# The picture is ffmpeg's moving test pattern with a frame counter, through ffmpeg's filter if one is given; the
# stream is a plain byte stream with the parameter sets ahead of every key frame, as the camera sends it.
set -euo pipefail

file=$1 size=$2 frames=$3 slices=$4 extra=${5:-} filter=${6:-null}
[ ! -s "$file" ] || exit 0

mkdir -p "$(dirname "$file")"
# Written beside its place and moved there: a clip that was interrupted is not taken for a clip.
ffmpeg -nostdin -v error -y -f lavfi -i "testsrc2=size=$size:rate=30" -vf "$filter" -frames:v "$frames" \
    -pix_fmt yuv420p -c:v libx264 -preset superfast -profile:v main -g 30 -bf 0 \
    -x264-params "slices=$slices:repeat-headers=1:keyint=30:min-keyint=30:scenecut=0${extra:+:$extra}" \
    -f h264 "$file.part"
mv "$file.part" "$file"
