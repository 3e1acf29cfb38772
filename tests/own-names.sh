#!/usr/bin/env bash
# Runs a test that uses the receiver's real names - port 6000, the rings - with these to itself, so that several run at
# once: own-names.sh PROGRAM ARGUMENTS... Where no namespaces may be made, one at a time.
set -euo pipefail
here=$(dirname "$(realpath "$0")")
# shellcheck source=scripts/lib/own-names.sh
. "$here/../scripts/lib/own-names.sh"

for argument in "$@"; do
    [ "$argument" != --gtest_list_tests ] || exec "$@"
done
if "${own_names[@]}" true 2>/dev/null; then
    exec "${own_names[@]}" "$@"
fi
exec flock "$here/own-names.sh" "$@"
