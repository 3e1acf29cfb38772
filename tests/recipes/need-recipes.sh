#!/usr/bin/env bash
# What the recipes of docs/streaming.md are made of is installed where it is missing.
set -euo pipefail
# shellcheck source=scripts/lib/packages.sh
. "$(dirname "$(realpath "$0")")/../../scripts/lib/packages.sh"
need_packages "${recipe_packages[@]}"
ffmpeg -version
