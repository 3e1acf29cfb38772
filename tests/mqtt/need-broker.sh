#!/usr/bin/env bash
# The tests of the monitor's telemetry need an MQTT broker: it is installed where it is missing.
set -euo pipefail
# shellcheck source=scripts/lib/packages.sh
. "$(dirname "$(realpath "$0")")/../../scripts/lib/packages.sh"
need_packages "${mqtt_test_packages[@]}"
PATH=$PATH:/usr/sbin
command -v mosquitto
