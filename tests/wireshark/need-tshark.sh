#!/usr/bin/env bash
# The tests of the Wireshark plugin need tshark: it is installed where it is missing.
set -euo pipefail
# shellcheck source=scripts/lib/packages.sh
. "$(dirname "$(realpath "$0")")/../../scripts/lib/packages.sh"
need_packages "${wireshark_packages[@]}"
tshark --version
