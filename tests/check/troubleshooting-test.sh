#!/usr/bin/env bash
# Every line that the receiver prints is on docs/troubleshooting.md, as far as it is fixed: its words before the first
# value. The device layer's own lines are left out, which the receiver keeps silent.
set -euo pipefail
cd "$(dirname "$0")/../.."

mapfile -t lines < <(find src -name '*.cpp' ! -path '*/usb-gadget/*' -print0 |
    xargs -0 cat | tr '\n' ' ' | grep -oE '(fprintf\(stderr, +"[^"]*")|("[^"]*\\n")' |
    grep -vF '\r' | sed -E -e 's/^fprintf\(stderr, +//' -e 's/^"//' -e 's/"$//' -e 's/(%|\\n).*//' -e 's/[ (]+$//' | sort -u)
missing=0
for line in "${lines[@]}"; do
    [ -n "$line" ] || continue
    if ! grep -qF -- "\`$line" docs/troubleshooting.md; then
        echo "docs/troubleshooting.md does not have: $line"
        missing=$((missing + 1))
    fi
done
if [ "${#lines[@]}" -lt 60 ]; then
    echo "Only ${#lines[@]} lines were found in src"
    exit 1
fi
[ "$missing" -eq 0 ]
